#include "jsonparser.h"

#include <cstdlib>

namespace Orb {

namespace {
constexpr int kMaxDepth = 64;

void appendUtf8(std::string &out, unsigned cp)
{
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}
} // namespace

bool JsonParser::parse(JsonValue &out)
{
    skipSpace();
    if (!parseValue(out, 0))
        return false;
    skipSpace();
    if (m_pos != m_text.size())
        return fail("unexpected text after the end of the document");
    return true;
}

bool JsonParser::fail(const std::string &reason)
{
    if (m_errorText.empty()) {
        m_errorLine = m_line;
        m_errorText = reason;
    }
    return false;
}

void JsonParser::skipSpace()
{
    while (m_pos < m_text.size()) {
        char c = m_text[m_pos];
        if (c == '\n')
            ++m_line;
        else if (c != ' ' && c != '\t' && c != '\r')
            return;
        ++m_pos;
    }
}

bool JsonParser::parseValue(JsonValue &out, int depth)
{
    if (depth > kMaxDepth)
        return fail("nesting is too deep");
    out.line = m_line;
    char c = peek();
    if (c == '{')
        return parseObject(out, depth);
    if (c == '[')
        return parseArray(out, depth);
    if (c == '"') {
        out.type = JsonValue::Type::String;
        return parseString(out.string);
    }
    if (c == '-' || (c >= '0' && c <= '9'))
        return parseNumber(out);
    if (c == 't' || c == 'f') {
        out.type = JsonValue::Type::Bool;
        out.boolean = c == 't';
        return parseLiteral(c == 't' ? "true" : "false");
    }
    if (c == 'n') {
        out.type = JsonValue::Type::Null;
        return parseLiteral("null");
    }
    if (c == '\0')
        return fail("unexpected end of the document");
    return fail(std::string("unexpected character '") + c + "'");
}

bool JsonParser::parseLiteral(const char *word)
{
    for (const char *p = word; *p; ++p, ++m_pos) {
        if (peek() != *p)
            return fail(std::string("expected '") + word + "'");
    }
    return true;
}

bool JsonParser::parseObject(JsonValue &out, int depth)
{
    out.type = JsonValue::Type::Object;
    ++m_pos;
    skipSpace();
    if (peek() == '}') {
        ++m_pos;
        return true;
    }
    while (true) {
        skipSpace();
        if (peek() != '"')
            return fail("expected a quoted key");
        std::string key;
        if (!parseString(key))
            return false;
        skipSpace();
        if (peek() != ':')
            return fail("expected ':' after key \"" + key + "\"");
        ++m_pos;
        skipSpace();
        JsonValue value;
        if (!parseValue(value, depth + 1))
            return false;
        out.members.emplace_back(std::move(key), std::move(value));
        skipSpace();
        if (peek() == ',') {
            ++m_pos;
            continue;
        }
        if (peek() == '}') {
            ++m_pos;
            return true;
        }
        return fail("expected ',' or '}' in an object");
    }
}

bool JsonParser::parseArray(JsonValue &out, int depth)
{
    out.type = JsonValue::Type::Array;
    ++m_pos;
    skipSpace();
    if (peek() == ']') {
        ++m_pos;
        return true;
    }
    while (true) {
        skipSpace();
        JsonValue value;
        if (!parseValue(value, depth + 1))
            return false;
        out.items.push_back(std::move(value));
        skipSpace();
        if (peek() == ',') {
            ++m_pos;
            continue;
        }
        if (peek() == ']') {
            ++m_pos;
            return true;
        }
        return fail("expected ',' or ']' in an array");
    }
}

bool JsonParser::appendEscape(std::string &out)
{
    char e = peek();
    ++m_pos;
    switch (e) {
    case '"':
    case '\\':
    case '/':
        out += e;
        return true;
    case 'b':
        out += '\b';
        return true;
    case 'f':
        out += '\f';
        return true;
    case 'n':
        out += '\n';
        return true;
    case 'r':
        out += '\r';
        return true;
    case 't':
        out += '\t';
        return true;
    case 'u': {
        if (m_pos + 4 > m_text.size())
            return fail("incomplete \\u escape");
        unsigned cp = std::strtoul(m_text.substr(m_pos, 4).c_str(), nullptr, 16);
        m_pos += 4;
        appendUtf8(out, cp);
        return true;
    }
    default:
        return fail("invalid escape in a string");
    }
}

bool JsonParser::parseString(std::string &out)
{
    ++m_pos;
    while (m_pos < m_text.size()) {
        char c = m_text[m_pos++];
        if (c == '"')
            return true;
        if (c == '\n')
            return fail("line break inside a string");
        if (c == '\\') {
            if (!appendEscape(out))
                return false;
        } else {
            out += c;
        }
    }
    return fail("unterminated string");
}

bool JsonParser::parseNumber(JsonValue &out)
{
    out.type = JsonValue::Type::Number;
    const char *start = m_text.c_str() + m_pos;
    char *end = nullptr;
    out.number = std::strtod(start, &end);
    if (end == start)
        return fail("invalid number");
    m_pos += static_cast<size_t>(end - start);
    return true;
}

} // namespace Orb
