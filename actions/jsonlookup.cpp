#include "jsonlookup.h"

namespace VCam {

const nlohmann::json *JsonLookup::find(const char *key, glint::json::Kind kind)
{
    if (!m_ok)
        return nullptr;
    const glint::json::Member member = glint::json::member(m_object, key, kind);
    if (!member.value && !member.absent) {
        m_ok = false;
        if (m_error)
            *m_error = std::string("member \"") + key + "\" is not " + glint::json::kindName(kind);
    }
    return member.value;
}

void JsonLookup::read(const char *key, QString &out)
{
    if (const auto *value = find(key, glint::json::Kind::String))
        out = QString::fromStdString(value->get<std::string>());
}

void JsonLookup::read(const char *key, qint64 &out)
{
    if (const auto *value = find(key, glint::json::Kind::Integer))
        out = value->get<qint64>();
}

const nlohmann::json *JsonLookup::object(const char *key)
{
    return find(key, glint::json::Kind::Object);
}

} // namespace VCam
