#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckreferencecountedclass.h>
#include <tarvo/core/ckrtti.h>
#include <tarvo/core/cksmartpointer.h>
#include <tarvo/platform/framework/cstring.h>
#include <tarvo/streams/ckidumpable.h>

#include <concepts>
#include <exception>
#include <string_view>
#include <utility>

class CkStreamWriteASCII;

/// The root of the library's errors: where and on which thread it was raised, and what it was caused by.
///
/// Thrown by value, and caught as its own class or any base. Constructing one reports it to the log listeners, event
/// type 4 and the class name as message; copying does not. Nothing that happens during the report reaches the
/// constructor's caller, and a report that keeps leading to further ones is cut off at a small depth.
///
/// Threads: an exception is for one thread at a time. Copies share the history, which never changes.
/// Lifetime: the history is a clone of the cause and lives as long as an exception that holds it. A chain of any length
/// is destroyed without recursion.
/// Failure: a cause whose class has no clone function, or cannot be cloned, leaves the history empty. Allocation may
/// fail as the text's does.
class TARVO_API CkException : public CkReferenceCountedClass<CkException, 0>, public CkIDumpable<1>
{
public:
    using History = CkSmartPointer<const CkException>;

    /// `fileName` and `codeLine` name the raising site; a client's own site passes `CK_SOURCE_FILE` and `__LINE__`.
    CkException(const CString& fileName, unsigned int codeLine);
    CkException(const CString& fileName, unsigned int codeLine, const CkException& previous);

    /// The history is a CkException of the file name "std::exception (" + `previous.what()` + ")" and line 0, which is
    /// reported first.
    CkException(const CString& fileName, unsigned int codeLine, const std::exception& previous);

    /// Copying and assigning share the history; the reference count is the object's own.
    CkException(const CkException&);
    CkException& operator=(const CkException&);
    ~CkException() override;

    static const CkRTTI RTTI;
    virtual const CkRTTI& GetRTTI() const;
    bool Is(const CkRTTI& rtti) const { return GetRTTI().Is(rtti); }
    bool IsKindOf(const CkRTTI& rtti) const { return GetRTTI().IsKindOf(rtti); }
    const CString& GetClassNameW() const { return GetRTTI().GetName(); }
    static CkException* Clone(const CkException& exception);

    const CString& GetFilename() const noexcept { return m_fileName; }
    unsigned int GetCodeLine() const noexcept { return m_codeLine; }

    /// The id of the thread that constructed the exception, or the one that it is a copy of.
    unsigned int GetThreadID() const noexcept { return m_threadId; }

    /// The cause; empty when there is none.
    History GetHistory() const noexcept { return m_history; }

    /// A short code that one raising site keeps across machines and builds: 24 bits of the 32-bit FNV-1 hash (G.
    /// Fowler, L. C. Noll, K.-P. Vo) of the last two components of the file name in lower case, and the line, as
    /// "%03x %03x.%03x".
    CString GetErrorCode() const;

protected:
    /// The clone function for the record of a class `E` that derives from CkException and has `E::Clone`. Takes and
    /// gives pointers to CkException, whatever the place of that base in `E`.
    template <class E>
    static void* CloneByFactory(const void* exception)
    {
        static_assert(std::same_as<decltype(E::Clone(std::declval<const E&>())), E*>, "E needs a Clone of its own");
        const auto* const original = static_cast<const CkException*>(exception);
        return static_cast<CkException*>(E::Clone(static_cast<const E&>(*original)));
    }

    /// As the public three, for subclasses: the report names the class of `rtti`.
    CkException(const CString& fileName, unsigned int codeLine, const CkRTTI& rtti);
    CkException(const CString& fileName, unsigned int codeLine, const CkException& previous, const CkRTTI& rtti);
    CkException(const CString& fileName, unsigned int codeLine, const std::exception& previous, const CkRTTI& rtti);

    /// Writes this exception without its history, as one line.
    virtual void dumpException(CkStreamWriteASCII& stream) const;

    /// Writes this exception and then its history, one line each, those of the history behind a tab.
    void dump(CkStreamWriteASCII& stream) const override;

private:
    CkException(const CString& fileName, unsigned int codeLine, History history, const CkRTTI& rtti);

    /// Reports the exception as one of the class of `rtti`.
    void dumpLog(const CkRTTI& rtti) const noexcept;

    CString m_fileName;
    unsigned int m_codeLine;
    unsigned int m_threadId;
    History m_history;
};

/// A call broke a rule of the library.
class TARVO_API CkExceptionPreconditionViolation : public CkException
{
public:
    CkExceptionPreconditionViolation(const CString& fileName, unsigned int codeLine);
    CkExceptionPreconditionViolation(const CString& fileName, unsigned int codeLine, const CkException& previous);

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    static CkExceptionPreconditionViolation* Clone(const CkExceptionPreconditionViolation& exception);
};

/// A contract condition failed.
class TARVO_API CkExceptionCondition : public CkException
{
public:
    CkExceptionCondition(const CString& fileName, unsigned int codeLine);
    CkExceptionCondition(const CString& fileName, unsigned int codeLine, const CkException& previous);

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    static CkExceptionCondition* Clone(const CkExceptionCondition& exception);
};

/// Memory could not be had.
class TARVO_API CkExceptionOutOfMemory : public CkException
{
public:
    CkExceptionOutOfMemory(const CString& fileName, unsigned int codeLine);
    CkExceptionOutOfMemory(const CString& fileName, unsigned int codeLine, const CkException& previous);

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    static CkExceptionOutOfMemory* Clone(const CkExceptionOutOfMemory& exception);
};

/// Data that is read ended early or is not what it should be.
class TARVO_API CkExceptionStream : public CkException
{
public:
    CkExceptionStream(const CString& fileName, unsigned int codeLine);
    CkExceptionStream(const CString& fileName, unsigned int codeLine, const CkException& previous);

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    static CkExceptionStream* Clone(const CkExceptionStream& exception);
};

/// A stored record has a version that its reader does not accept.
class TARVO_API CkExceptionWrongFileVersion : public CkException
{
public:
    CkExceptionWrongFileVersion(const CString& fileName, unsigned int codeLine);
    CkExceptionWrongFileVersion(const CString& fileName, unsigned int codeLine, const CkException& previous);

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    static CkExceptionWrongFileVersion* Clone(const CkExceptionWrongFileVersion& exception);
};

namespace tarvo::detail
{
/// The last two components of a path, with "." and ".." resolved, without the extension and with a backslash between.
TARVO_API CString sourceFile(std::string_view path);
} // namespace tarvo::detail

/// Names the source file that it stands in as "folder\stem", the same on every machine and whatever the folder of the
/// build, as long as the compiler is given at least the file's folder. For the file name of an exception.
#define CK_SOURCE_FILE ::tarvo::detail::sourceFile(__FILE__)
