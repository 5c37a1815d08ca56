#pragma once

#include "previewassets.h"
#include "previewoptions.h"

#include <orb/coremanager.h>
#include <memory>
#include <opencv2/core.hpp>
#include <orb/texturereader.h>

// Runs a lens over a still image or a video and writes what it renders.
class PreviewRunner
{
public:
    explicit PreviewRunner(const PreviewOptions &options);

    // Returns the process exit code; errors go to stderr.
    int run();

private:
    bool loadLens();
    cv::Mat renderFrame(const cv::Mat &bgr, double lensTime);
    void deliverInputs(double from, double to);
    int runStill(const cv::Mat &still);
    int runVideo();
    cv::Mat finish(const cv::Mat &rgba) const;

    const PreviewOptions &m_options;
    std::unique_ptr<Orb::CoreManager> m_core;
    std::shared_ptr<PreviewAssets> m_assets;
    Orb::TextureReader m_reader;
};
