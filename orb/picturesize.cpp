#include "picturesize.h"

#include <algorithm>
#include <fstream>

namespace Orb {

namespace {
int be16(const unsigned char *p)
{
    return (p[0] << 8) | p[1];
}

bool isStartOfFrame(int marker)
{
    // SOF0-SOF15 except DHT (C4), JPG (C8) and DAC (CC).
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

// Walks the JPEG segments up to the frame header; at most `limit` bytes.
bool jpegSize(std::ifstream &in, int &width, int &height)
{
    constexpr long kLimit = 16 * 1024 * 1024;
    in.seekg(2);
    unsigned char h[9];
    while (in.tellg() >= 0 && in.tellg() < kLimit) {
        if (!in.read(reinterpret_cast<char *>(h), 4) || h[0] != 0xFF)
            return false;
        const int marker = h[1];
        const int length = be16(h + 2);
        if (length < 2)
            return false;
        if (isStartOfFrame(marker)) {
            if (length < 7 || !in.read(reinterpret_cast<char *>(h), 5))
                return false;
            height = be16(h + 1);
            width = be16(h + 3);
            return true;
        }
        in.seekg(length - 2, std::ios::cur);
    }
    return false;
}
} // namespace

bool PictureSize::read(const std::string &path, int &width, int &height, std::string &error)
{
    std::ifstream in(path, std::ios::binary);
    unsigned char head[24] = {};
    if (!in || !in.read(reinterpret_cast<char *>(head), sizeof head)) {
        error = "picture \"" + path + "\" is missing or too short";
        return false;
    }
    static const unsigned char png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (std::equal(png, png + 8, head)) {
        // The IHDR chunk comes first: width and height as 32-bit big endian.
        const auto be32 = [](const unsigned char *p) {
            return (static_cast<unsigned>(p[0]) << 24) | (p[1] << 16) | (p[2] << 8) | p[3];
        };
        const unsigned w = be32(head + 16), h = be32(head + 20);
        if (std::string(reinterpret_cast<char *>(head + 12), 4) != "IHDR" || w == 0 || h == 0 ||
            w > 1u << 30 || h > 1u << 30) {
            error = "picture \"" + path + "\" has a damaged PNG header";
            return false;
        }
        width = static_cast<int>(w);
        height = static_cast<int>(h);
        return true;
    }
    if (head[0] == 0xFF && head[1] == 0xD8) {
        if (jpegSize(in, width, height) && width > 0 && height > 0)
            return true;
        error = "picture \"" + path + "\" has a damaged JPEG header";
        return false;
    }
    error = "picture \"" + path + "\" is not a PNG or JPEG file";
    return false;
}

} // namespace Orb
