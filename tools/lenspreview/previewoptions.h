#pragma once

#include <string>
#include <vector>

// Command line of the lens preview tool.
struct PreviewOptions
{
    struct Input
    {
        double at = 0.0;   // seconds
        std::string event; // external event name, or empty for a tap
        float x = 0.5f, y = 0.5f;
    };

    std::string lensFolder;
    std::string input;
    std::string output;
    int frames = 1;       // frames written when output is a folder
    int intervalMs = 100; // time between written frames
    double startSeconds = 1.0;
    int width = 0, height = 0;             // size of written frames (0: as rendered)
    int canvasWidth = 0, canvasHeight = 0; // place a still image on a canvas
    bool debug = false;
    std::string assetsFolder; // empty: the bundle beside the lens folder's parent
    // The person-segmentation model for lenses that read the mask.
    std::string segmentationModel = LENSPREVIEW_SEGMENTATION_MODEL;
    std::vector<Input> inputs;

    // Returns false with a message (usage or the bad argument).
    bool parse(int argc, char **argv, std::string &message);
    static std::string usage();
};
