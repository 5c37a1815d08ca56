#pragma once

#include <QTimer>
#include <functional>
#include <middleware.h>
#include <set>

namespace VCam {

// Saves the settings shortly after the actions that may change them, so a
// crash loses at most the last moments of a run instead of all of it.
// Actions of the skip set (frame-rate traffic) never schedule a save; the
// first other action arms a single-shot timer, and later ones within the
// delay share that save.
class SettingsSaveMiddleware : public Bureau::Middleware
{
    Q_OBJECT
public:
    static constexpr int kDefaultDelayMs = 2000;

    SettingsSaveMiddleware(std::set<qint32> skip, std::function<void()> save, int delayMs = kDefaultDelayMs,
                           QObject *parent = nullptr);

    bool isSavePending() const { return m_timer.isActive(); }

public slots:
    std::shared_ptr<Bureau::Action> process(std::shared_ptr<Bureau::Action> action) override;
    void stop() override;

private:
    std::set<qint32> m_skip;
    std::function<void()> m_save;
    QTimer m_timer;
};

} // namespace VCam
