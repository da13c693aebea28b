#include "JsonWriter.h"

#include <cmath>
#include <cstdio>

namespace cli
{

void JsonWriter::BeforeValue()
{
    if (m_afterKey)
    {
        m_afterKey = false;
        return;
    }
    if (!m_first.empty())
    {
        if (!m_first.back())
            m_text += ',';
        m_first.back() = false;
    }
}

JsonWriter& JsonWriter::Open(char bracket)
{
    BeforeValue();
    m_text += bracket;
    m_first.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::Close(char bracket)
{
    m_text += bracket;
    m_first.pop_back();
    return *this;
}

JsonWriter& JsonWriter::Key(const std::string& name)
{
    String(name);
    m_text += ':';
    m_afterKey = true;
    return *this;
}

JsonWriter& JsonWriter::String(const std::string& value)
{
    BeforeValue();
    m_text += '"';
    for (const char c : value)
    {
        const unsigned char u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\')
            m_text += std::string("\\") + c;
        else if (c == '\n')
            m_text += "\\n";
        else if (c == '\t')
            m_text += "\\t";
        else if (u < 0x20 || u == 0x7F)
        {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", u);
            m_text += escaped;
        }
        else
            m_text += c;
    }
    m_text += '"';
    return *this;
}

JsonWriter& JsonWriter::Number(uint64_t value)
{
    BeforeValue();
    m_text += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Number(double value)
{
    if (!std::isfinite(value))
        return Null();
    BeforeValue();
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", value);
    m_text += text;
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value)
{
    BeforeValue();
    m_text += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Null()
{
    BeforeValue();
    m_text += "null";
    return *this;
}

} // namespace cli
