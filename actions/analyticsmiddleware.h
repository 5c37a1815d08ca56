#pragma once

#include "ianalyticsservice.h"
#include "lensid.h"

#include <QTimer>
#include <memory>
#include <middleware.h>

namespace VCam {

// Takes usage events from the action stream: a fixed set of actions becomes
// analytics events for the service; every action passes on unchanged.
//
// Lens events name the lens acted on; the other events name the lens active
// when they happen (the last ActiveLensChanged). While the session runs, a
// SESSION_CONTINUE goes out every sessionInterval; SESSION_END goes out when
// the dispatcher stops it, at a clean shutdown.
class AnalyticsMiddleware : public Bureau::Middleware
{
    Q_OBJECT
public:
    static constexpr int kSessionContinueMs = 10 * 60 * 1000;

    explicit AnalyticsMiddleware(std::shared_ptr<IAnalyticsService> service, QObject *parent = nullptr);

    LensId currentLensId() const { return m_currentLensId; }
    bool twitchAuthorized() const { return m_twitchAuthorized; }
    qint32 favoritesCount() const { return m_favoritesCount; }
    void setSessionInterval(int ms) { m_sessionTimer.setInterval(ms); }

    // The event source of a LensActionContext value: None..Shortcut give
    // SOURCE_NONE..SHORTCUT; anything else stays unknown.
    static Gale::GlintCameraLensSource lensSource(qint32 context);

public slots:
    std::shared_ptr<Bureau::Action> process(std::shared_ptr<Bureau::Action> action) override;
    void start() override;
    void stop() override;

private:
    void record(const Bureau::Action &action);
    void lensEvent(Gale::GlintCameraLensEvents kind, const QVariant &payload);
    void lensEvent(Gale::GlintCameraLensEvents kind, const QString &lensId,
                   Gale::GlintCameraLensSource source);
    void userEvent(Gale::GlintCameraUserInteraction kind);
    Gale::GlintcameraEvent sessionEvent(Gale::GlintCameraSession kind) const;
    void streamEvent(const QVariant &payload);
    void fillBase(Gale::GlintcameraEventBase *base, const QString &lensId) const;

    std::shared_ptr<IAnalyticsService> m_service;
    LensId m_currentLensId = kInvalidLensId;
    bool m_twitchAuthorized = false;
    qint32 m_favoritesCount = 0;
    bool m_glintcodeEnabled = true;
    bool m_sessionRunning = false;
    QString m_streamId;
    QTimer m_sessionTimer;
};

} // namespace VCam
