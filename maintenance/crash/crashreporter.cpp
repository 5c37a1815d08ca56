#include "crashreporter.h"

#include "crashprotocol.h"
#include "icrashhandler.h"
#include "reportsender.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTimer>
#include <condition_variable>
#include <glintdeployment.h>
#include <mutex>
#include <thread>

Q_LOGGING_CATEGORY(lcCrash, "glint.crash")

namespace CrashReport {

CrashReporter::CrashReporter() : m_handler(createPlatformCrashHandler())
{
    m_handler->install();
}

CrashReporter::~CrashReporter()
{
    m_handler->stop();
}

QString CrashReporter::stateDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/crashes");
}

QUrl CrashReporter::uploadUrl()
{
    QString base = QString::fromStdString(glint::deployment(glint::kCrashUrl));
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    return QUrl(base + QLatin1Char('/') + QString::fromStdString(glint::deployment(glint::kCrashAppId)) +
                QStringLiteral("/crashes/upload"));
}

QString CrashReporter::userId()
{
    // The same derivation as the installation id the backend sees.
    const QByteArray seed = QSysInfo::machineUniqueId() + QCoreApplication::applicationName().toUtf8();
    return QString::fromLatin1(QCryptographicHash::hash(seed, QCryptographicHash::Sha256).toHex().left(32));
}

CrashReporter::PreviousRun CrashReporter::takePreviousRun()
{
    QFile state(stateDirectory() + QLatin1Char('/') + QLatin1String(Protocol::kStateFileName));
    if (!state.open(QIODevice::ReadOnly))
        return PreviousRun::Clean;
    const QByteArray text = state.read(64);
    state.close();
    // Said once: the note is ours and goes once it has been read.
    state.remove();
    if (text == Protocol::kStateSent)
        return PreviousRun::CrashReported;
    return PreviousRun::CrashNotReported;
}

bool CrashReporter::start(const QString &logPath)
{
    const QString folder = stateDirectory();
    if (!QDir().mkpath(folder))
        qCWarning(lcCrash).noquote() << "The crash folder couldn't be created:" << folder;
    HandlerSettings settings;
    settings.stateDir = QDir::toNativeSeparators(folder).toStdString();
    settings.logPath = QDir::toNativeSeparators(logPath).toStdString();
    settings.uploadUrl = uploadUrl().toString().toStdString();
    settings.userId = userId().toStdString();
    settings.dumpBufferSize = kDumpBufferSize;
    // Where the platform uploads from inside the crashed process (Windows).
    settings.uploadInProcess = [this, settings](const CapturedDump &dump) {
        Report report;
        report.url = QUrl(QString::fromStdString(settings.uploadUrl));
        QFile log(QString::fromStdString(settings.logPath));
        if (log.open(QIODevice::ReadOnly))
            report.log = QString::fromUtf8(log.readAll());
        report.userId = QString::fromStdString(settings.userId);
        {
            std::lock_guard<std::mutex> lock(m_descriptionMutex);
            report.description = m_description;
        }
        if (dump.data)
            report.dump = QByteArray(dump.data, int(dump.size));
        else
            report.dumpPath = QString::fromStdString(dump.path);
        QString error;
        return sendReport(report, 10000, &error);
    };
    std::string error;
    if (!m_handler->start(settings, error)) {
        qCWarning(lcCrash).noquote() << "Crash reports can't be sent in this run. Reason: " +
                                            QString::fromStdString(error);
        return false;
    }
    return true;
}

void CrashReporter::setDescription(const QString &systemReport)
{
    {
        std::lock_guard<std::mutex> lock(m_descriptionMutex);
        m_description = systemReport;
    }
    m_handler->setDescription(systemReport.toStdString());
}

bool CrashReporter::sendReport(const Report &report, int timeoutMs, QString *error)
{
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    bool ok = false;
    QString problem;
    std::thread upload([&] {
        QEventLoop loop;
        ReportSender sender;
        sender.setProperty("serverURL", report.url);
        sender.setProperty("textLog", report.log);
        sender.setProperty("description", report.description);
        sender.setProperty("CrashDumpBuffer", report.dump);
        sender.setProperty("coredumpPath", report.dumpPath);
        sender.setUserId(report.userId);
        sender.setTimeoutMs(timeoutMs);
        bool result = false;
        QObject::connect(&sender, &ReportSender::finished, &loop, [&](bool success, const QString &why) {
            result = success;
            problem = why;
            loop.quit();
        });
        QMetaObject::invokeMethod(&sender, &ReportSender::sendReport, Qt::QueuedConnection);
        // The transfer timeout only catches silence; a server that trickles
        // must not hold the crashed process either. Leaving the loop ends
        // the sender, and with it the request.
        QTimer::singleShot(timeoutMs, &loop, [&] {
            QObject::disconnect(&sender, nullptr, &loop, nullptr); // the abort is no news
            result = false;
            problem = QStringLiteral("the upload took longer than %1 ms").arg(timeoutMs);
            loop.quit();
        });
        loop.exec();
        std::lock_guard<std::mutex> lock(mutex);
        ok = result;
        done = true;
        finished.notify_one();
    });
    {
        std::unique_lock<std::mutex> lock(mutex);
        finished.wait(lock, [&] { return done; });
    }
    upload.join();
    if (error)
        *error = problem;
    return ok;
}

} // namespace CrashReport
