// Takes the single-instance guard under the name given as its argument and
// prints "running" (then waits to be killed) or "refused" (exit code 1), as
// the program's entry function decides.
#include <QCoreApplication>
#include <QThread>
#include <cstdio>
#include <singleinstanceguard.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 2)
        return 2;
    VCam::SingleInstanceGuard guard(QString::fromLocal8Bit(argv[1]));
    if (!guard.tryToRun()) {
        std::puts("refused");
        return 1;
    }
    std::puts("running");
    std::fflush(stdout);
    for (;;)
        QThread::sleep(60);
}
