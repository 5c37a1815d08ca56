#pragma once

#include "action.h"

#include <QObject>
#include <memory>

namespace Bureau {

// Sees every action before the stores do and may replace it.
class Middleware : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

public slots:
    virtual std::shared_ptr<Action> process(std::shared_ptr<Action> action) = 0;
    virtual void start();
    virtual void stop();

signals:
    void started();
    void stopped();
};

} // namespace Bureau
