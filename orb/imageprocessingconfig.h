#pragma once

namespace Orb {

// Options for one processed frame. The defaults render at the input size.
struct ImageProcessingConfig
{
    int outputWidth = 0;  // 0: the input width
    int outputHeight = 0; // 0: the input height
};

} // namespace Orb
