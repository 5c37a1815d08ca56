#include "personsegmenter.h"

#include "fileutils.h"

#include <filesystem>
#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

namespace Orb {

namespace {
// Temporal smoothing: each pixel moves towards the new answer by kFollow, more
// where the answer changed a lot, so that a still person does not flicker
// while a moving one is not left behind.
constexpr float kFollow = 0.45f;
// Guided filter window radius (network pixels) and regularisation: a smaller
// epsilon follows the frame's edges more closely.
constexpr int kRadius = 2;
constexpr double kEpsilon = 2e-3;
// The largest model file we read (the model is about half a megabyte).
constexpr std::uintmax_t kMaxModelBytes = 64ll * 1024 * 1024;

cv::Mat boxMean(const cv::Mat &m)
{
    cv::Mat out;
    cv::boxFilter(m, out, CV_32F, cv::Size(2 * kRadius + 1, 2 * kRadius + 1), cv::Point(-1, -1), true,
                  cv::BORDER_REFLECT);
    return out;
}
} // namespace

struct PersonSegmenter::Impl
{
    cv::dnn::Net net;
    bool loaded = false;
    cv::Mat smoothed;
};

PersonSegmenter::PersonSegmenter() : d(std::make_unique<Impl>()) {}
PersonSegmenter::~PersonSegmenter() = default;

bool PersonSegmenter::load(const std::string &modelPath, std::string &error)
{
    d->loaded = false;
    d->smoothed.release();
    if (modelPath.empty()) {
        error = "no segmentation model path is set";
        return false;
    }
    std::error_code ec;
    const auto size = std::filesystem::file_size(modelPath, ec);
    if (ec) {
        error = modelPath + ": " + ec.message();
        return false;
    }
    if (size > kMaxModelBytes) {
        error = modelPath + ": larger than 64 MB, not a segmentation model";
        return false;
    }
    std::string bytes;
    if (!FileUtils::readFile(modelPath, bytes)) {
        error = modelPath + ": file not readable";
        return false;
    }
    try {
        d->net = cv::dnn::readNetFromONNX(bytes.data(), bytes.size());
        if (d->net.empty()) {
            error = modelPath + ": not a network OpenCV can read";
            return false;
        }
        d->net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
        d->net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
        // One trial run checks the input and output shapes.
        const int shape[4] = {1, kInputHeight, kInputWidth, 3};
        d->net.setInput(cv::Mat(4, shape, CV_32F, cv::Scalar(0.5)));
        const cv::Mat out = d->net.forward();
        if (out.total() != static_cast<size_t>(kInputWidth) * kInputHeight) {
            error = modelPath + ": the network does not give a " + std::to_string(kInputWidth) + "x" +
                    std::to_string(kInputHeight) + " mask";
            return false;
        }
    } catch (const cv::Exception &e) {
        error = modelPath + ": not a usable segmentation network (" + e.msg + ")";
        return false;
    }
    d->loaded = true;
    return true;
}

bool PersonSegmenter::isLoaded() const
{
    return d->loaded;
}

cv::Mat PersonSegmenter::shrink(const cv::Mat &frame, bool rgbOrder)
{
    cv::Mat small;
    cv::resize(frame, small, cv::Size(kInputWidth, kInputHeight), 0, 0, cv::INTER_AREA);
    cv::Mat rgb;
    if (small.channels() == 4)
        cv::cvtColor(small, rgb, rgbOrder ? cv::COLOR_RGBA2RGB : cv::COLOR_BGRA2RGB);
    else if (small.channels() == 3 && !rgbOrder)
        cv::cvtColor(small, rgb, cv::COLOR_BGR2RGB);
    else if (small.channels() == 1)
        cv::cvtColor(small, rgb, cv::COLOR_GRAY2RGB);
    else
        rgb = small;
    return rgb;
}

PersonSegmenter::Result PersonSegmenter::process(const cv::Mat &small)
{
    CV_Assert(d->loaded && small.type() == CV_8UC3 && small.cols == kInputWidth &&
              small.rows == kInputHeight);
    cv::Mat input;
    small.convertTo(input, CV_32F, 1.0 / 255.0);
    const int shape[4] = {1, kInputHeight, kInputWidth, 3};
    d->net.setInput(cv::Mat(4, shape, CV_32F, input.data));
    const cv::Mat out = d->net.forward();
    const cv::Mat probability =
        cv::Mat(kInputHeight, kInputWidth, CV_32F, const_cast<float *>(out.ptr<float>())).clone();

    if (d->smoothed.empty()) {
        d->smoothed = probability;
    } else {
        for (int y = 0; y < kInputHeight; ++y) {
            float *s = d->smoothed.ptr<float>(y);
            const float *p = probability.ptr<float>(y);
            for (int x = 0; x < kInputWidth; ++x) {
                const float change = p[x] - s[x];
                const float follow = std::min(1.0f, kFollow + std::abs(change));
                s[x] += follow * change;
            }
        }
    }

    // Guided filter coefficients with the frame's luma as the guide.
    cv::Mat gray, guide;
    cv::cvtColor(small, gray, cv::COLOR_RGB2GRAY);
    gray.convertTo(guide, CV_32F, 1.0 / 255.0);
    const cv::Mat &p = d->smoothed;
    const cv::Mat meanI = boxMean(guide), meanP = boxMean(p);
    const cv::Mat meanIP = boxMean(guide.mul(p)), meanII = boxMean(guide.mul(guide));
    const cv::Mat a = (meanIP - meanI.mul(meanP)) / (meanII - meanI.mul(meanI) + kEpsilon);
    const cv::Mat b = meanP - a.mul(meanI);
    cv::Mat channels[2] = {boxMean(a), boxMean(b)};
    Result result;
    cv::merge(channels, 2, result.coefficients);
    result.probability = d->smoothed.clone();
    return result;
}

void PersonSegmenter::reset()
{
    d->smoothed.release();
}

cv::Mat PersonSegmenter::evaluate(const Result &result, const cv::Mat &gray)
{
    cv::Mat coefficients, guide;
    cv::resize(result.coefficients, coefficients, gray.size(), 0, 0, cv::INTER_LINEAR);
    gray.convertTo(guide, CV_32F, 1.0 / 255.0);
    cv::Mat ab[2];
    cv::split(coefficients, ab);
    cv::Mat mask = ab[0].mul(guide) + ab[1];
    cv::min(cv::max(mask, 0.0), 1.0, mask);
    return mask;
}

} // namespace Orb
