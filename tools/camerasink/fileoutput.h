#pragma once

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
    bool write(const uint8_t *data, std::size_t size, std::string &error);

private:
    int m_fd = -1;
    bool m_owned = false;
};

} // namespace Sink
