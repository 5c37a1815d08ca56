#pragma once

namespace httplib {
class Server;
}

namespace glint::server {

struct ApiContext;

// Everything besides the catalogue: lens reports, stream events, Twitch
// token exchange, update information and analytics batches.
class ServiceApi
{
public:
    static void install(httplib::Server &server, const ApiContext &context);
};

} // namespace glint::server
