#include "reportsender.h"

#include <QBuffer>
#include <QFile>
#include <QHttpMultiPart>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslError>

Q_LOGGING_CATEGORY(lcReportSender, "glint.crash.sender")

namespace CrashReport {

namespace {

// The network stack sends a request again by itself when the connection
// closes before an answer (it rewinds the body). A report is sent once: the
// dump's device refuses to rewind, which turns that resend into an error.
template <class Device> class SendOnce : public Device
{
public:
    using Device::Device;
    bool reset() override { return false; }
};

QHttpPart part(const QByteArray &disposition, const QByteArray &contentType)
{
    QHttpPart part;
    part.setHeader(QNetworkRequest::ContentDispositionHeader, disposition);
    if (!contentType.isEmpty())
        part.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    return part;
}

} // namespace

ReportSender::ReportSender(QObject *parent) : QObject(parent) {}

QHttpMultiPart *ReportSender::buildBody(QString *error)
{
    auto *body = new QHttpMultiPart(QHttpMultiPart::FormDataType);

    QHttpPart log = part("form-data; name=\"log\"; filename=\"log.txt\"", "text/plain");
    log.setBody(m_textLog.toUtf8());
    body->append(log);

    QHttpPart description =
        part("form-data; name=\"description\"; filename=\"description.txt\"", "text/plain");
    description.setBody(m_description.toUtf8());
    body->append(description);

    QHttpPart user = part("form-data; name=\"userID\"", QByteArray());
    user.setBody(m_userId.toUtf8());
    body->append(user);

    QHttpPart dump =
        part("form-data; name=\"attachment0\"; filename=\"dump.dmp\"", "application/octet-stream");
    if (!m_coredumpPath.isEmpty() && m_dumpBuffer.isEmpty()) {
        auto *file = new SendOnce<QFile>(m_coredumpPath, body);
        if (!file->open(QIODevice::ReadOnly)) {
            if (error)
                *error =
                    QStringLiteral("the dump %1 can't be read: %2").arg(m_coredumpPath, file->errorString());
            delete body;
            return nullptr;
        }
        dump.setBodyDevice(file);
    } else {
        auto *buffer = new SendOnce<QBuffer>(body);
        buffer->setData(m_dumpBuffer);
        buffer->open(QIODevice::ReadOnly);
        dump.setBodyDevice(buffer);
    }
    body->append(dump);
    return body;
}

void ReportSender::sendReport()
{
    QString error;
    QHttpMultiPart *body = buildBody(&error);
    if (!body) {
        emit finished(false, error);
        return;
    }
    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    QNetworkRequest request(m_serverUrl);
    request.setTransferTimeout(m_timeoutMs);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkReply *reply = m_network->post(request, body);
    body->setParent(reply);
    auto tlsErrors = std::make_shared<QStringList>();
    connect(reply, &QNetworkReply::sslErrors, this, [tlsErrors](const QList<QSslError> &errors) {
        for (const QSslError &e : errors)
            tlsErrors->append(e.errorString());
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply, tlsErrors] {
        reply->deleteLater();
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        QString problem;
        if (reply->error() != QNetworkReply::NoError)
            problem = reply->errorString();
        else if (status < 200 || status >= 300)
            problem = QStringLiteral("HTTP status %1").arg(status);
        if (!tlsErrors->isEmpty())
            problem += QStringLiteral(" (TLS: %1)").arg(tlsErrors->join(QStringLiteral("; ")));
        emit finished(problem.isEmpty(), problem);
    });
}

} // namespace CrashReport
