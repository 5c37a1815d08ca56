#include "deferredrejection.h"

namespace glint::server {

namespace {
thread_local bool t_marked = false;
}

void DeferredRejection::clear()
{
    t_marked = false;
}

void DeferredRejection::mark()
{
    t_marked = true;
}

bool DeferredRejection::take()
{
    const bool marked = t_marked;
    t_marked = false;
    return marked;
}

bool DeferredRejection::hasBody(const httplib::Request &req)
{
    const std::string length = req.get_header_value("Content-Length");
    return (!length.empty() && length != "0") || req.has_header("Transfer-Encoding");
}

} // namespace glint::server
