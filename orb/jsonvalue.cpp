#include "jsonvalue.h"

namespace Orb {

const JsonValue *JsonValue::find(const std::string &key) const
{
    for (const auto &member : members) {
        if (member.first == key)
            return &member.second;
    }
    return nullptr;
}

const char *JsonValue::typeName(Type type)
{
    switch (type) {
    case Type::Null:
        return "null";
    case Type::Bool:
        return "a boolean";
    case Type::Number:
        return "a number";
    case Type::String:
        return "a string";
    case Type::Array:
        return "an array";
    case Type::Object:
        return "an object";
    }
    return "unknown";
}

} // namespace Orb
