#pragma once

#include "action.h"

#include <QObject>
#include <memory>

namespace Bureau {

// Receives every action after the middlewares and changes its own state.
class BaseStore : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

public slots:
    virtual void process(std::shared_ptr<Action> action) = 0;
    virtual void start() = 0;
    virtual void stop() = 0;

signals:
    void started();
    void stopped();
};

} // namespace Bureau
