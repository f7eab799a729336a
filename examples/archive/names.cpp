#include "names.h"

#include "platform.h"

namespace archive
{
std::vector<CString> splitStoredPath(const CString& path)
{
    std::vector<CString> parts;
    for (int start = 0; start < path.GetLength();)
    {
        const int slash = path.Find(CK_T('/'), start);
        const int end = slash < 0 ? path.GetLength() : slash;
        if (end > start)
            parts.push_back(path.Mid(start, end - start));
        start = end + 1;
    }
    return parts;
}

CString joinPath(const CString& folder, const CString& name)
{
    return folder.IsEmpty() ? name : folder + CK_T("/") + name;
}

CString makeStoredPath(const CString& path)
{
    std::vector<CString> kept;
    for (const CString& part : platform::splitPath(path))
    {
        if (part == CK_T(".."))
        {
            if (!kept.empty())
                kept.pop_back();
        }
        else if (part != CK_T("."))
            kept.push_back(part);
    }
    CString stored;
    for (const CString& part : kept)
        stored = joinPath(stored, part);
    return stored;
}

bool isStoredPath(const CString& path) noexcept
{
    for (int start = 0; start <= path.GetLength();)
    {
        const int slash = path.Find(CK_T('/'), start);
        const int end = slash < 0 ? path.GetLength() : slash;
        const int length = end - start;
        const bool isDot = length == 1 && path[start] == CK_T('.');
        const bool isDotDot = length == 2 && path[start] == CK_T('.') && path[start + 1] == CK_T('.');
        if (length == 0 || isDot || isDotDot)
            return false;
        start = end + 1;
    }
    return true;
}

std::string makePrintable(const CString& text)
{
    CString shown;
    for (const WCHAR* unit = text.begin(); unit != text.end(); ++unit)
    {
        const auto number = static_cast<unsigned int>(*unit);
        if (isHighSurrogate(*unit) && unit + 1 != text.end() && isLowSurrogate(unit[1]))
        {
            shown += *unit;
            shown += *++unit;
        }
        else if (number >= 0xDC80 && number <= 0xDCFF)
            shown += CkFormat(CK_T("\\x%02X"), number & 0xFF);
        else if (number < 0x20 || number == 0x7F || *unit == CK_T('\\'))
            shown += CkFormat(CK_T("\\x%02X"), number);
        else if ((number > 0x7F && number < 0xA0) || isHighSurrogate(*unit) || isLowSurrogate(*unit))
            shown += CkFormat(CK_T("\\u%04X"), number);
        else
            shown += *unit;
    }
    return shown.ToUtf8();
}
} // namespace archive
