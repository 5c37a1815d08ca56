#include "analyticsmiddleware.h"

#include "actiontypes.h"
#include "lenscommand.h"
#include "lensinfo.h"
#include "streamstate.h"

#include <QDateTime>

namespace VCam {

AnalyticsMiddleware::AnalyticsMiddleware(std::shared_ptr<IAnalyticsService> service, QObject *parent)
    : Bureau::Middleware(parent), m_service(std::move(service))
{
    m_sessionTimer.setInterval(kSessionContinueMs);
    connect(&m_sessionTimer, &QTimer::timeout, this, [this] {
        if (m_service->isEnabled())
            m_service->addEvent(sessionEvent(Gale::SESSION_CONTINUE));
    });
}

Gale::GlintCameraLensSource AnalyticsMiddleware::lensSource(qint32 context)
{
    if (context < 0 || context > 7)
        return Gale::UNKNOWN_GLINT_CAMERA_LENS_SOURCE;
    return static_cast<Gale::GlintCameraLensSource>(Gale::SOURCE_NONE + context);
}

void AnalyticsMiddleware::start()
{
    m_service->start();
    emit started();
}

void AnalyticsMiddleware::stop()
{
    m_sessionTimer.stop();
    Gale::GlintcameraEvent end;
    if (m_sessionRunning) {
        m_sessionRunning = false;
        end = sessionEvent(Gale::SESSION_END);
    }
    // Queued for the next run rather than sent: an upload still under way
    // when the program ends would leave its events both sent and stored.
    m_service->stop(std::move(end));
    emit stopped();
}

std::shared_ptr<Bureau::Action> AnalyticsMiddleware::process(std::shared_ptr<Bureau::Action> action)
{
    record(*action);
    return action;
}

void AnalyticsMiddleware::record(const Bureau::Action &action)
{
    const QVariant &payload = action.payload;
    // State first: it must follow the stream even while statistics are off.
    switch (static_cast<ActionType>(action.type)) {
    case ActionType::ActiveLensChanged:
        m_currentLensId = payload.value<LensInfo>().lensId;
        return;
    case ActionType::TwitchUserDeauthorized:
        m_twitchAuthorized = false;
        return;
    case ActionType::NotifyFavoriteLensesCounted: {
        bool ok = false;
        const int count = payload.toInt(&ok);
        m_favoritesCount = ok ? count : 0;
        m_service->setFavoritesCount(m_favoritesCount);
        return;
    }
    case ActionType::SetAlwaysShowGlintcode:
        m_glintcodeEnabled = payload.toBool();
        return;
    case ActionType::Started:
        m_sessionRunning = true;
        m_sessionTimer.start();
        break;
    default:
        break;
    }
    if (!m_service->isEnabled()) {
        if (action.type == int(ActionType::TwitchUserAuthorized))
            m_twitchAuthorized = true;
        return;
    }
    switch (static_cast<ActionType>(action.type)) {
    case ActionType::Started:
        m_service->addEvent(sessionEvent(Gale::SESSION_START));
        break;
    case ActionType::SetActiveLensId:
        lensEvent(Gale::LENS_ACTIVATION, payload);
        break;
    case ActionType::SetLensFavorite:
        lensEvent(payload.value<LensCommand>().enabled ? Gale::LENS_ADD_FAVORITES
                                                       : Gale::LENS_REMOVE_FAVORITES,
                  payload);
        break;
    case ActionType::LensDownloaded:
        lensEvent(Gale::LENS_DOWNLOAD, payload.toString(), Gale::SOURCE_NONE);
        break;
    case ActionType::SaveGlintcode:
        lensEvent(Gale::LENS_SAVE_GLINTCODE, payload);
        break;
    case ActionType::CopyLensLink:
        lensEvent(Gale::LENS_COPY_LINK, payload);
        break;
    case ActionType::ReportLens:
        lensEvent(Gale::LENS_REPORT, payload);
        break;
    case ActionType::OpenSettingsPage:
        userEvent(Gale::SETTINGS_OPEN);
        break;
    case ActionType::OpenTwitchPage:
        if (m_twitchAuthorized)
            userEvent(Gale::TWITCH_SETTINGS_OPEN);
        break;
    case ActionType::NotifySearchOpened:
        userEvent(Gale::SEARCH_OPEN);
        break;
    case ActionType::NotifyRecentsOpened:
        userEvent(Gale::RECENTS_OPEN);
        break;
    case ActionType::TwitchUserAuthorized:
        m_twitchAuthorized = true;
        userEvent(Gale::TWITCH_LOGIN);
        break;
    case ActionType::NotifyStreamStateUpdated:
        streamEvent(payload);
        break;
    default:
        break;
    }
}

void AnalyticsMiddleware::fillBase(Gale::GlintcameraEventBase *base, const QString &lensId) const
{
    base->set_client_ts(QDateTime::currentMSecsSinceEpoch());
    if (lensId != kInvalidLensId)
        base->set_lens_id(lensId.toStdString());
    if (!m_streamId.isEmpty())
        base->set_stream_session_id(m_streamId.toStdString());
}

void AnalyticsMiddleware::lensEvent(Gale::GlintCameraLensEvents kind, const QVariant &payload)
{
    const LensCommand command = payload.value<LensCommand>();
    lensEvent(kind, command.lensId, lensSource(static_cast<qint32>(command.context)));
}

void AnalyticsMiddleware::lensEvent(Gale::GlintCameraLensEvents kind, const QString &lensId,
                                    Gale::GlintCameraLensSource source)
{
    Gale::GlintcameraEvent event;
    Gale::GlintcameraLensAction *lens = event.mutable_lens_action();
    fillBase(lens->mutable_glintcamera_event_base(), lensId);
    lens->set_glint_camera_lens_events(kind);
    lens->set_glint_camera_lens_source(source);
    m_service->addEvent(std::move(event));
}

void AnalyticsMiddleware::userEvent(Gale::GlintCameraUserInteraction kind)
{
    Gale::GlintcameraEvent event;
    Gale::GlintcameraUserAction *user = event.mutable_user_action();
    fillBase(user->mutable_glintcamera_event_base(), m_currentLensId);
    user->set_glint_camera_user_interaction(kind);
    m_service->addEvent(std::move(event));
}

Gale::GlintcameraEvent AnalyticsMiddleware::sessionEvent(Gale::GlintCameraSession kind) const
{
    Gale::GlintcameraEvent event;
    Gale::GlintcameraSessionAction *session = event.mutable_session_action();
    fillBase(session->mutable_glintcamera_event_base(), m_currentLensId);
    session->set_glint_camera_session(kind);
    // The program has no start-at-login of its own, so it is never started
    // that way.
    session->set_with_on_startup(false);
    session->set_with_glintcode_enabled(m_glintcodeEnabled);
    return event;
}

void AnalyticsMiddleware::streamEvent(const QVariant &payload)
{
    const StreamState state = payload.value<StreamState>();
    m_streamId = state.live ? state.fields.value(QStringLiteral("id")).toString() : QString();
    Gale::GlintcameraEvent event;
    Gale::GlintcameraExtentionAction *stream = event.mutable_extention_action();
    fillBase(stream->mutable_glintcamera_event_base(), m_currentLensId);
    stream->set_view_count(state.viewerCount);
    if (state.startedAt.isValid())
        stream->set_extention_start_stream_ts(state.startedAt.toMSecsSinceEpoch());
    stream->set_extention_current_stream_ts(QDateTime::currentMSecsSinceEpoch());
    m_service->addEvent(std::move(event));
}

} // namespace VCam
