#pragma once

#include "backgroundeffect.h"
#include "camerainfo.h"
#include "complexeffectdescriptor.h"
#include "face.h"
#include "imagebase.h"
#include "imageprocessingconfig.h"
#include "texturewithtransform.h"
#include "timestamp.h"
#include "touchevent.h"
#include "trackingrequestinfo.h"

#include <memory>
#include <string>
#include <vector>

namespace Orb {

class CompassTrackerDelegate;
class DeviceMotionTrackerDelegate;
class EffectsManager;
class ExperimentProvider;
class FaceFeatureDetectorFactory;
class GlintcodeDelegate;
class HintsDelegate;
class LocationTrackerDelegate;
class RemoteAssetsDelegate;
class VideoCodecFactory;

// The entry point of the library: loads lenses, tracks faces and renders each
// frame with the lens in use. Every call must come from one thread, which
// owns the library's OpenGL context (created on first use).
class CoreManager
{
public:
    // shareContext: an EGLContext whose objects the library's context should
    // share, or null. drawTrackingDebug: mark the landmarks of tracked faces
    // in the output. The factory may replace the landmark model (null: the
    // default); the experiment provider may switch on experiments (null: none).
    CoreManager(void *shareContext, bool drawTrackingDebug,
                std::shared_ptr<FaceFeatureDetectorFactory> faceFeatureDetectorFactory,
                std::shared_ptr<ExperimentProvider> experimentProvider);
    ~CoreManager();

    CoreManager(const CoreManager &) = delete;
    CoreManager &operator=(const CoreManager &) = delete;

    void setCameraInfo(const CameraInfo &info);

    // Tracks faces, runs the lens and renders the frame. An invalid timestamp
    // means "now" on the library's clock. With synchronousDetection, face
    // detection runs inline on this frame instead of in the background.
    // Throws std::runtime_error when the frame cannot be processed.
    TextureWithTransform processFrameToTexture(const ImageBase &image, Timestamp timestamp,
                                               bool synchronousDetection,
                                               const ImageProcessingConfig &config);

    // Loads the lens in the descriptor's folder and makes it current. On
    // failure returns false, no lens is current, and getLastError() tells
    // "<file>:<line>: <reason>" (shader errors carry the compiler log).
    bool useComplexEffect(std::shared_ptr<ComplexEffectDescriptor> descriptor);
    const std::string &getLastError() const { return m_lastError; }
    void clearComplexEffect();
    // Frees the GL resources of lenses that are no longer in use.
    void deinitializeUnusedFilters();
    void restartTracking(const TrackingRequestInfo &info);
    std::shared_ptr<EffectsManager> getEffectsManager() const { return m_effects; }

    // The person-segmentation model (an ONNX file) used by background effects
    // and by lenses that read the segmentation mask. Read on first use.
    void setSegmentationModelPath(const std::string &path);
    // Applies the effect to every following frame. On failure (model missing
    // or unreadable, image unreadable) returns false, getLastError() says
    // why, and frames keep flowing without a background effect.
    bool setBackgroundEffect(const BackgroundEffect &effect);

    // Hands a tap or touch to the lens; true when the lens reacts to it.
    bool processTouchEvent(const TouchEvent &event);

    // The faces found in the last processed frame.
    const std::vector<Face> &getTrackedFaces() const { return m_faces; }
    // The OpenGL renderer in use ("" before the context exists).
    std::string getRendererName() const;

    void setCompassTrackerDelegate(std::weak_ptr<CompassTrackerDelegate> delegate);
    void setLocationTrackerDelegate(std::weak_ptr<LocationTrackerDelegate> delegate);
    void setDeviceMotionTrackerDelegate(std::weak_ptr<DeviceMotionTrackerDelegate> delegate);
    void setGlintcodeDelegate(std::weak_ptr<GlintcodeDelegate> delegate);
    void setRemoteAssetsDelegate(std::weak_ptr<RemoteAssetsDelegate> delegate);
    void setHintsDelegate(std::weak_ptr<HintsDelegate> delegate);
    void setVideoCodecFactory(std::weak_ptr<VideoCodecFactory> factory);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
    std::shared_ptr<EffectsManager> m_effects;
    std::vector<Face> m_faces;
    std::string m_lastError;
};

} // namespace Orb
