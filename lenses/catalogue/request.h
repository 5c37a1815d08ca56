#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <functional>

namespace VCam {

// What a request is for; decides which signal reports a network failure.
enum class RequestType {
    NetworkCheck,
    ScheduledLenses,
    TopLenses,
    SearchLenses,
    UnlockLens,
    LensesById,
    ReportLens,
    StreamEvent,
    SubscriptionEvent,
    TwitchAuthorize,
    TwitchRefresh,
    TwitchRevoke,
    TwitchApi,
    LatestVersion,
    UpdateDownload,
    Analytics,
    Download,
};

// One call in flight. The completion routine receives the HTTP status (0
// when no HTTP answer came), the whole body (a null array after a network
// error) and the network error text (empty when the transfer went well).
class Request
{
public:
    using Completion = std::function<void(int status, const QByteArray &body, const QString &error)>;

    Request() = default;
    Request(const QUrl &url, RequestType type, Completion completion, bool handlesErrors = true)
        : m_url(url), m_type(type), m_completion(std::move(completion)), m_handlesErrors(handlesErrors)
    {}

    QUrl getUrl() const { return m_url; }
    RequestType getType() const { return m_type; }
    bool doesHandleErrors() const { return m_handlesErrors; }
    void complete(int status, const QByteArray &body, const QString &error) const
    {
        if (m_completion)
            m_completion(status, body, error);
    }

private:
    QUrl m_url;
    RequestType m_type = RequestType::Download;
    Completion m_completion;
    bool m_handlesErrors = true;
};

} // namespace VCam
