#include "framepattern.h"

#include <cstring>

namespace FramePattern {

QByteArray make(uint32_t index)
{
    QByteArray frame(kFrameBytes, Qt::Uninitialized);
    auto *bytes = reinterpret_cast<uint8_t *>(frame.data());
    std::memcpy(bytes, &index, sizeof index);
    uint32_t state = index * 2654435761u + 1;
    for (int i = sizeof index; i < kFrameBytes; ++i) {
        state = state * 1103515245u + 12345u;
        bytes[i] = uint8_t(state >> 24);
    }
    return frame;
}

int64_t indexOf(const QByteArray &frame)
{
    if (frame.size() != kFrameBytes)
        return -1;
    uint32_t index = 0;
    std::memcpy(&index, frame.constData(), sizeof index);
    return make(index) == frame ? int64_t(index) : -1;
}

} // namespace FramePattern
