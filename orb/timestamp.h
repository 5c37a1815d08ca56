#pragma once

#include <cstdint>

namespace Orb {

// A frame time in microseconds. An invalid timestamp tells the library to use
// its own monotonic clock.
class Timestamp
{
public:
    static Timestamp invalid() { return Timestamp(); }
    static Timestamp fromSeconds(double s) { return Timestamp(static_cast<int64_t>(s * 1e6)); }

    bool isValid() const { return m_valid; }
    int64_t microseconds() const { return m_us; }
    double seconds() const { return static_cast<double>(m_us) / 1e6; }

private:
    Timestamp() = default;
    explicit Timestamp(int64_t us) : m_us(us), m_valid(true) {}

    int64_t m_us = 0;
    bool m_valid = false;
};

} // namespace Orb
