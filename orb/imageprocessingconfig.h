#pragma once

namespace Orb {

// Options for one processed frame. The defaults render at the input size.
struct ImageProcessingConfig
{
    int outputWidth = 0;  // 0: the input width
    int outputHeight = 0; // 0: the input height
    // Face searches still run in the background, but each result is taken a
    // fixed number of frames after the search began (waiting for it when it
    // is late): the faces found then depend on the frames alone, not on the
    // machine's speed. For tests and benchmarks.
    bool lockstepDetection = false;
};

} // namespace Orb
