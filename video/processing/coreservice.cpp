#include "coreservice.h"

#include "videologging.h"

namespace VCam {

CoreService::CoreService(QObject *parent) : CoreService(CoreServiceWorker::VirtualCamFactory(), parent) {}

CoreService::CoreService(CoreServiceWorker::VirtualCamFactory virtualCamFactory, QObject *parent)
    : QThread(parent), m_virtualCamFactory(std::move(virtualCamFactory))
{
    qRegisterMetaType<VCam::LensId>("VCam::LensId");
    qRegisterMetaType<VCam::GestureEvent>("VCam::GestureEvent");
    qRegisterMetaType<VCam::ExternalEvent>("VCam::ExternalEvent");
    qRegisterMetaType<VCam::BackgroundSetting>("VCam::BackgroundSetting");
    connect(this, &CoreService::workerReady, this, &CoreService::started, Qt::QueuedConnection);
    start(QThread::InheritPriority);
}

CoreService::~CoreService()
{
    quit();
    if (!wait(kExitWaitMs))
        qCWarning(lcProcessing) << "CoreService was unable to exit!";
}

void CoreService::run()
{
    auto *worker = new CoreServiceWorker(m_virtualCamFactory);
    connectWorker(worker);
    m_worker = worker;
    emit workerReady();
    exec();
    // The worker is deleted here, before the thread reports that it has
    // finished: its GL context, camera and helper threads are released on the
    // thread that made them, and nothing of it outlives a wait() on this one.
    m_worker = nullptr;
    delete worker;
}

void CoreService::connectWorker(CoreServiceWorker *worker)
{
    connect(this, &CoreService::startProcessing, worker, &CoreServiceWorker::startProcessing);
    connect(this, &CoreService::stopProcessing, worker, &CoreServiceWorker::stopProcessing);
    connect(this, &CoreService::restartOutput, worker, &CoreServiceWorker::restartOutput);
    connect(this, &CoreService::setInputCamera, worker, &CoreServiceWorker::setInputCamera);
    connect(this, &CoreService::setLens, worker, &CoreServiceWorker::setLens);
    connect(this, &CoreService::setOverlay, worker, &CoreServiceWorker::setOverlay);
    connect(this, &CoreService::setOverlayMirrored, worker, &CoreServiceWorker::setOverlayMirrored);
    connect(this, &CoreService::setChromakeyEnabled, worker, &CoreServiceWorker::setChromakeyEnabled);
    connect(this, &CoreService::setBackgroundEffect, worker, &CoreServiceWorker::setBackgroundEffect);
    connect(this, &CoreService::processGesture, worker, &CoreServiceWorker::processGesture);
    connect(this, &CoreService::proccessExternalEvent, worker, &CoreServiceWorker::proccessExternalEvent);

    connect(worker, &CoreServiceWorker::started, this, &CoreService::processingStarted);
    connect(worker, &CoreServiceWorker::stopped, this, &CoreService::processingStopped);
    connect(worker, &CoreServiceWorker::stopped, this, &QThread::quit, Qt::DirectConnection);
    connect(worker, &CoreServiceWorker::streamStateChanged, this, &CoreService::streamStateChanged);
    connect(worker, &CoreServiceWorker::frameReady, this, &CoreService::frameReady);
    connect(worker, &CoreServiceWorker::lensLoaded, this, &CoreService::lensLoaded);
    connect(worker, &CoreServiceWorker::lensLoadError, this, &CoreService::lensLoadError);
    connect(worker, &CoreServiceWorker::supportedExternalEventsChanged, this,
            &CoreService::supportedExternalEventsChanged);
    connect(worker, &CoreServiceWorker::backgroundEffectAnswered, this,
            &CoreService::backgroundEffectAnswered);
    connect(worker, &CoreServiceWorker::showHintRequested, this, &CoreService::showHintRequested);
    connect(worker, &CoreServiceWorker::hideHintRequested, this, &CoreService::hideHintRequested);
}

} // namespace VCam
