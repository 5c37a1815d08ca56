#include "terminationwatcher.h"

namespace VCam {

// Windows ends a windowed program by closing its windows, which already
// starts the orderly shutdown; there is nothing more to watch.
struct TerminationWatcher::Private
{
};

TerminationWatcher::TerminationWatcher(QObject *parent) : QObject(parent), d(new Private) {}

TerminationWatcher::~TerminationWatcher()
{
    delete d;
}

} // namespace VCam
