#pragma once

#include <QByteArray>
#include <cstdint>
#include <ivirtualcamservice.h>

// Test frames of 1280x720 RGB that carry their index: the first four bytes
// hold it and every other byte depends on it and on its position, so a
// torn, shifted or mixed-up frame never matches.
namespace FramePattern {

constexpr int kFrameBytes = 1280 * 720 * 3;

QByteArray make(uint32_t index);
// The index a received frame claims, or -1 when its content does not match it.
int64_t indexOf(const QByteArray &frame);

// The frame as a buffer the writer reads from and does not free.
inline VCam::VirtualCamBuffer borrow(const QByteArray &frame)
{
    return VCam::VirtualCamBuffer(reinterpret_cast<const uint8_t *>(frame.constData()),
                                  [](const uint8_t *) {});
}

} // namespace FramePattern
