#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <memory>
#include <mutex>

namespace CrashReport {

class ICrashHandler;

// Installed when the program starts: creates the platform's crash handler
// and registers it as the process's one, connects it to the reporting side
// once the log file and the folders are known, and owns the upload.
class CrashReporter
{
public:
    enum class PreviousRun { Clean, CrashReported, CrashNotReported };

    struct Report
    {
        QUrl url;
        QString log;
        QString description;
        QString userId;
        QByteArray dump;  // the dump in memory, or
        QString dumpPath; // the dump on disk when it is larger than the buffer
    };

    // Dumps up to this size travel from memory, larger ones from their file.
    static constexpr int kDumpBufferSize = 1024 * 1024;

    CrashReporter();
    ~CrashReporter();
    CrashReporter(const CrashReporter &) = delete;
    CrashReporter &operator=(const CrashReporter &) = delete;

    // Needs the application's names (the folders come from them); starts
    // the handler side. False with the reason logged when crashes can't be
    // reported in this run.
    bool start(const QString &logPath);
    void setDescription(const QString &systemReport);
    // How the previous run ended; told once: the note is gone afterwards.
    // Called by the instance that really runs (a refused second instance
    // must not take the note away).
    static PreviousRun takePreviousRun();

    // Where crash state and the last dump are kept.
    static QString stateDirectory();
    // The crash service's address for this application's reports.
    static QUrl uploadUrl();
    // The installation's identifier: stable across runs, nothing personal.
    static QString userId();

    // Posts one report on a thread of its own and waits for it; the upload
    // gives up after timeoutMs in all. True when the server accepted it.
    static bool sendReport(const Report &report, int timeoutMs, QString *error);

private:
    std::shared_ptr<ICrashHandler> m_handler;
    std::mutex m_descriptionMutex;
    QString m_description;
};

} // namespace CrashReport
