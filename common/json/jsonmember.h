#pragma once

#include <nlohmann/json.hpp>

namespace glint::json {

// The JSON type a caller wants from an object member.
enum class Kind { String, Integer, Object };

// The result of looking up one member: `value` is set when the member has
// the wanted kind; `absent` tells a missing (or null) member apart from one
// of another type.
struct Member
{
    const nlohmann::json *value = nullptr;
    bool absent = true;
};

inline bool hasKind(const nlohmann::json &value, Kind kind)
{
    switch (kind) {
    case Kind::String:
        return value.is_string();
    case Kind::Integer:
        return value.is_number_integer();
    case Kind::Object:
        return value.is_object();
    }
    return false;
}

// The kind as error messages name it: "a string", "an integer", "an object".
inline const char *kindName(Kind kind)
{
    switch (kind) {
    case Kind::String:
        return "a string";
    case Kind::Integer:
        return "an integer";
    case Kind::Object:
        return "an object";
    }
    return "a value";
}

inline Member member(const nlohmann::json &object, const char *key, Kind kind)
{
    Member result;
    const auto it = object.find(key);
    if (it == object.end() || it->is_null())
        return result;
    result.absent = false;
    if (hasKind(*it, kind))
        result.value = &*it;
    return result;
}

} // namespace glint::json
