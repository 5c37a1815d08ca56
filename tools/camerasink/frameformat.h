#pragma once

#include <cstddef>

namespace Sink {

// The application always sends 1280x720 RGB888 frames with no header; the
// fixed size is what marks the frame boundaries on the pipe.
constexpr int kFrameWidth = 1280;
constexpr int kFrameHeight = 720;
constexpr std::size_t kRgbFrameBytes = std::size_t(kFrameWidth) * kFrameHeight * 3;
constexpr std::size_t kYuyvFrameBytes = std::size_t(kFrameWidth) * kFrameHeight * 2;

// Names shared with the application: the FIFO it writes to and the marker
// file whose presence means "the sink is ready to read".
constexpr const char *kPipeName = "GlintVirtualCamPipe";
constexpr const char *kReadyName = "GlintVirtualCamEvent";
constexpr const char *kCardLabel = "Glint Camera";
constexpr const char *kLoopbackDriver = "v4l2 loopback";

} // namespace Sink
