#pragma once

#include "coreserviceworker.h"

#include <QThread>

namespace VCam {

// The frame processing service: a thread whose signals are its commands.
// The worker that does the work is created on that thread and every command
// reaches it as a queued signal; its results come back the same way.
class CoreService : public QThread
{
    Q_OBJECT
public:
    static constexpr unsigned long kExitWaitMs = 2000;

    explicit CoreService(QObject *parent = nullptr);
    // The worker's output goes to the given virtual camera factory's service
    // (the system's virtual camera when empty).
    CoreService(CoreServiceWorker::VirtualCamFactory virtualCamFactory, QObject *parent = nullptr);
    ~CoreService() override;

    // The worker, once workerReady has been emitted; it lives on this thread.
    CoreServiceWorker *worker() const { return m_worker; }

signals:
    void startProcessing();
    void stopProcessing();
    // Starts the virtual camera output again, after the camera was set up.
    void restartOutput();
    void setInputCamera(const QString &camera);
    void setLens(const VCam::LensId &lensId, const QString &path);
    void setOverlay(const QImage &image);
    void setOverlayMirrored(bool mirrored);
    void setChromakeyEnabled(bool enabled);
    void setBackgroundEffect(const VCam::BackgroundSetting &setting);
    void processGesture(const VCam::GestureEvent &event);
    void proccessExternalEvent(const VCam::ExternalEvent &event);

    void streamStateChanged(bool running);
    void frameReady(const QImage &frame);
    void lensLoaded();
    void lensLoadError(const QString &error);
    void supportedExternalEventsChanged(const QStringList &supportedExternalTriggers);
    void backgroundEffectAnswered(const VCam::BackgroundSetting &setting, const QString &error);
    void showHintRequested(const QString &hintId);
    void hideHintRequested();
    void processingStarted();
    void processingStopped();

    void workerReady();
    // The worker exists and every connection is made: commands may be sent.
    void started();

protected:
    void run() override;

private:
    void connectWorker(CoreServiceWorker *worker);

    CoreServiceWorker::VirtualCamFactory m_virtualCamFactory;
    CoreServiceWorker *m_worker = nullptr;
};

} // namespace VCam
