#pragma once

// The callbacks a host program implements for the lens engine: hints, sounds,
// remote assets, code images, videos and the device sensors a desktop lacks.

#include <memory>
#include <string>

namespace Orb {

class ImageBase;

// Device heading for lenses that point somewhere; false when unknown.
class CompassTrackerDelegate
{
public:
    virtual ~CompassTrackerDelegate() = default;
    virtual bool getHeadingDegrees(float &heading) = 0;
};

// Device orientation: two rotation angles in radians and the time they were
// measured at (seconds).
struct DeviceOrientation
{
    float angleX = 0.0f;
    float angleY = 0.0f;
    double timestamp = 0.0;
};

class DeviceMotionTrackerDelegate
{
public:
    virtual ~DeviceMotionTrackerDelegate() = default;
    virtual DeviceOrientation getDeviceOrientation() = 0;
};

// Supplies the scannable code image of a lens, for lenses that show it.
class GlintcodeDelegate
{
public:
    virtual ~GlintcodeDelegate() = default;
    // Null when the host has no code image for the lens.
    virtual std::shared_ptr<ImageBase> getGlintcodeImage(const std::string &lensId) = 0;
};

// Implemented by the host to show the lens's hints (by id) to the user.
class HintsDelegate
{
public:
    virtual ~HintsDelegate() = default;
    virtual void showHint(const std::string &hintId) = 0;
    virtual void hideHint() = 0;
};

// Geographic position for location-aware lenses; false when unknown.
class LocationTrackerDelegate
{
public:
    virtual ~LocationTrackerDelegate() = default;
    virtual bool getLocation(double &latitude, double &longitude) = 0;
};

// Sound output for lenses.
class MosaicaAudioDelegate
{
public:
    virtual ~MosaicaAudioDelegate() = default;
    virtual bool isAudioSupported() = 0;
    virtual void playSound(const std::string &path) = 0;
    virtual void stopSounds() = 0;
};

// Implemented by the host to provide assets that lenses name by id. The host
// answers each request by calling setAssetAvailable or setAssetFailed on the
// current scene's asset system, at once or later.
class RemoteAssetsDelegate
{
public:
    virtual ~RemoteAssetsDelegate() = default;
    virtual void requestAsset(const std::string &assetId) = 0;
    // A free-text query about an asset; hosts without such data return "".
    virtual std::string queryText(const std::string &query) = 0;
};

// A decoded video a lens plays, frame by frame.
class VideoStream
{
public:
    virtual ~VideoStream() = default;
    // False when there is no (further) frame.
    virtual bool nextFrame(std::shared_ptr<ImageBase> &frame) = 0;
};

// Opens videos for lenses; a host without decoding returns streams without
// frames.
class VideoCodecFactory
{
public:
    virtual ~VideoCodecFactory() = default;
    virtual std::unique_ptr<VideoStream> openVideo(const std::string &path) = 0;
};

} // namespace Orb
