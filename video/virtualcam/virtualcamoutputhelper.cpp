#include "virtualcamoutputhelper.h"

#include "ivirtualcamservice.h"

#include <libyuv/convert_from_argb.h>

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
    if (result.format() == QImage::Format_RGB888)
        return result;
    if (result.format() == QImage::Format_RGBA8888 || result.format() == QImage::Format_RGBX8888) {
        // What processing reads back. libyuv names formats by their order in
        // a 32-bit word: on the bytes R, G, B, A its "ARGB to RGB24" drops
        // the fourth byte and keeps R, G, B, in one pass (Qt's own conversion
        // goes through an intermediate per line and is about 4x slower).
        QImage out(result.size(), QImage::Format_RGB888);
        if (!out.isNull() && libyuv::ARGBToRGB24(result.constBits(), int(result.bytesPerLine()), out.bits(),
                                                 int(out.bytesPerLine()), out.width(), out.height()) == 0)
            return out;
    }
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
