#pragma once

namespace glint::server {

class HttpRouter;
struct ApiContext;

// The lens catalogue endpoints: featured, top, search, unlock and lookup.
class ExplorerApi
{
public:
    static void install(HttpRouter &router, const ApiContext &context);
};

} // namespace glint::server
