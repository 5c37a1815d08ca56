#include "settingsvalue.h"

namespace VCam {

bool settingsBool(const nlohmann::json &section, const char *key, bool defaultValue)
{
    if (!section.is_object())
        return defaultValue;
    const auto it = section.find(key);
    if (it == section.end())
        return defaultValue;
    if (it->is_boolean())
        return it->get<bool>();
    if (it->is_number())
        return it->get<double>() != 0.0;
    return defaultValue;
}

} // namespace VCam
