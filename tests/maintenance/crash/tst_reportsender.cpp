// The crash report request as it reaches a real HTTP server on loopback:
// the address, the four parts in order with their bytes intact, a dump from
// memory or from its file, no second attempt after a failure, and a server
// that never finishes its answer cut off at the timeout.
#include <QHttpMultiPart>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>
#include <crashreporter.h>
#include <mutex>
#include <reportsender.h>

namespace {

// A minimal HTTP server on its own thread (the reporter blocks the calling
// thread while it uploads). It keeps every complete request and answers
// with a fixed status, closes the connection without an answer (0), or
// trickles an answer that never ends (-1).
class CapturingServer : public QObject
{
public:
    explicit CapturingServer(int status) : m_status(status)
    {
        moveToThread(&m_thread);
        m_thread.start();
        QMetaObject::invokeMethod(
            this, [this] { listen(); }, Qt::BlockingQueuedConnection);
    }
    ~CapturingServer() override
    {
        QMetaObject::invokeMethod(
            this, [this] { delete m_server; }, Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }

    quint16 port() const { return m_port; }
    int connections() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_connections;
    }
    QList<QByteArray> requests() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_requests;
    }

private:
    void listen()
    {
        m_server = new QTcpServer;
        m_server->listen(QHostAddress::LocalHost, 0);
        m_port = m_server->serverPort();
        QObject::connect(m_server, &QTcpServer::newConnection, m_server, [this] {
            while (QTcpSocket *socket = m_server->nextPendingConnection()) {
                {
                    std::lock_guard<std::mutex> lock(m_mutex);
                    ++m_connections;
                }
                auto buffer = std::make_shared<QByteArray>();
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, buffer] {
                    buffer->append(socket->readAll());
                    const int end = buffer->indexOf("\r\n\r\n");
                    if (end < 0)
                        return;
                    const QRegularExpression length(QStringLiteral("content-length: *(\\d+)"),
                                                    QRegularExpression::CaseInsensitiveOption);
                    const auto match = length.match(QString::fromLatin1(buffer->left(end)));
                    if (!match.hasMatch() || buffer->size() < end + 4 + match.captured(1).toInt())
                        return;
                    {
                        std::lock_guard<std::mutex> lock(m_mutex);
                        m_requests.append(*buffer);
                    }
                    if (m_status == 0) {
                        socket->abort();
                        return;
                    }
                    if (m_status < 0) { // an answer that never ends, one byte at a time
                        socket->write("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n");
                        auto *timer = new QTimer(socket);
                        QObject::connect(timer, &QTimer::timeout, socket, [socket] { socket->write("a"); });
                        timer->start(100);
                        return;
                    }
                    socket->write(
                        QStringLiteral("HTTP/1.1 %1 X\r\nContent-Length: 0\r\nConnection: close\r\n\r\n")
                            .arg(m_status)
                            .toLatin1());
                    socket->disconnectFromHost();
                });
            }
        });
    }

    QThread m_thread;
    QTcpServer *m_server = nullptr;
    quint16 m_port = 0;
    int m_status;
    mutable std::mutex m_mutex;
    int m_connections = 0;
    QList<QByteArray> m_requests;
};

// Where each of texts is found in request, in that order; -1 for one that
// is missing or out of order.
QList<int> positions(const QByteArray &request, const QList<QByteArray> &texts)
{
    QList<int> found;
    int at = 0;
    for (const QByteArray &text : texts) {
        at = at < 0 ? -1 : request.indexOf(text, at);
        found << at;
    }
    return found;
}

} // namespace

