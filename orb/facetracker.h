#pragma once

#include "face.h"
#include "trackingrequestinfo.h"

#include <memory>
#include <string>
#include <vector>

namespace Orb {

class ImageBase;

// Tracks up to four faces with 68 landmarks each. Full detection only looks
// for faces (on a background thread, or inline when asked); every frame fits
// landmarks from each face's last box, a cheap detection around each face
// every few frames confirms it, and landmarks are smoothed so a still face
// does not jitter.
class FaceTracker
{
public:
    static constexpr int kMaxFaces = 4;

    FaceTracker();
    ~FaceTracker();

    // Loads the shared landmark model. Returns false with a reason.
    bool initialize(const std::string &modelPath, std::string &error);
    bool isInitialized() const;

    enum class Detection {
        // Searches run on a background thread; their results are used as soon
        // as they are ready. Never stalls a frame, but what is found when
        // depends on the machine's speed.
        Background,
        // Searches run inline whenever they are due.
        Inline,
        // Searches run on the background thread and each result is used
        // exactly kLockstepFrames frames after its search began, waiting for
        // it if needed: reproducible, and cheap per frame on a fast machine.
        Lockstep,
    };
    static constexpr int kLockstepFrames = 3;

    // Tracks faces in one frame.
    const std::vector<Face> &process(const ImageBase &frame, double timeSeconds, Detection detection);
    // synchronousDetection: Detection::Inline, otherwise Detection::Background.
    const std::vector<Face> &process(const ImageBase &frame, double timeSeconds, bool synchronousDetection);

    const std::vector<Face> &faces() const;
    // Forgets every face and expression baseline and searches afresh. The
    // request's time limits count from the next processed frame.
    void restart(const TrackingRequestInfo &info);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace Orb
