#pragma once

#include <QByteArray>
#include <QString>

namespace VCam {

// What one browser request to the redirect server asks for.
struct ParsedRequest
{
    enum class Kind {
        Code,    // value: the authorization code
        Error,   // value: the error text Twitch sent back
        Result,  // a browser request parked until the outcome is known
        File,    // value: the request path
        Invalid, // anything else; answered with nothing
    };

    Kind kind = Kind::Invalid;
    QString value;

    // Reads the request line: only "GET <path>" counts; "code" and "error"
    // query items make it a Code or Error request (the last one wins).
    static ParsedRequest parse(const QByteArray &request);
};

} // namespace VCam
