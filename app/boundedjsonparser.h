#pragma once

#include <QByteArray>
#include <QString>
#include <nlohmann/json.hpp>

namespace VCam {

// Parses JSON from outside the program with limits on nesting depth and
// size. The parse itself is iterative; the limit keeps everything done
// later with the document (copies, merges, writing it out, destruction)
// from recursing deeper than a few dozen levels.
class BoundedJsonParser
{
public:
    static constexpr int kDefaultMaxDepth = 64;

    explicit BoundedJsonParser(int maxDepth = kDefaultMaxDepth) : m_maxDepth(maxDepth) {}

    // False with a reason on a syntax error or too deep a document; out is
    // then left as a discarded value.
    bool parse(const QByteArray &bytes, nlohmann::json &out, QString &error) const;

private:
    int m_maxDepth;
};

} // namespace VCam
