#include "writers.h"

#include <cstddef>
#include <cstdio>
#include <utility>

namespace
{
std::string plain(const CString& text)
{
    return text.ToUtf8();
}

std::string quoted(const CString& text)
{
    std::string result = "\"";
    for (const char c : text.ToUtf8())
    {
        if (c == '"' || c == '\\')
        {
            result += {'\\', c};
        }
        else if (static_cast<unsigned char>(c) < 0x20)
        {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned int>(static_cast<unsigned char>(c)));
            result += escape;
        }
        else
        {
            result += c;
        }
    }
    return result + '"';
}

/// The texts one by one through `convert`, with ", " between them.
std::string joined(const Texts& texts, std::string (*convert)(const CString&))
{
    std::string result;
    for (const CString& text : texts)
        result += (result.empty() ? "" : ", ") + convert(text);
    return result;
}
} // namespace

void Writer::AddFlag(Name name, bool value)
{
    add(name, value ? "yes" : "no", value ? "true" : "false");
}

void Writer::AddNumber(Name name, unsigned __int64 value)
{
    const std::string digits = std::to_string(value);
    add(name, digits, digits);
}

void Writer::AddText(Name name, const CString& value)
{
    add(name, plain(value), quoted(value));
}

void Writer::AddTexts(Name name, const Texts& values)
{
    add(name, values.empty() ? "none" : joined(values, plain), '[' + joined(values, quoted) + ']');
}

void TextWriter::BeginSection(Name name, Section section)
{
    m_output += (m_output.empty() ? "" : "\n") + std::string(name.label) + '\n';
    m_section = section;
}

void TextWriter::add(Name name, const std::string& text, const std::string&)
{
    constexpr std::size_t column = 32;
    std::string line(m_indented ? 8 : 4, ' ');
    line += name.label;
    line.resize(column, ' ');
    m_output += line + text + '\n';
    m_indented = m_section == Section::list;
}

void JsonWriter::BeginSection(Name name, Section section)
{
    separate("\n    ");
    m_output += '"' + std::string(name.key) + "\": ";
    m_section = section;
    if (section == Section::list)
        m_output += '[';
    m_first = true;
}

void JsonWriter::BeginThing()
{
    if (m_section == Section::list)
        separate("\n        ");
    m_output += '{';
    m_first = true;
}

void JsonWriter::EndThing()
{
    m_output += " }";
    m_first = false;
}

void JsonWriter::EndSection()
{
    if (m_section == Section::list)
        m_output += "\n    ]";
    m_first = false;
}

void JsonWriter::add(Name name, const std::string&, const std::string& json)
{
    separate(" ");
    m_output += '"' + std::string(name.key) + "\": " + json;
}

/// Begins what comes next in the same list or object.
void JsonWriter::separate(const char* lineBreak)
{
    if (!std::exchange(m_first, false))
        m_output += ',';
    m_output += lineBreak;
}
