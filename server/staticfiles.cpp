#include "staticfiles.h"

#include "apierror.h"
#include "byterange.h"

#include <fcntl.h>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace glint::server {

bool StaticFiles::isServedName(const std::string &relative)
{
    static const std::regex names(
        R"((archives/[A-Za-z0-9_-]{1,128}\.zip)|)"
        R"((media/[A-Za-z0-9_-]{1,128}/(icon\.png|glintcode\.png|preview/[0-9]{1,6}\.png)))");
    return std::regex_match(relative, names);
}

void StaticFiles::answer(const std::string &relative, const httplib::Request &req, httplib::Response &res,
                         FileBody &body) const
{
    if (!isServedName(relative))
        return ApiError::send(res, 404, "not_found", "no such file");
    const std::string path = m_dataDir + "/" + relative;
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    struct stat info
    {
    };
    if (fd < 0 || ::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        if (fd >= 0)
            ::close(fd);
        return ApiError::send(res, 404, "not_found", "no such file");
    }
    const uint64_t size = uint64_t(info.st_size);
    const ByteRange range = ByteRange::parse(req.get_header_value("Range"), size);
    if (range.kind == ByteRange::Kind::Unsatisfiable) {
        ::close(fd);
        res.set_header("Content-Range", "bytes */" + std::to_string(size));
        return ApiError::send(res, 416, "range_not_satisfiable", "the range lies outside the file");
    }
    body = {fd, range.offset, range.length};
    res.status = 200;
    if (range.kind == ByteRange::Kind::Part) {
        res.status = 206;
        res.set_header("Content-Range", "bytes " + std::to_string(range.offset) + "-" +
                                            std::to_string(range.offset + range.length - 1) + "/" +
                                            std::to_string(size));
    }
    res.set_header("Accept-Ranges", "bytes");
    res.set_header("Content-Type",
                   relative.rfind(".zip") == relative.size() - 4 ? "application/zip" : "image/png");
}

} // namespace glint::server
