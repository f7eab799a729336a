#include <tarvo/core/cklatesterror.h>

#include <memory>

namespace
{
struct FreeLocal
{
    void operator()(WCHAR* text) const noexcept { LocalFree(text); }
};

/// Puts the thread's last error back at the end.
class KeepLastError
{
public:
    explicit KeepLastError(DWORD number) noexcept : m_number(number) {}
    KeepLastError(const KeepLastError&) = delete;
    KeepLastError& operator=(const KeepLastError&) = delete;
    ~KeepLastError() { SetLastError(m_number); }

private:
    const DWORD m_number;
};

/// The user's default language.
constexpr DWORD neutralLanguage = 0x400;
} // namespace

void CkLatestError::Update()
{
    const DWORD number = GetLastError();
    const KeepLastError keep(number);
    WCHAR* buffer = nullptr;
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, number,
                                        neutralLanguage, reinterpret_cast<WCHAR*>(&buffer), 0, nullptr);
    const std::unique_ptr<WCHAR, FreeLocal> owner(buffer);
    // A text with inserts, which nobody fills here, fails and leaves the buffer as it was.
    CString message(length != 0 ? buffer : nullptr, static_cast<int>(length));
    message.Trim();
    m_number = number;
    m_message = std::move(message);
}
