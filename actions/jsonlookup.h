#pragma once

#include "jsonmember.h"

#include <QString>
#include <nlohmann/json.hpp>
#include <string>

namespace VCam {

// Typed lookups in backend JSON objects: a missing member (or null) leaves
// the default; a member of another type is an error that names the key.
class JsonLookup
{
public:
    JsonLookup(const nlohmann::json &object, std::string *error) : m_object(object), m_error(error) {}

    bool ok() const { return m_ok; }
    void read(const char *key, QString &out);
    void read(const char *key, qint64 &out);
    const nlohmann::json *object(const char *key);

private:
    const nlohmann::json *find(const char *key, glint::json::Kind kind);

    const nlohmann::json &m_object;
    std::string *m_error;
    bool m_ok = true;
};

} // namespace VCam
