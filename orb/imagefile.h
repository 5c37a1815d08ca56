#pragma once

#include <memory>
#include <string>

namespace Orb {

class ImageBase;

// Reads and writes image files (PNG, JPEG, ...) as RGBA pictures.
class ImageFile
{
public:
    // Null with an error text when the file is missing or not an image.
    static std::shared_ptr<ImageBase> read(const std::string &path, std::string &error);
    static bool write(const std::string &path, const ImageBase &image);
};

} // namespace Orb