class TestReportSender : public QObject
{
    Q_OBJECT

private slots:
    void partsGoInOrderToTheConfiguredAddress()
    {
        CapturingServer server(201);
        qputenv("GLINT_CRASH_URL", QStringLiteral("http://127.0.0.1:%1/crash/").arg(server.port()).toUtf8());
        qputenv("GLINT_CRASH_APP_ID", "0123456789abcdef0123456789abcdef");
        CrashReport::CrashReporter::Report report;
        report.url = CrashReport::CrashReporter::uploadUrl();
        report.log = QStringLiteral("line one\nzwei – drei\n");
        report.description = QStringLiteral("OS Type: test\n");
        report.userId = QStringLiteral("user-42");
        report.dump = QByteArray("dump\0with\r\nbinary\xff", 19);
        QString error;
        QVERIFY2(CrashReport::CrashReporter::sendReport(report, 5000, &error), qPrintable(error));

        // The request line, then the parts in order with their bytes as
        // they were; the part headers are checked where the lens server
        // takes the report apart (tst_crashreport).
        QCOMPARE(server.requests().size(), 1);
        const QByteArray request = server.requests().first();
        QVERIFY(
            request.startsWith("POST /crash/0123456789abcdef0123456789abcdef/crashes/upload HTTP/1.1\r\n"));
        const QList<int> found =
            positions(request, {"multipart/form-data", "name=\"log\"", report.log.toUtf8(),
                                "name=\"description\"", report.description.toUtf8(), "name=\"userID\"",
                                "user-42", "name=\"attachment0\"", report.dump});
        QVERIFY2(!found.contains(-1), qPrintable(QString::fromLatin1(request.left(2000))));
    }

    void largeDumpTravelsFromItsFile()
    {
        CapturingServer server(201);
        QTemporaryDir dir;
        QFile file(dir.filePath("big.dump"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QByteArray content;
        for (int i = 0; content.size() < 3 * CrashReport::CrashReporter::kDumpBufferSize / 2; ++i)
            content += QByteArray::number(i) + ' ';
        file.write(content);
        file.close();

        CrashReport::CrashReporter::Report report;
        report.url = QUrl(QStringLiteral("http://127.0.0.1:%1/crash/x/crashes/upload").arg(server.port()));
        report.dumpPath = file.fileName();
        QString error;
        QVERIFY2(CrashReport::CrashReporter::sendReport(report, 5000, &error), qPrintable(error));
        QVERIFY(server.requests().value(0).contains("\r\n\r\n" + content + "\r\n--"));
    }

    void unreadableDumpFileSendsNothing()
    {
        CapturingServer server(201);
        CrashReport::ReportSender sender;
        sender.setProperty("serverURL", QUrl(QStringLiteral("http://127.0.0.1:%1/crash").arg(server.port())));
        sender.setProperty("coredumpPath", QStringLiteral("/nonexistent/dump"));
        QSignalSpy finished(&sender, &CrashReport::ReportSender::finished);
        sender.sendReport();
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished[0][0].toBool(), false);
        QVERIFY(finished[0][1].toString().contains("/nonexistent/dump"));
        QTest::qWait(200);
        QCOMPARE(server.connections(), 0);
    }

    void failuresAreNotRetried_data()
    {
        QTest::addColumn<int>("status");
        QTest::newRow("server error") << 500;
        QTest::newRow("connection dropped") << 0;
    }

    void failuresAreNotRetried()
    {
        QFETCH(int, status);
        CapturingServer server(status);
        CrashReport::CrashReporter::Report report;
        report.url = QUrl(QStringLiteral("http://127.0.0.1:%1/crash/x/crashes/upload").arg(server.port()));
        report.dump = "d";
        QString error;
        QVERIFY(!CrashReport::CrashReporter::sendReport(report, 5000, &error));
        QVERIFY(!error.isEmpty());
        QTest::qWait(300);
        QCOMPARE(server.connections(), 1);
    }

    void tricklingServerIsCutOffAtTheTimeout()
    {
        CapturingServer server(-1);
        CrashReport::CrashReporter::Report report;
        report.url = QUrl(QStringLiteral("http://127.0.0.1:%1/crash/x/crashes/upload").arg(server.port()));
        QElapsedTimer clock;
        clock.start();
        QString error;
        QVERIFY(!CrashReport::CrashReporter::sendReport(report, 1000, &error));
        QVERIFY2(clock.elapsed() < 4000, qPrintable(QString::number(clock.elapsed())));
        QVERIFY2(error.contains("longer than 1000 ms"), qPrintable(error));
        QCOMPARE(server.connections(), 1);
    }
};

QTEST_MAIN(TestReportSender)
#include "tst_reportsender.moc"
