#pragma once

#include <nlohmann/json.hpp>

namespace VCam {

// A boolean member of a settings section, read leniently: a number counts
// as true when it is not 0; a missing member or one of another type gives
// the default.
bool settingsBool(const nlohmann::json &section, const char *key, bool defaultValue);

} // namespace VCam
