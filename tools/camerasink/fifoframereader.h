#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Sink {

// The reading end of the application's frame pipe.
//
// open() creates the FIFO afresh in the given directory, opens it for
// reading and then creates the ready marker, which the application waits
// for before it opens its end. Frames are collected from as many reads as
// the pipe needs; when the writer goes away a partial frame is thrown away
// and the pipe is reopened for the next writer.
class FifoFrameReader
{
public:
    enum class Result { Frame, Timeout, Error };

    explicit FifoFrameReader(std::string directory);
    ~FifoFrameReader();
    FifoFrameReader(const FifoFrameReader &) = delete;
    FifoFrameReader &operator=(const FifoFrameReader &) = delete;

    bool open(std::string &error);
    // Waits up to timeoutMs (-1: no limit) for the rest of a frame.
    Result read(int timeoutMs, std::string &error);
    const std::vector<uint8_t> &frame() const { return m_frame; }
    uint64_t discardedPartialFrames() const { return m_discarded; }
    std::string pipePath() const;
    std::string readyPath() const;

private:
    bool openReadEnd(std::string &error);
    bool announce(std::string &error);
    Result drain(std::string &error);
    bool writerLeft(std::string &error);

    std::string m_directory;
    int m_fd = -1;
    std::vector<uint8_t> m_frame;
    std::size_t m_filled = 0;
    uint64_t m_discarded = 0;
};

} // namespace Sink
