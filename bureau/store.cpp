#include "store.h"

namespace VCam {

nlohmann::json Store::saveSettings() const
{
    return nlohmann::json::object();
}

void Store::loadSettings(const nlohmann::json &) {}

void Store::start()
{
    emit started();
}

void Store::stop()
{
    emit stopped();
}

} // namespace VCam
