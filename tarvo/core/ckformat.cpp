#include <tarvo/core/ckformat.h>

#include <cstdarg>

CkFormat::CkFormat(const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    try
    {
        m_text.FormatV(format, arguments);
    }
    catch (...)
    {
        va_end(arguments);
        throw;
    }
    va_end(arguments);
}
