#include <tarvo/platform/framework/cexception.h>

#include <new>

CException::CException(bool autoDelete) noexcept : m_autoDelete(autoDelete) {}

CException::~CException() = default;

void CException::Delete()
{
    if (m_autoDelete)
        delete this;
}

CMemoryException::CMemoryException(bool autoDelete) noexcept : CException(autoDelete) {}

CMemoryException::~CMemoryException() = default;

void AfxThrowMemoryException()
{
    // Never destroyed: destructors of other static objects may still run out of memory.
    alignas(CMemoryException) static unsigned char storage[sizeof(CMemoryException)];
    static auto* const exception = ::new (storage) CMemoryException(false);
    throw exception;
}

void tarvo::framework::discardException() noexcept
{
    try
    {
        throw;
    }
    catch (CException* exception)
    {
        exception->Delete();
    }
    catch (...)
    {
        // An object that was thrown by value ends with its handler.
    }
}
