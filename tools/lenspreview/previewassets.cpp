#include "previewassets.h"

#include <orb/assetsystem.h>
#include <orb/complexeffect.h>
#include <orb/coremanager.h>
#include <cstdio>
#include <orb/effectsmanager.h>
#include <orb/fileutils.h>
#include <orb/scene.h>

PreviewAssets::PreviewAssets(Orb::CoreManager &core, std::string folder)
    : m_core(core), m_folder(std::move(folder))
{}

void PreviewAssets::requestAsset(const std::string &assetId)
{
    auto effect = m_core.getEffectsManager()->getComplexEffect();
    if (!effect)
        return;
    auto assets = effect->getScene()->getAssetSystem();
    const std::string path = m_folder + "/" + assetId;
    if (Orb::FileUtils::fileExists(path)) {
        assets->setAssetAvailable(assetId, path);
    } else {
        assets->setAssetFailed(assetId);
        std::fprintf(stderr, "remote asset %s not found in %s\n", assetId.c_str(), m_folder.c_str());
    }
}
