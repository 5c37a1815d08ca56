#pragma once

#include <string>

namespace Orb {

// The width and height a PNG or JPEG file declares, read from its header
// without decoding it, so that a picture too large to decode safely is
// refused before any memory is spent on it.
class PictureSize
{
public:
    // False with a reason when the file cannot be read or is neither PNG
    // nor JPEG (or its header is damaged).
    static bool read(const std::string &path, int &width, int &height, std::string &error);
};

} // namespace Orb
