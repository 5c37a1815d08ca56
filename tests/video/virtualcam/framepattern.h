#pragma once

#include <QByteArray>
#include <cstdint>

// Test frames of 1280x720 RGB that carry their index: the first four bytes
// hold it and every other byte depends on it and on its position, so a
// torn, shifted or mixed-up frame never matches.
namespace FramePattern {

constexpr int kFrameBytes = 1280 * 720 * 3;

QByteArray make(uint32_t index);
// The index a received frame claims, or -1 when its content does not match it.
int64_t indexOf(const QByteArray &frame);
uint64_t checksum(const QByteArray &data, uint64_t seed = 1469598103934665603ull);

} // namespace FramePattern
