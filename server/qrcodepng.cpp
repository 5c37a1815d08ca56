#include "qrcodepng.h"

#include <png.h>
#include <qrencode.h>
#include <vector>

namespace glint::server {

namespace {

constexpr int kMargin = 4;

void appendToString(png_structp png, png_bytep data, png_size_t length)
{
    auto *out = static_cast<std::string *>(png_get_io_ptr(png));
    out->append(reinterpret_cast<const char *>(data), length);
}

std::string encodePng(const std::vector<unsigned char> &pixels, int side)
{
    std::string out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!png || !info || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return {};
    }
    png_set_write_fn(png, &out, appendToString, nullptr);
    png_set_IHDR(png, info, png_uint_32(side), png_uint_32(side), 8, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < side; ++y)
        png_write_row(png, const_cast<png_bytep>(&pixels[size_t(y) * size_t(side)]));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

} // namespace

std::string QrCodePng::render(const std::string &text, int scale)
{
    QRcode *code = QRcode_encodeString8bit(text.c_str(), 0, QR_ECLEVEL_M);
    if (!code)
        return {};
    const int modules = code->width + 2 * kMargin;
    const int side = modules * scale;
    std::vector<unsigned char> pixels(size_t(side) * size_t(side), 0xff);
    for (int y = 0; y < code->width; ++y) {
        for (int x = 0; x < code->width; ++x) {
            if (!(code->data[y * code->width + x] & 1))
                continue;
            for (int dy = 0; dy < scale; ++dy) {
                auto *row = &pixels[size_t((y + kMargin) * scale + dy) * size_t(side)];
                std::fill(row + (x + kMargin) * scale, row + (x + kMargin + 1) * scale, 0);
            }
        }
    }
    QRcode_free(code);
    return encodePng(pixels, side);
}

} // namespace glint::server
