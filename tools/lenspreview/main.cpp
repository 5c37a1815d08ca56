// Applies a lens to an image or a video and writes the result, so lens
// authors can see their work without the application.
#include "previewoptions.h"
#include "previewrunner.h"

#include <cstdio>

int main(int argc, char **argv)
{
    PreviewOptions options;
    std::string message;
    if (!options.parse(argc, argv, message)) {
        std::fprintf(stderr, "%s", message.c_str());
        return 64;
    }
    return PreviewRunner(options).run();
}
