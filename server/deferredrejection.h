#pragma once

#include "apierror.h"

#include <httplib.h>

namespace glint::server {

// Turns away a request that exceeds the rate limit only after its body was
// read. A request answered before its body arrives would leave the body on
// the kept-open connection, to be taken for the next request. The rate is
// checked before routing; for a request with a body the verdict waits here,
// per handling thread, until the handler is reached.
class DeferredRejection
{
public:
    static void clear();
    static void mark();
    // True once for a marked request; clears the mark.
    static bool take();
    static bool hasBody(const httplib::Request &req);

    // The handler, unless the request was marked: then a 429 answer.
    template <typename Handler> static auto guard(Handler handler)
    {
        return [handler](const httplib::Request &req, httplib::Response &res) {
            if (take()) {
                ApiError::send(res, 429, "too_many_requests", "Too many requests, please try again later");
                return;
            }
            handler(req, res);
        };
    }
};

} // namespace glint::server
