#include "twitchextensionshelper.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <networkmanager.h>

Q_LOGGING_CATEGORY(lcTwitchExtensions, "glint.twitch.extensions")

namespace VCam {

TwitchExtensionsHelper::TwitchExtensionsHelper(NetworkManager *network, QObject *parent)
    : QObject(parent), m_network(network)
{
    qRegisterMetaType<TwitchExtensionStatus>("VCam::TwitchExtensionStatus");
}

void TwitchExtensionsHelper::check(const QString &extensionId)
{
    ++m_generation; // answers of an earlier check change nothing
    m_extensionId = extensionId;
    enter(Initial);
    enter(VerifyExtensionInstalled);
}

void TwitchExtensionsHelper::enter(Step step)
{
    m_step = step;
    switch (step) {
    case Initial:
        m_status = TwitchExtensionStatus::NotInstalled;
        m_error.clear();
        break;
    case VerifyExtensionInstalled:
        verifyInstalled();
        break;
    case VerifyExtensionActivated:
        verifyActivated();
        break;
    case Final:
        finish();
        break;
    }
}

bool TwitchExtensionsHelper::readData(int status, const QByteArray &body, const QString &failure,
                                      bool wantArray, QJsonValue *data)
{
    if (!failure.isEmpty() || status / 100 != 2) {
        m_error = failure.isEmpty() ? QStringLiteral("status %1").arg(status) : failure;
        return false;
    }
    const QJsonDocument document = QJsonDocument::fromJson(body);
    const QJsonValue value = document.object().value(QLatin1String("data"));
    if (!document.isObject() || (wantArray ? !value.isArray() : !value.isObject())) {
        m_error = wantArray ? QStringLiteral("\"data\" is not a list")
                            : QStringLiteral("\"data\" is not an object");
        return false;
    }
    *data = value;
    return true;
}

void TwitchExtensionsHelper::verifyInstalled()
{
    const quint64 generation = m_generation;
    m_network->requestHelix(QStringLiteral("users/extensions/list"),
                            [this, generation](int status, const QByteArray &body, const QString &failure) {
                                if (generation != m_generation)
                                    return;
                                QJsonValue data;
                                if (!readData(status, body, failure, true, &data)) {
                                    m_failedStep = VerifyExtensionInstalled;
                                    return enter(Final);
                                }
                                for (const QJsonValue &entry : data.toArray()) {
                                    if (entry.toObject().value(QLatin1String("id")).toString() ==
                                        m_extensionId)
                                        return enter(VerifyExtensionActivated);
                                }
                                m_status = TwitchExtensionStatus::NotInstalled;
                                enter(Final);
                            });
}

void TwitchExtensionsHelper::verifyActivated()
{
    const quint64 generation = m_generation;
    m_network->requestHelix(QStringLiteral("users/extensions"),
                            [this, generation](int status, const QByteArray &body, const QString &failure) {
                                if (generation != m_generation)
                                    return;
                                QJsonValue data;
                                if (!readData(status, body, failure, false, &data)) {
                                    m_failedStep = VerifyExtensionActivated;
                                    return enter(Final);
                                }
                                m_status = TwitchExtensionStatus::NotActivated;
                                // "data" holds the slot kinds (panel, overlay,
                                // component), each a map of slot number to slot.
                                const QJsonObject kinds = data.toObject();
                                for (const QJsonValue &kind : kinds) {
                                    const QJsonObject slotsOfKind = kind.toObject();
                                    for (const QJsonValue &slot : slotsOfKind) {
                                        const QJsonObject s = slot.toObject();
                                        if (s.value(QLatin1String("active")).toBool() &&
                                            s.value(QLatin1String("id")).toString() == m_extensionId)
                                            m_status = TwitchExtensionStatus::Activated;
                                    }
                                }
                                enter(Final);
                            });
}

void TwitchExtensionsHelper::finish()
{
    const QString error = m_error;
    const TwitchExtensionStatus status = m_status;
    const Step failed = m_failedStep;
    enter(Initial);
    if (error.isEmpty()) {
        emit extensionStatusReceived(status);
        return;
    }
    qCWarning(lcTwitchExtensions).noquote()
        << QStringLiteral("Step %1: %2")
               .arg(QLatin1String(QMetaEnum::fromType<Step>().valueToKey(failed)), error);
    emit extensionStatusRequestFailed(error);
}

} // namespace VCam
