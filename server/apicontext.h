#pragma once

#include "catalogue.h"
#include "eventstore.h"
#include "lensindex.h"
#include "lensurls.h"
#include "serverconfig.h"
#include "twitchtokenclient.h"

namespace glint::server {

// What the request handlers share; owned by the server.
struct ApiContext
{
    const ServerConfig &config;
    Catalogue &catalogue;
    EventStore &events;
    LensIndex &index;
    const LensUrls &urls;
    const TwitchTokenClient &twitch;
};

} // namespace glint::server
