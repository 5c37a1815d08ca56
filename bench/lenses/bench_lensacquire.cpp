// Times lens acquisition against a real lens server on loopback: the whole
// network path for a 5 MiB lens, and the cached path that only verifies.
#include "benchsupport.h"
#include "lensserverprocess.h"
#include "networklensacquirehelper.h"
#include "networklensprovider.h"
#include "networkmanager.h"
#include "testlenses.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <cstdio>
#include <vector>

using namespace VCam;

namespace {

// One acquisition, run to its outcome; milliseconds, or -1 on failure.
double timeAcquisition(NetworkLensProvider &provider, const LensId &id)
{
    QEventLoop loop;
    bool ok = false;
    auto success = QObject::connect(&provider, &LensProvider::lensAcquireSuccess, &loop, [&] {
        ok = true;
        loop.quit();
    });
    auto failure = QObject::connect(&provider, &LensProvider::lensAcquireFailure, &loop,
                                    [&](const LensId &, const QString &reason) {
                                        std::fprintf(stderr, "failed: %s\n", qPrintable(reason));
                                        loop.quit();
                                    });
    QElapsedTimer timer;
    timer.start();
    provider.acquireLens(id);
    if (!ok) // a cached lens answers before acquireLens returns
        loop.exec();
    const double ms = timer.nsecsElapsed() / 1e6;
    QObject::disconnect(success);
    QObject::disconnect(failure);
    return ok ? ms : -1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(3, atoi(argv[1])) : 15;
    const qint64 lensBytes = 5 * 1024 * 1024;

    LensServerProcess server;
    QTemporaryDir lenses;
    const QString folder = TestLenses::makeLensFolder(lenses.path(), "bench-lens", lensBytes);
    if (!server.isReady() || !server.import({folder}) || !server.start()) {
        std::fprintf(stderr, "The lens server could not be started\n");
        return 1;
    }
    QTemporaryDir cacheDir;
    NetworkManager network(server.baseUrl(), [] { return QStringLiteral("bench"); });
    NetworkLensProvider provider(&network, cacheDir.filePath("cache"), server.publicKey());
    provider.cache().load(nlohmann::json::object());

    timeAcquisition(provider, "bench-lens"); // warm up the connection and the page cache
    std::vector<double> downloads, cached;
    for (int i = 0; i < rounds; ++i) {
        provider.markLensStale("bench-lens");
        const double download = timeAcquisition(provider, "bench-lens");
        const double hit = timeAcquisition(provider, "bench-lens");
        if (download < 0 || hit < 0)
            return 1;
        downloads.push_back(download);
        cached.push_back(hit);
    }
    std::printf("lens of %.1f MiB, %d rounds; load average %s\n", lensBytes / 1048576.0, rounds,
                Bench::loadAverage().constData());
    std::printf("acquire from server (link, download, unpack, verify), goal < 150 ms: %s\n",
                Bench::summary(downloads).c_str());
    std::printf("acquire cached (verify), goal < 20 ms:                             %s\n",
                Bench::summary(cached).c_str());
    return 0;
}
