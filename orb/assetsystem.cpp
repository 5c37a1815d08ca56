#include "assetsystem.h"

#include "hostdelegates.h"

namespace Orb::Mosaica {

AssetSystem::AssetSystem(std::vector<std::string> assetIds) : m_ids(std::move(assetIds))
{
    for (const auto &id : m_ids)
        m_entries[id];
}

void AssetSystem::requestAll(RemoteAssetsDelegate &delegate)
{
    for (const auto &id : m_ids) {
        Entry &entry = m_entries[id];
        if (entry.state != State::NotRequested)
            continue;
        entry.state = State::Requested;
        // The delegate may answer inside this call.
        delegate.requestAsset(id);
    }
}

void AssetSystem::setAssetAvailable(const std::string &assetId, const std::string &path)
{
    auto it = m_entries.find(assetId);
    if (it == m_entries.end())
        return;
    it->second.state = State::Available;
    it->second.path = path;
}

void AssetSystem::setAssetFailed(const std::string &assetId)
{
    auto it = m_entries.find(assetId);
    if (it != m_entries.end())
        it->second.state = State::Failed;
}

AssetSystem::State AssetSystem::state(const std::string &assetId) const
{
    auto it = m_entries.find(assetId);
    return it == m_entries.end() ? State::NotRequested : it->second.state;
}

std::string AssetSystem::path(const std::string &assetId) const
{
    auto it = m_entries.find(assetId);
    return it != m_entries.end() && it->second.state == State::Available ? it->second.path : std::string();
}

} // namespace Orb::Mosaica
