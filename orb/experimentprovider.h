#pragma once

#include <string>

namespace Orb {

// Switches for experimental library behaviour; null means all off.
class ExperimentProvider
{
public:
    virtual ~ExperimentProvider() = default;
    virtual bool isEnabled(const std::string &experiment) = 0;
};

} // namespace Orb
