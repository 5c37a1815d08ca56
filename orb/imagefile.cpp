#include "imagefile.h"

#include "imagebase.h"

#include <cstring>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace Orb {

std::shared_ptr<ImageBase> ImageFile::read(const std::string &path, std::string &error)
{
    cv::Mat loaded = cv::imread(path, cv::IMREAD_UNCHANGED);
    if (loaded.empty()) {
        error = "image \"" + path + "\" is missing or not a readable image";
        return nullptr;
    }
    if (loaded.depth() != CV_8U)
        loaded.convertTo(loaded, CV_8U, loaded.depth() == CV_16U ? 1.0 / 257.0 : 1.0);
    cv::Mat rgba;
    switch (loaded.channels()) {
    case 1:
        cv::cvtColor(loaded, rgba, cv::COLOR_GRAY2RGBA);
        break;
    case 3:
        cv::cvtColor(loaded, rgba, cv::COLOR_BGR2RGBA);
        break;
    default:
        cv::cvtColor(loaded, rgba, cv::COLOR_BGRA2RGBA);
        break;
    }
    auto image = std::make_shared<ImageBase>(rgba.cols, rgba.rows, ColorSpace::RGBA);
    for (int y = 0; y < rgba.rows; ++y)
        std::memcpy(image->data() + static_cast<size_t>(y) * image->bytesPerLine(), rgba.ptr(y),
                    static_cast<size_t>(rgba.cols) * 4);
    return image;
}

bool ImageFile::write(const std::string &path, const ImageBase &image)
{
    const int type = image.colorSpace() == ColorSpace::Gray  ? CV_8UC1
                     : image.colorSpace() == ColorSpace::RGB ? CV_8UC3
                                                             : CV_8UC4;
    cv::Mat view(image.height(), image.width(), type, const_cast<uint8_t *>(image.data()),
                 image.bytesPerLine());
    cv::Mat bgr;
    switch (image.colorSpace()) {
    case ColorSpace::RGBA:
        cv::cvtColor(view, bgr, cv::COLOR_RGBA2BGRA);
        break;
    case ColorSpace::RGB:
        cv::cvtColor(view, bgr, cv::COLOR_RGB2BGR);
        break;
    default:
        bgr = view;
        break;
    }
    try {
        return cv::imwrite(path, bgr);
    } catch (const cv::Exception &) {
        return false;
    }
}

} // namespace Orb
