#pragma once

#include <tarvo/config.h>

/// The framework's exceptions, which are thrown and caught by pointer. A handler that does not pass one on ends it with
/// `Delete`.
class TARVO_API CException
{
public:
    /// `autoDelete` says that the object was made by `new` and that `Delete` frees it.
    explicit CException(bool autoDelete = true) noexcept;
    virtual ~CException();

    CException(const CException&) = delete;
    CException& operator=(const CException&) = delete;

    /// Frees an object on the heap; one that somebody else owns stays as it is.
    void Delete();

private:
    const bool m_autoDelete;
};

/// Memory is exhausted, or a text would become longer than any text may be.
class TARVO_API CMemoryException : public CException
{
public:
    explicit CMemoryException(bool autoDelete = true) noexcept;
    ~CMemoryException() override;
};

/// Throws a pointer to the one `CMemoryException` that is always there. Needs no heap and works at any time, while
/// static objects are made or destroyed as well. May be called from any thread.
[[noreturn]] TARVO_API void AfxThrowMemoryException();

namespace tarvo::framework
{
/// Frees the exception that is being handled where it was thrown as a pointer. Stands in every `catch (...)` that does
/// not pass the exception on; only there may it be called.
TARVO_API void discardException() noexcept;
} // namespace tarvo::framework
