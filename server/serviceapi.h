#pragma once

namespace glint::server {

class HttpRouter;
struct ApiContext;

// Everything besides the catalogue: lens reports, stream events, Twitch
// token exchange, update information and analytics batches.
class ServiceApi
{
public:
    static void install(HttpRouter &router, const ApiContext &context);
};

} // namespace glint::server
