#pragma once

#include <orb/hostdelegates.h>
#include <string>

namespace Orb {
class CoreManager;
}

// Serves the remote assets a lens asks for from a local folder, as the
// application does from its bundle.
class PreviewAssets : public Orb::RemoteAssetsDelegate
{
public:
    PreviewAssets(Orb::CoreManager &core, std::string folder);

    void requestAsset(const std::string &assetId) override;
    std::string queryText(const std::string &) override { return {}; }

private:
    Orb::CoreManager &m_core;
    std::string m_folder;
};
