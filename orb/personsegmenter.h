#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>

namespace Orb {

// Finds the people in a frame with a small convolutional network (an ONNX
// file run by OpenCV's DNN module on the CPU) and turns its coarse answer
// into a mask that follows the picture's edges.
//
// Each frame gives the coefficients of a fast guided filter: the network's
// probability, smoothed over time, is fitted locally to the frame's luma at
// the network's size, so that the full-size mask is
//     mask(x) = a(x) * luma(x) + b(x)
// with a and b bilinearly upscaled. That last step is cheap enough to run per
// pixel on the GPU at the output size (see SegmentationMaskRenderer), which is
// how hair and shoulder edges stay sharp without a full-size CPU pass.
class PersonSegmenter
{
public:
    static constexpr int kInputWidth = 256;
    static constexpr int kInputHeight = 144;

    struct Result
    {
        cv::Mat coefficients; // CV_32FC2 (a, b) at the network's size
        cv::Mat probability;  // CV_32F, 0..1, after temporal smoothing
    };

    PersonSegmenter();
    ~PersonSegmenter();
    PersonSegmenter(const PersonSegmenter &) = delete;
    PersonSegmenter &operator=(const PersonSegmenter &) = delete;

    // Reads the model and checks that it takes and gives what we expect.
    // Returns false with a reason.
    bool load(const std::string &modelPath, std::string &error);
    bool isLoaded() const;

    // Shrinks a frame (8-bit RGB, RGBA, BGR or BGRA as `rgbOrder` says) to
    // the network's input: CV_8UC3 RGB at kInputWidth x kInputHeight.
    static cv::Mat shrink(const cv::Mat &frame, bool rgbOrder);
    // Runs the network, smooths over time and fits the filter, on a frame
    // from shrink(). Throws cv::Exception when OpenCV fails.
    Result process(const cv::Mat &small);
    // Forgets the earlier frames (a new scene or camera).
    void reset();

    // The mask at the size of a full-size 8-bit gray picture, on the CPU:
    // what the GPU computes per pixel. CV_32F, 0..1.
    static cv::Mat evaluate(const Result &result, const cv::Mat &gray);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace Orb
