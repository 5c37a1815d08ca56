#include "jsonlookup.h"

namespace VCam {

const nlohmann::json *JsonLookup::find(const char *key, bool (nlohmann::json::*isType)() const noexcept,
                                       const char *typeName)
{
    if (!m_ok)
        return nullptr;
    const auto it = m_object.find(key);
    if (it == m_object.end() || it->is_null())
        return nullptr;
    if (!((*it).*isType)()) {
        fail(key, typeName);
        return nullptr;
    }
    return &*it;
}

void JsonLookup::fail(const char *key, const char *typeName)
{
    m_ok = false;
    if (m_error)
        *m_error = std::string("member \"") + key + "\" is not " + typeName;
}

void JsonLookup::read(const char *key, QString &out)
{
    if (const auto *value = find(key, &nlohmann::json::is_string, "a string"))
        out = QString::fromStdString(value->get<std::string>());
}

void JsonLookup::read(const char *key, qint64 &out)
{
    if (const auto *value = find(key, &nlohmann::json::is_number_integer, "an integer"))
        out = value->get<qint64>();
}

const nlohmann::json *JsonLookup::object(const char *key)
{
    return find(key, &nlohmann::json::is_object, "an object");
}

} // namespace VCam
