#include "terminationwatcher.h"

#include <QSocketNotifier>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace VCam {

namespace {

// The signal handler may only write to a descriptor; the event loop reads
// the other end and turns it into a Qt signal.
int g_pipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[0], &byte, 1);
}

} // namespace

struct TerminationWatcher::Private
{
    QSocketNotifier *notifier = nullptr;
};

TerminationWatcher::TerminationWatcher(QObject *parent) : QObject(parent), d(new Private)
{
    if (g_pipe[0] < 0 && ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_pipe) != 0)
        return;
    d->notifier = new QSocketNotifier(g_pipe[1], QSocketNotifier::Read, this);
    connect(d->notifier, &QSocketNotifier::activated, this, [this] {
        char buffer[16];
        [[maybe_unused]] const ssize_t got = ::read(g_pipe[1], buffer, sizeof buffer);
        emit terminationRequested();
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaction(signal, &action, nullptr);
}

TerminationWatcher::~TerminationWatcher()
{
    for (int signal : {SIGTERM, SIGINT, SIGHUP})
        std::signal(signal, SIG_DFL);
    delete d;
}

} // namespace VCam
