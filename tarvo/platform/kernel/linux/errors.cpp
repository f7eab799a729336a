#include <tarvo/platform/kernel/linux/errortexts.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

constinit thread_local DWORD tarvo::kernel::t_lastError = 0;

namespace
{
DWORD fail(DWORD code) noexcept
{
    SetLastError(code);
    return 0;
}
} // namespace

DWORD FormatMessageW(DWORD flags, LPCVOID, DWORD messageId, DWORD, LPWSTR buffer, DWORD, va_list*) noexcept
{
    constexpr DWORD wanted = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
    if ((flags & wanted) != wanted || buffer == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    const std::u16string_view text = tarvo::kernel::errorText(messageId);
    if (text.empty())
        return fail(ERROR_MR_MID_NOT_FOUND);
    if ((flags & FORMAT_MESSAGE_IGNORE_INSERTS) == 0 && text.find(u'%') != std::u16string_view::npos)
        return fail(ERROR_INVALID_PARAMETER);

    constexpr std::u16string_view end = u"\r\n";
    const std::size_t length = text.size() + end.size();
    auto* const copy = static_cast<WCHAR*>(std::malloc((length + 1) * sizeof(WCHAR)));
    if (copy == nullptr)
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    *std::ranges::copy(end, std::ranges::copy(text, copy).out).out = 0;
    *reinterpret_cast<WCHAR**>(buffer) = copy;
    return static_cast<DWORD>(length);
}

HLOCAL LocalFree(HLOCAL memory) noexcept
{
    std::free(memory);
    return nullptr;
}
