#include "boundedjsonparser.h"

namespace VCam {

namespace {

using Json = nlohmann::json;

// The library's document builder, stopped by a nesting counter: returning
// false from a start event ends the parse at once.
class DepthLimitedBuilder : public nlohmann::detail::json_sax_dom_parser<Json>
{
public:
    DepthLimitedBuilder(Json &root, int maxDepth)
        : nlohmann::detail::json_sax_dom_parser<Json>(root, false), m_maxDepth(maxDepth)
    {}

    bool start_object(std::size_t elements)
    {
        return enter() && nlohmann::detail::json_sax_dom_parser<Json>::start_object(elements);
    }
    bool start_array(std::size_t elements)
    {
        return enter() && nlohmann::detail::json_sax_dom_parser<Json>::start_array(elements);
    }
    bool end_object()
    {
        --m_depth;
        return nlohmann::detail::json_sax_dom_parser<Json>::end_object();
    }
    bool end_array()
    {
        --m_depth;
        return nlohmann::detail::json_sax_dom_parser<Json>::end_array();
    }
    template <class Exception> bool parse_error(std::size_t, const std::string &, const Exception &e)
    {
        m_error = QString::fromUtf8(e.what());
        return false;
    }

    bool tooDeep() const { return m_tooDeep; }
    QString error() const { return m_error; }

private:
    bool enter()
    {
        if (++m_depth <= m_maxDepth)
            return true;
        m_tooDeep = true;
        return false;
    }

    int m_maxDepth;
    int m_depth = 0;
    bool m_tooDeep = false;
    QString m_error;
};

} // namespace

bool BoundedJsonParser::parse(const QByteArray &bytes, nlohmann::json &out, QString &error) const
{
    Json document;
    DepthLimitedBuilder builder(document, m_maxDepth);
    const char *begin = bytes.constData();
    const bool ok = Json::sax_parse(begin, begin + bytes.size(), &builder);
    if (builder.tooDeep()) {
        error = QStringLiteral("nested deeper than %1 levels").arg(m_maxDepth);
    } else if (!ok || document.is_discarded()) {
        error = builder.error().isEmpty() ? QStringLiteral("not valid JSON") : builder.error();
    } else {
        out = std::move(document);
        return true;
    }
    out = Json(Json::value_t::discarded);
    return false;
}

} // namespace VCam
