#pragma once

#include <string>

namespace Orb {

// Implemented by the host to provide assets that lenses name by id. The host
// answers each request by calling setAssetAvailable or setAssetFailed on the
// current scene's asset system, at once or later.
class RemoteAssetsDelegate
{
public:
    virtual ~RemoteAssetsDelegate() = default;
    virtual void requestAsset(const std::string &assetId) = 0;
    // A free-text query about an asset; hosts without such data return "".
    virtual std::string queryText(const std::string &query) = 0;
};

} // namespace Orb
