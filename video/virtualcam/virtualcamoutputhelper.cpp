#include "virtualcamoutputhelper.h"

#include "ivirtualcamservice.h"

namespace VCam {

Q_LOGGING_CATEGORY(lcVirtualCam, "glint.video.virtualcam")

namespace {
constexpr int kOutputWidth = 1280;
constexpr int kOutputHeight = 720;
} // namespace

bool VirtualCamOutputHelper::startOutput(IVirtualCamService &service)
{
    VirtualCamConfig config;
    service.getConfig(config);
    if (config.width != kOutputWidth || config.height != kOutputHeight) {
        config.width = kOutputWidth;
        config.height = kOutputHeight;
        service.setConfig(config);
    }
    if (!service.isInstalled() && !service.install()) {
        qCWarning(lcVirtualCam) << "Camera is not installed";
        return false;
    }
    const bool started = service.start();
    qCWarning(lcVirtualCam) << (started ? "Camera started!" : "Camera not started");
    return started;
}

QImage VirtualCamOutputHelper::outputFrame(const QImage &frame)
{
    QImage result = frame;
    if (result.width() != kOutputWidth || result.height() != kOutputHeight)
        result = result.scaled(kOutputWidth, kOutputHeight, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    return result.convertToFormat(QImage::Format_RGB888);
}

bool VirtualCamOutputHelper::writeFrame(IVirtualCamService &service, const QImage &frame)
{
    const QImage image = outputFrame(frame);
    if (image.isNull() || image.bytesPerLine() != image.width() * 3)
        return false;
    // The image outlives the synchronous write, so the buffer only borrows it.
    VirtualCamBuffer pixels(image.constBits(), [](const uint8_t *) {});
    return service.writeFrame(std::move(pixels), image.height() * image.width() * 3);
}

} // namespace VCam
