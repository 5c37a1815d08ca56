#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Orb {

// A parsed JSON value that remembers the line it started on, so that lens
// load errors can point authors at the right place in their manifest.
class JsonValue
{
public:
    enum class Type { Null, Bool, Number, String, Array, Object };

    Type type = Type::Null;
    int line = 0;
    bool boolean = false;
    double number = 0.0;
    std::string string;
    std::vector<JsonValue> items;
    std::vector<std::pair<std::string, JsonValue>> members;

    bool isNull() const { return type == Type::Null; }
    bool isNumber() const { return type == Type::Number; }
    bool isString() const { return type == Type::String; }
    bool isArray() const { return type == Type::Array; }
    bool isObject() const { return type == Type::Object; }

    // The member of an object with the given key, or null when absent.
    const JsonValue *find(const std::string &key) const;

    static const char *typeName(Type type);
};

} // namespace Orb
