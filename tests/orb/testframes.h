#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <orb/face.h>
#include <orb/hostdelegates.h>
#include <orb/imagebase.h>
#include <string>
#include <vector>

// Test pictures: the portrait and the cat from data/testdata placed into
// 1280x720 frames, conversions to and from the core's images, sample lenses.
class TestFrames
{
public:
    static std::string dataPath(const std::string &relative);
    static cv::Mat load(const std::string &name);
    // The picture scaled by `scale` with its top-left corner at (x, y) on a
    // grey 1280x720 canvas (parts outside the canvas are cut off).
    static cv::Mat place(const cv::Mat &picture, int x, int y, double scale, double rotateDegrees = 0.0);
    // An RGBA image owning a copy of a BGR picture.
    static std::shared_ptr<Orb::ImageBase> toImage(const cv::Mat &bgr);
    static cv::Mat toMat(const Orb::ImageBase &rgba);
    // A face whose landmarks are those the tracker finds on the portrait.
    static Orb::Face portraitFace();
    // A temporary lens folder, removed by the destructor.
    struct TempLens
    {
        explicit TempLens(const std::string &manifest);
        ~TempLens();
        void write(const std::string &name, const std::string &text) const;
        void copy(const std::string &from, const std::string &name) const;
        std::string folder;
    };
};

// Records the hints a lens shows ("show <id>") and hides ("hide").
struct RecordingHints : Orb::HintsDelegate
{
    std::vector<std::string> calls;
    void showHint(const std::string &id) override { calls.push_back("show " + id); }
    void hideHint() override { calls.push_back("hide"); }
};
