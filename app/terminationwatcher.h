#pragma once

#include <QObject>

namespace VCam {

// Reports a request from the system to end the program (on Linux SIGTERM,
// SIGINT and SIGHUP, as at logout or from a terminal), so the application
// can shut down in order, saving its settings and releasing its guard,
// instead of dying on the spot.
class TerminationWatcher : public QObject
{
    Q_OBJECT
public:
    explicit TerminationWatcher(QObject *parent = nullptr);
    ~TerminationWatcher() override;

signals:
    void terminationRequested();

private:
    struct Private;
    Private *d;
};

} // namespace VCam
