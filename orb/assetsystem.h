#pragma once

#include <map>
#include <string>
#include <vector>

namespace Orb {
class RemoteAssetsDelegate;
}

namespace Orb::Mosaica {

// The remote assets a lens names by id, and where each one ended up. Each
// asset is requested from the host once; the host answers with a local path
// or a failure.
class AssetSystem
{
public:
    enum class State { NotRequested, Requested, Available, Failed };

    explicit AssetSystem(std::vector<std::string> assetIds);

    // Asks the delegate for every asset not requested yet.
    void requestAll(RemoteAssetsDelegate &delegate);

    void setAssetAvailable(const std::string &assetId, const std::string &path);
    void setAssetFailed(const std::string &assetId);

    State state(const std::string &assetId) const;
    // The local file of an available asset, "" otherwise.
    std::string path(const std::string &assetId) const;
    const std::vector<std::string> &assetIds() const { return m_ids; }

private:
    struct Entry
    {
        State state = State::NotRequested;
        std::string path;
    };

    std::vector<std::string> m_ids;
    std::map<std::string, Entry> m_entries;
};

} // namespace Orb::Mosaica
