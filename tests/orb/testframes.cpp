#include "testframes.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

std::string TestFrames::dataPath(const std::string &relative)
{
    return std::string(ORB_TEST_DATA) + "/" + relative;
}

cv::Mat TestFrames::load(const std::string &name)
{
    cv::Mat image = cv::imread(dataPath("testdata/" + name), cv::IMREAD_COLOR);
    if (image.empty())
        throw std::runtime_error("missing test image " + name);
    return image;
}

cv::Mat TestFrames::place(const cv::Mat &picture, int x, int y, double scale, double rotateDegrees)
{
    cv::Mat canvas(720, 1280, CV_8UC3, cv::Scalar(128, 128, 128));
    cv::Mat scaled;
    cv::resize(picture, scaled, cv::Size(), scale, scale, cv::INTER_AREA);
    if (rotateDegrees != 0.0) {
        const cv::Point2f centre(scaled.cols / 2.0f, scaled.rows / 2.0f);
        cv::warpAffine(scaled, scaled, cv::getRotationMatrix2D(centre, rotateDegrees, 1.0), scaled.size(),
                       cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(128, 128, 128));
    }
    const cv::Rect target = cv::Rect(x, y, scaled.cols, scaled.rows) & cv::Rect(0, 0, 1280, 720);
    if (target.area() > 0)
        scaled(cv::Rect(target.x - x, target.y - y, target.width, target.height)).copyTo(canvas(target));
    return canvas;
}

std::shared_ptr<Orb::ImageBase> TestFrames::toImage(const cv::Mat &bgr)
{
    cv::Mat rgba;
    cv::cvtColor(bgr, rgba, cv::COLOR_BGR2RGBA);
    auto image = std::make_shared<Orb::ImageBase>(rgba.cols, rgba.rows, Orb::ColorSpace::RGBA);
    for (int y = 0; y < rgba.rows; ++y)
        std::memcpy(image->data() + static_cast<size_t>(y) * image->bytesPerLine(), rgba.ptr(y),
                    static_cast<size_t>(rgba.cols) * 4);
    return image;
}

cv::Mat TestFrames::toMat(const Orb::ImageBase &rgba)
{
    return cv::Mat(rgba.height(), rgba.width(), CV_8UC4, const_cast<uint8_t *>(rgba.data()),
                   rgba.bytesPerLine())
        .clone();
}

Orb::Face TestFrames::portraitFace()
{
    // Landmarks the tracker found on astronaut.png at its own size, recorded
    // once; the eye and mouth points agree with a manual reading.
    static const float points[68][2] = {
        {179, 103}, {179, 115}, {180, 126}, {181, 138}, {184, 150}, {191, 160}, {199, 168}, {209, 176},
        {220, 178}, {232, 177}, {243, 171}, {253, 163}, {260, 154}, {265, 143}, {268, 131}, {270, 120},
        {272, 108}, {186, 94},  {192, 88},  {200, 87},  {209, 89},  {216, 92},  {236, 93},  {244, 91},
        {252, 90},  {260, 92},  {265, 98},  {226, 102}, {225, 111}, {225, 119}, {225, 127}, {214, 131},
        {219, 132}, {224, 134}, {229, 133}, {234, 132}, {195, 101}, {200, 98},  {207, 98},  {212, 103},
        {206, 104}, {200, 103}, {238, 105}, {244, 100}, {250, 101}, {255, 104}, {250, 106}, {244, 106},
        {201, 139}, {209, 139}, {218, 139}, {223, 141}, {229, 140}, {237, 140}, {245, 141}, {237, 151},
        {229, 155}, {222, 155}, {216, 154}, {208, 149}, {203, 140}, {217, 143}, {223, 144}, {229, 143},
        {242, 142}, {229, 150}, {223, 150}, {217, 149}};
    Orb::Face face;
    face.id = 1;
    for (int i = 0; i < 68; ++i)
        face.landmarks[i] = {points[i][0], points[i][1]};
    return face;
}

TestFrames::TempLens::TempLens(const std::string &manifest)
{
    char pattern[] = "/tmp/orb-lens-XXXXXX";
    folder = mkdtemp(pattern);
    // Every lens has an icon; manifests written without one get a small one
    // (on the first line, so error line numbers stay as written).
    std::string text = manifest;
    const auto brace = text.find('{');
    if (text.find("\"icon\"") == std::string::npos && brace != std::string::npos) {
        text.insert(brace + 1, R"("icon": "icon.png", )");
        copy(dataPath("lenses/sunglasses/icon.png"), "icon.png");
    }
    write("lens.json", text);
}

TestFrames::TempLens::~TempLens()
{
    std::filesystem::remove_all(folder);
}

void TestFrames::TempLens::write(const std::string &name, const std::string &text) const
{
    std::ofstream(folder + "/" + name) << text;
}

void TestFrames::TempLens::copy(const std::string &from, const std::string &name) const
{
    std::ifstream in(from, std::ios::binary);
    std::ofstream(folder + "/" + name, std::ios::binary) << in.rdbuf();
}
