#pragma once

#include <cstdint>

namespace glint::server {

// A file answer: the open descriptor and the bytes of it to send. The
// daemon hands the descriptor to its response, which closes it.
struct FileBody
{
    int fd = -1;
    uint64_t offset = 0;
    uint64_t length = 0;
};

} // namespace glint::server
