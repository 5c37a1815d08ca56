#include "remoteassetsdelegate.h"

#include "videologging.h"

#include <QCoreApplication>
#include <QDir>
#include <orb/assetsystem.h>
#include <orb/complexeffect.h>
#include <orb/coremanager.h>
#include <orb/effectsmanager.h>
#include <orb/fileutils.h>
#include <orb/scene.h>

namespace VCam {

RemoteAssetsDelegate::RemoteAssetsDelegate(std::shared_ptr<Orb::CoreManager> coreManager,
                                           std::string basePath)
    : m_coreManager(std::move(coreManager)), m_basePath(std::move(basePath))
{}

std::string RemoteAssetsDelegate::defaultBundlePath()
{
    const QString overridden = qEnvironmentVariable("GLINT_ASSET_BUNDLE");
    if (!overridden.isEmpty())
        return overridden.toStdString();
    // Beside the program; in a build tree the program sits one folder below
    // the tree's data folder; installed, in share/glint-camera beside bin.
    const QDir programDir(QCoreApplication::applicationDirPath());
    for (const QString &candidate :
         {QStringLiteral("PrecachedAssets.bundle"), QStringLiteral("../data/PrecachedAssets.bundle"),
          QStringLiteral("../share/glint-camera/PrecachedAssets.bundle")}) {
        if (programDir.exists(candidate))
            return QDir::cleanPath(programDir.filePath(candidate)).toStdString();
    }
    return programDir.filePath(QStringLiteral("PrecachedAssets.bundle")).toStdString();
}

void RemoteAssetsDelegate::requestAsset(const std::string &assetId)
{
    const auto effect = m_coreManager ? m_coreManager->getEffectsManager()->getComplexEffect() : nullptr;
    const auto scene = effect ? effect->getScene() : nullptr;
    const auto assets = scene ? scene->getAssetSystem() : nullptr;
    if (!assets)
        return;
    const std::string path = m_basePath + "/" + assetId;
    if (Orb::FileUtils::fileExists(path)) {
        assets->setAssetAvailable(assetId, path);
        return;
    }
    assets->setAssetFailed(assetId);
    qCWarning(lcProcessing).noquote()
        << QStringLiteral("Failed to get remote asset: %1").arg(QString::fromStdString(assetId));
}

std::string RemoteAssetsDelegate::queryText(const std::string &)
{
    return {};
}

} // namespace VCam
