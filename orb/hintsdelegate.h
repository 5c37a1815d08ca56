#pragma once

#include <string>

namespace Orb {

// Implemented by the host to show the lens's hints (by id) to the user.
class HintsDelegate
{
public:
    virtual ~HintsDelegate() = default;
    virtual void showHint(const std::string &hintId) = 0;
    virtual void hideHint() = 0;
};

} // namespace Orb
