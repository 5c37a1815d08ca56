#pragma once

#include <memory>
#include <orb/hostdelegates.h>
#include <string>

namespace Orb {
class CoreManager;
}

namespace VCam {

// Serves the assets lenses ask for by id from the asset bundle shipped with
// the program ("PrecachedAssets.bundle"); nothing is ever downloaded.
class RemoteAssetsDelegate : public Orb::RemoteAssetsDelegate
{
public:
    RemoteAssetsDelegate(std::shared_ptr<Orb::CoreManager> coreManager, std::string basePath);

    void requestAsset(const std::string &assetId) override;
    std::string queryText(const std::string &query) override;

    const std::string &basePath() const { return m_basePath; }
    // The bundle beside the program, or where GLINT_ASSET_BUNDLE points.
    static std::string defaultBundlePath();

private:
    std::shared_ptr<Orb::CoreManager> m_coreManager;
    std::string m_basePath;
};

} // namespace VCam
