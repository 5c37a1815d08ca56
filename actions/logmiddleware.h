#pragma once

#include <middleware.h>
#include <set>

namespace VCam {

// Logs every action that passes, but those of the skip set (frame updates
// and gestures come at frame rate and would drown the log).
class LogMiddleware : public Bureau::Middleware
{
    Q_OBJECT
public:
    explicit LogMiddleware(std::set<qint32> skip, QObject *parent = nullptr);

public slots:
    std::shared_ptr<Bureau::Action> process(std::shared_ptr<Bureau::Action> action) override;

private:
    std::set<qint32> m_skip;
};

} // namespace VCam
