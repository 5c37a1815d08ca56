#pragma once

#include "jsonvalue.h"

#include <string>

namespace Orb {

// A small strict JSON parser (RFC 8259) that records line numbers.
class JsonParser
{
public:
    explicit JsonParser(const std::string &text) : m_text(text) {}

    // Parses the whole text. On failure returns false and fills errorLine and
    // errorText.
    bool parse(JsonValue &out);

    int errorLine() const { return m_errorLine; }
    const std::string &errorText() const { return m_errorText; }

private:
    bool parseValue(JsonValue &out, int depth);
    bool parseObject(JsonValue &out, int depth);
    bool parseArray(JsonValue &out, int depth);
    bool parseString(std::string &out);
    bool parseNumber(JsonValue &out);
    bool parseLiteral(const char *word);
    bool appendEscape(std::string &out);
    void skipSpace();
    bool fail(const std::string &reason);
    char peek() const { return m_pos < m_text.size() ? m_text[m_pos] : '\0'; }

    const std::string &m_text;
    size_t m_pos = 0;
    int m_line = 1;
    int m_errorLine = 0;
    std::string m_errorText;
};

} // namespace Orb
