#include <tarvo/core/ckformat.h>

#include <tarvo/platform/framework/format.h>

CkFormat::CkFormat(const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const tarvo::framework::ArgumentsEnd end(arguments);
    m_text.FormatV(format, arguments);
}
