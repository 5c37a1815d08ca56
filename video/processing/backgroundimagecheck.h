#pragma once

#include <QString>

namespace VCam {

// Looks at a background image before the AR core decodes it: the path comes
// from the settings file or a file dialog, so it may name nothing, a folder,
// a device, a file that is no image, or an image so large that decoding it
// would take gigabytes. Only the file's header is read.
class BackgroundImageCheck
{
public:
    static constexpr qint64 kMaxFileBytes = 64LL * 1024 * 1024;
    // 8K (7680 x 4320) in either orientation; phone photos are well below.
    static constexpr qint64 kMaxPixels = 7680LL * 4320;
    static constexpr int kMaxSide = 8192;

    // Empty when the file is a PNG or JPEG image within the limits;
    // otherwise what is wrong, in words for the user.
    static QString problemWith(const QString &path);
};

} // namespace VCam
