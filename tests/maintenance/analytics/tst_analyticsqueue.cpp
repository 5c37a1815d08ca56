// The analytics queue file meets whatever is on the disk: cut files, sizes
// that lie, garbage. Every complete record before the fault is kept, the
// fault is named, and nothing large is allocated.
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>
#include <analyticsqueuefile.h>
#include <messagecapture.h>

using VCam::AnalyticsQueueFile;
using Event = AnalyticsQueueFile::Event;
namespace Gale = com::parlo::analytics::gale;

namespace {

Event userEvent(int n)
{
    Event event;
    auto *user = event.mutable_user_action();
    user->set_glint_camera_user_interaction(Gale::SETTINGS_OPEN);
    user->mutable_glintcamera_event_base()->set_client_ts(1000 + n);
    user->mutable_glintcamera_event_base()->set_lens_id("lens-" + std::to_string(n));
    return event;
}

QByteArray sizeBytes(qint32 size)
{
    char bytes[4];
    qToLittleEndian<qint32>(size, bytes);
    return QByteArray(bytes, 4);
}

QByteArray record(const Event &event)
{
    const std::string bytes = event.SerializeAsString();
    return sizeBytes(qint32(bytes.size())) + QByteArray(bytes.data(), int(bytes.size()));
}

} // namespace

class TestAnalyticsQueue : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;

    QString write(const QByteArray &content)
    {
        const QString path = dir.filePath(QStringLiteral("analytics.proto.bin"));
        QFile file(path);
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write(content);
        return path;
    }

    // Loads the file and returns the client times of the events read.
    QList<qint64> load(const QString &path, size_t max = 100000)
    {
        std::vector<Event> events;
        AnalyticsQueueFile::load(path, events, max);
        QList<qint64> times;
        for (const Event &event : events)
            times << event.user_action().glintcamera_event_base().client_ts();
        return times;
    }

private slots:
    void storedEventsComeBackInOrder()
    {
        std::vector<Event> events{userEvent(1), userEvent(2), userEvent(3)};
        const QString path = dir.filePath(QStringLiteral("roundtrip.bin"));
        MessageCapture log("glint.analytics");
        QVERIFY(AnalyticsQueueFile::store(path, events));
        QCOMPARE(load(path), QList<qint64>({1001, 1002, 1003}));
        QVERIFY(log.messages().isEmpty());
        // The framing on disk: 4-byte little-endian size, then the message.
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), record(events[0]) + record(events[1]) + record(events[2]));
    }

    void brokenFilesKeepEveryCompleteRecordBeforeTheFault_data()
    {
        QTest::addColumn<QByteArray>("tail");
        QTest::addColumn<QString>("message");
        const QByteArray whole = record(userEvent(9));
        QTest::newRow("cut in a size") << whole.left(2) << "Failed to read analytics message size";
        QTest::newRow("cut in the data")
            << whole.left(whole.size() - 3) << "Failed to read analytics message data";
        QTest::newRow("size -1") << sizeBytes(-1) + QByteArray(16, 'x')
                                 << "Failed to read analytics message size";
        QTest::newRow("size 2^31-1") << sizeBytes(std::numeric_limits<qint32>::max()) + QByteArray(16, 'x')
                                     << "Failed to read analytics message data";
        QTest::newRow("size beyond one record's limit")
            << sizeBytes(AnalyticsQueueFile::kMaxRecordBytes + 1) +
                   QByteArray(AnalyticsQueueFile::kMaxRecordBytes + 1, 0)
            << "Failed to read analytics message data";
        QTest::newRow("garbage") << QByteArray("\xde\xad\xbe\xef garbage that is no queue at all", 36)
                                 << "Failed to read analytics message";
    }
    void brokenFilesKeepEveryCompleteRecordBeforeTheFault()
    {
        QFETCH(QByteArray, tail);
        QFETCH(QString, message);
        MessageCapture log("glint.analytics");
        const QString path = write(record(userEvent(1)) + record(userEvent(2)) + tail);
        QCOMPARE(load(path), QList<qint64>({1001, 1002}));
        QCOMPARE(log.messages().size(), 1);
        QVERIFY2(log.messages().first().startsWith(message), qPrintable(log.messages().first()));
    }

    void recordThatIsNotAnEventIsSkipped()
    {
        // Framed correctly, but the bytes are no event: named, and reading
        // goes on with the next record.
        MessageCapture log("glint.analytics");
        const QByteArray junk("\xff\xff\xff\xff\x0f", 5);
        const QString path =
            write(record(userEvent(1)) + sizeBytes(junk.size()) + junk + record(userEvent(3)));
        QCOMPARE(load(path), QList<qint64>({1001, 1003}));
        QCOMPARE(log.messages(), QStringList({"Failed to parse stored analytics event"}));
    }

    void emptyMissingAndUnwritableFiles()
    {
        MessageCapture log("glint.analytics");
        QVERIFY(load(write(QByteArray())).isEmpty());
        QVERIFY(log.messages().isEmpty()); // an empty queue is no fault
        QVERIFY(load(dir.filePath(QStringLiteral("nowhere.bin"))).isEmpty());
        std::vector<Event> events{userEvent(1)};
        QVERIFY(!AnalyticsQueueFile::store(dir.filePath(QStringLiteral("no/such/folder/q.bin")), events));
        QCOMPARE(log.messages().size(), 2);
        QVERIFY(log.messages().at(0).startsWith("Failed to load analytics events: "));
        QVERIFY(log.messages().at(1).startsWith("Failed to store analytics events: "));
    }

    void loadingStopsAtTheLimit()
    {
        QByteArray content;
        for (int i = 0; i < 50; ++i)
            content += record(userEvent(i));
        QCOMPARE(load(write(content), 10).size(), 10);
    }
};

QTEST_GUILESS_MAIN(TestAnalyticsQueue)
#include "tst_analyticsqueue.moc"
