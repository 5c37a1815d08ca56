#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Sink {

// Writes every frame, whole, to a file or to standard output ("-").
class FileOutput
{
public:
    FileOutput() = default;
    ~FileOutput();
    FileOutput(const FileOutput &) = delete;
    FileOutput &operator=(const FileOutput &) = delete;

    bool open(const std::string &path, std::string &error);
    // Gives up, with an empty error, once stop is set (a reader that does not
    // read must not keep the sink from ending).
    bool write(const uint8_t *data, std::size_t size, const std::atomic<bool> &stop, std::string &error);

private:
    int m_fd = -1;
    bool m_owned = false;
};

} // namespace Sink
