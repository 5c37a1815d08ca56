#pragma once

#include "backgroundeffect.h"
#include "texture.h"

#include <memory>
#include <opencv2/core.hpp>
#include <string>

namespace Orb {

class BackgroundCompositor;
class CpuBackgroundCompositor;
class ImageBase;
class SegmentationWorker;
namespace Mosaica {
class SceneRenderer;
}

// The first stage of a frame: person segmentation and the background effect
// applied to the camera picture before any lens runs, and the person mask
// for lenses that read it. Compositing runs on the GPU, or on the CPU under a
// software renderer (GLINT_BACKGROUND_COMPOSITING=cpu|gpu forces one).
// Used on the thread owning the GL context.
class BackgroundStage
{
public:
    BackgroundStage();
    ~BackgroundStage();
    BackgroundStage(const BackgroundStage &) = delete;
    BackgroundStage &operator=(const BackgroundStage &) = delete;

    // A new model path; an effect in use is switched off (false, with the
    // reason) when the new model cannot be used.
    bool setModelPath(const std::string &path, std::string &error);
    // Loads the model if needed; false with the reason.
    bool ensureSegmenter(std::string &error);
    // Checks the model and the picture; on failure the effect is off.
    bool setEffect(const BackgroundEffect &effect, std::string &error);
    bool isActive() const { return m_effect.mode != BackgroundEffect::Mode::Off; }

    // Uploads the frame into `camera` and returns the picture for the lens:
    // the camera texture, or the frame with its background effect. With a
    // mask reader, hands it the person mask. On a failure the effect is
    // switched off, `error` says why, and the plain frame is returned.
    Texture process(const ImageBase &image, Texture &camera, bool synchronous,
                    Mosaica::SceneRenderer *maskReader, std::string &error);
    // Frees the GL objects (while the context is current).
    void releaseGl();

private:
    bool updateMask(const ImageBase &image, bool synchronous);
    bool useCpuCompositing(const std::string &renderer);
    Texture composeOnGpu(const Texture &camera, Mosaica::SceneRenderer *maskReader);
    Texture composeOnCpu(const ImageBase &image, Texture &camera, Mosaica::SceneRenderer *maskReader);
    static cv::Mat coverImage(const ImageBase &image, Size frame);

    std::string m_modelPath;
    std::unique_ptr<SegmentationWorker> m_segmenter;
    bool m_haveMask = false;
    int m_framesSinceMask = 0;
    cv::Mat m_coefficients; // the newest guided-filter coefficients
    bool m_coefficientsChanged = false;
    BackgroundEffect m_effect;
    std::shared_ptr<ImageBase> m_image;
    int m_cpuCompositing = -1; // -1: not decided yet
    std::unique_ptr<BackgroundCompositor> m_gpu;
    std::unique_ptr<CpuBackgroundCompositor> m_cpu;
    Texture m_imageTexture; // the picture cropped and scaled to the frame
    cv::Mat m_imageFrame;   // the same in memory, for the CPU
    cv::Mat m_frameRgba;    // the frame being composited on the CPU
    Texture m_lensMask;     // the mask for lenses, from the CPU
};

} // namespace Orb
