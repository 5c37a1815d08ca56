#include "twitchstreamstatehelper.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>
#include <networkmanager.h>

Q_LOGGING_CATEGORY(lcTwitchStreamState, "glint.twitch.streamstate")

namespace VCam {

TwitchStreamStateHelper::TwitchStreamStateHelper(NetworkManager *network, QObject *parent)
    : QObject(parent), m_network(network)
{
    qRegisterMetaType<StreamState>("VCam::StreamState");
    m_timer.setInterval(kPollIntervalMs);
    connect(&m_timer, &QTimer::timeout, this, &TwitchStreamStateHelper::request);
}

void TwitchStreamStateHelper::setUserLogin(const QString &login)
{
    m_login = login;
    m_timer.start();
    request();
}

void TwitchStreamStateHelper::stop()
{
    ++m_generation;
    m_timer.stop();
    m_login.clear();
}

bool TwitchStreamStateHelper::parse(const QByteArray &body, StreamState *state, QString *error)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    const QJsonValue data = document.object().value(QLatin1String("data"));
    if (!document.isObject() || !data.isArray()) {
        *error = QStringLiteral("\"data\" is not a list");
        return false;
    }
    StreamState result;
    const QJsonArray entries = data.toArray();
    if (!entries.isEmpty()) {
        if (!entries.first().isObject()) {
            *error = QStringLiteral("the stream entry is not an object");
            return false;
        }
        const QJsonObject entry = entries.first().toObject();
        const QJsonValue viewers = entry.value(QLatin1String("viewer_count"));
        const QJsonValue started = entry.value(QLatin1String("started_at"));
        if ((!viewers.isUndefined() && !viewers.isDouble()) ||
            (!started.isUndefined() && !started.isString())) {
            *error = QStringLiteral("the stream entry has fields of the wrong type");
            return false;
        }
        result.live = true;
        result.viewerCount = qMax<qint64>(0, static_cast<qint64>(viewers.toDouble()));
        result.startedAt = QDateTime::fromString(started.toString(), Qt::ISODate);
        result.fields = entry.toVariantMap();
    }
    *state = result;
    return true;
}

void TwitchStreamStateHelper::request()
{
    if (m_login.isEmpty())
        return;
    const quint64 generation = m_generation;
    const QString path =
        QStringLiteral("streams?user_login=%1").arg(QString::fromLatin1(QUrl::toPercentEncoding(m_login)));
    m_network->requestHelix(path,
                            [this, generation](int status, const QByteArray &body, const QString &failure) {
                                if (generation != m_generation)
                                    return;
                                StreamState state;
                                QString error = failure;
                                if (error.isEmpty() && status / 100 != 2)
                                    error = QStringLiteral("status %1").arg(status);
                                if (error.isEmpty() && parse(body, &state, &error)) {
                                    emit streamStateReceived(state);
                                    return;
                                }
                                qCWarning(lcTwitchStreamState).noquote()
                                    << QStringLiteral("Can't get twitch stream status: %1").arg(error);
                            });
}

} // namespace VCam
