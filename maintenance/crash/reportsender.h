#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QUrl>

class QHttpMultiPart;
class QNetworkAccessManager;

namespace CrashReport {

// Builds one crash report as a multipart/form-data request (the log, the
// system report, the user id and the dump, in that order) and posts it once
// with a network access manager of its own. Nothing is retried.
class ReportSender : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QUrl serverURL MEMBER m_serverUrl)
    Q_PROPERTY(QString textLog MEMBER m_textLog)
    Q_PROPERTY(QString description MEMBER m_description)
    Q_PROPERTY(QByteArray CrashDumpBuffer MEMBER m_dumpBuffer)
    Q_PROPERTY(QString coredumpPath MEMBER m_coredumpPath)
public:
    explicit ReportSender(QObject *parent = nullptr);

    void setUserId(const QString &userId) { m_userId = userId; }
    void setTimeoutMs(int timeoutMs) { m_timeoutMs = timeoutMs; }
    // The request body; null with a reason when the dump file can't be read.
    QHttpMultiPart *buildBody(QString *error);

public slots:
    void sendReport();

signals:
    // ok: the server accepted the report (a 2xx answer).
    void finished(bool ok, const QString &error);

private:
    QUrl m_serverUrl;
    QString m_textLog;
    QString m_description;
    QByteArray m_dumpBuffer;
    QString m_coredumpPath;
    QString m_userId;
    int m_timeoutMs = 5000;
    QNetworkAccessManager *m_network = nullptr;
};

} // namespace CrashReport
