#include <tarvo/core/ckexception.h>

#include <tarvo/core/ckformat.h>
#include <tarvo/core/ckloglistenermanager.h>
#include <tarvo/core/detail/ckrttiregistration.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/streams/ckstreamwriteascii.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

namespace
{
/// How many reports may be under way on one thread, each raised by a listener of the one before. Deeper ones are
/// dropped.
constexpr int maximumReportDepth = 4;
constinit thread_local int t_reportDepth = 0;

/// Where a dying exception leaves its history to the destructor that started on this thread, see `~CkException`.
constinit thread_local std::vector<CkException::History>* t_leftHistories = nullptr;

bool leaveHistory(CkException::History& history) noexcept
try
{
    if (t_leftHistories == nullptr)
        return false;
    t_leftHistories->push_back(std::move(history));
    return true;
}
catch (const std::bad_alloc&)
{
    return false;
}

/// What `make` gives, or an empty history where it fails: what goes wrong with the cause must not replace the error
/// itself.
template <class Make>
CkException::History historyOr(Make make) noexcept
try
{
    return make();
}
catch (...)
{
    tarvo::framework::discardException();
    return nullptr;
}

/// A copy of `previous` as an object of its class; empty when that class has no clone function.
CkException::History cloneOf(const CkException& previous) noexcept
{
    return historyOr(
        [&previous]() -> CkException::History
        {
            const CkRTTI& rtti = previous.GetRTTI();
            const auto registration = CkRTTIRegistration::Find(rtti.GetName());
            // Another class of that name would clone an object that is none of its own.
            if (registration.record != &rtti || registration.clone == nullptr)
                return nullptr;
            return static_cast<const CkException*>(registration.clone(&previous));
        });
}

CkException::History describe(const std::exception& previous) noexcept
{
    return historyOr([&previous]() -> CkException::History
                     { return new CkException(CK_T("std::exception (") + CString(previous.what()) + CK_T(")"), 0); });
}

/// 32-bit FNV-1 over the low byte of each unit.
std::uint32_t hashOf(const CString& text) noexcept
{
    std::uint32_t hash = 0x811C9DC5u;
    for (const WCHAR unit : text)
        hash = (hash * 0x01000193u) ^ (static_cast<std::uint32_t>(unit) & 0xFFu);
    return hash;
}
} // namespace

CkException::CkException(const CString& fileName, unsigned int codeLine, History history, const CkRTTI& rtti)
    : m_fileName(fileName), m_codeLine(codeLine), m_threadId(GetCurrentThreadId()), m_history(std::move(history))
{
    dumpLog(rtti);
}

CkException::CkException(const CString& fileName, unsigned int codeLine)
    : CkException(fileName, codeLine, History(), RTTI)
{
}

CkException::CkException(const CString& fileName, unsigned int codeLine, const CkException& previous)
    : CkException(fileName, codeLine, cloneOf(previous), RTTI)
{
}

CkException::CkException(const CString& fileName, unsigned int codeLine, const std::exception& previous)
    : CkException(fileName, codeLine, describe(previous), RTTI)
{
}

CkException::CkException(const CString& fileName, unsigned int codeLine, const CkRTTI& rtti)
    : CkException(fileName, codeLine, History(), rtti)
{
}

CkException::CkException(const CString& fileName, unsigned int codeLine, const CkException& previous,
                         const CkRTTI& rtti)
    : CkException(fileName, codeLine, cloneOf(previous), rtti)
{
}

CkException::CkException(const CString& fileName, unsigned int codeLine, const std::exception& previous,
                         const CkRTTI& rtti)
    : CkException(fileName, codeLine, describe(previous), rtti)
{
}

CkException::CkException(const CkException&) = default;
CkException& CkException::operator=(const CkException&) = default;

// A chain of causes is taken down by the destructor of its first element, in a loop: each exception that dies inside
// the loop leaves its own history to it instead of releasing that itself. An element that others still hold does not
// die, and ends the loop.
CkException::~CkException()
{
    if (!m_history || leaveHistory(m_history))
        return;
    std::vector<History> left;
    std::vector<History>* const outer = std::exchange(t_leftHistories, &left);
    m_history.Reset();
    while (!left.empty())
    {
        const History next = std::move(left.back());
        left.pop_back();
    }
    t_leftHistories = outer;
}

const CkRTTI& CkException::GetRTTI() const
{
    return RTTI;
}

CkException* CkException::Clone(const CkException& exception)
{
    return new CkException(exception);
}

CString CkException::GetErrorCode() const
{
    CString text = m_fileName;
    const int last = text.ReverseFind(CK_T('\\'));
    if (last >= 0)
    {
        const int parent = text.Left(last).ReverseFind(CK_T('\\'));
        text = text.Mid(parent + 1);
    }
    const std::uint32_t hash = hashOf(text.MakeLower());
    return CkFormat(CK_T("%03x %03x.%03x"), hash >> 12 & 0xFFFu, hash & 0xFFFu, m_codeLine);
}

void CkException::dumpException(CkStreamWriteASCII& stream) const
{
    stream << m_fileName << CK_T("(") << m_codeLine << CK_T("): EXCEPTION ") << GetClassNameW() << CK_T("\n");
}

void CkException::dump(CkStreamWriteASCII& stream) const
{
    dumpException(stream);
    for (const CkException* cause = m_history.Get(); cause != nullptr; cause = cause->m_history.Get())
    {
        stream << CK_T("\t");
        cause->dumpException(stream);
    }
}

void CkException::dumpLog(const CkRTTI& rtti) const noexcept
{
    // No manager is made for the report: without one nobody listens, and making it takes the outermost lock, while
    // exceptions are constructed under any.
    CkLogListenerManager* const manager = CkLogListenerManager::FindInstance();
    if (manager == nullptr || t_reportDepth == maximumReportDepth)
        return;
    ++t_reportDepth;
    try
    {
        manager->NotifyListeners(CkLogListenerManager::eEventException, m_fileName, m_codeLine, rtti.GetName());
    }
    catch (...)
    {
        // The error under construction matters more than what went wrong with its report.
        tarvo::framework::discardException();
    }
    --t_reportDepth;
}

CkExceptionPreconditionViolation::CkExceptionPreconditionViolation(const CString& fileName, unsigned int codeLine)
    : CkException(fileName, codeLine, RTTI)
{
}

CkExceptionPreconditionViolation::CkExceptionPreconditionViolation(const CString& fileName, unsigned int codeLine,
                                                                   const CkException& previous)
    : CkException(fileName, codeLine, previous, RTTI)
{
}

const CkRTTI& CkExceptionPreconditionViolation::GetRTTI() const
{
    return RTTI;
}

CkExceptionPreconditionViolation*
CkExceptionPreconditionViolation::Clone(const CkExceptionPreconditionViolation& exception)
{
    return new CkExceptionPreconditionViolation(exception);
}

CkExceptionCondition::CkExceptionCondition(const CString& fileName, unsigned int codeLine)
    : CkException(fileName, codeLine, RTTI)
{
}

CkExceptionCondition::CkExceptionCondition(const CString& fileName, unsigned int codeLine, const CkException& previous)
    : CkException(fileName, codeLine, previous, RTTI)
{
}

const CkRTTI& CkExceptionCondition::GetRTTI() const
{
    return RTTI;
}

CkExceptionCondition* CkExceptionCondition::Clone(const CkExceptionCondition& exception)
{
    return new CkExceptionCondition(exception);
}

CkExceptionOutOfMemory::CkExceptionOutOfMemory(const CString& fileName, unsigned int codeLine)
    : CkException(fileName, codeLine, RTTI)
{
}

CkExceptionOutOfMemory::CkExceptionOutOfMemory(const CString& fileName, unsigned int codeLine,
                                               const CkException& previous)
    : CkException(fileName, codeLine, previous, RTTI)
{
}

const CkRTTI& CkExceptionOutOfMemory::GetRTTI() const
{
    return RTTI;
}

CkExceptionOutOfMemory* CkExceptionOutOfMemory::Clone(const CkExceptionOutOfMemory& exception)
{
    return new CkExceptionOutOfMemory(exception);
}

CkExceptionStream::CkExceptionStream(const CString& fileName, unsigned int codeLine)
    : CkException(fileName, codeLine, RTTI)
{
}

CkExceptionStream::CkExceptionStream(const CString& fileName, unsigned int codeLine, const CkException& previous)
    : CkException(fileName, codeLine, previous, RTTI)
{
}

const CkRTTI& CkExceptionStream::GetRTTI() const
{
    return RTTI;
}

CkExceptionStream* CkExceptionStream::Clone(const CkExceptionStream& exception)
{
    return new CkExceptionStream(exception);
}

CkExceptionWrongFileVersion::CkExceptionWrongFileVersion(const CString& fileName, unsigned int codeLine)
    : CkException(fileName, codeLine, RTTI)
{
}

CkExceptionWrongFileVersion::CkExceptionWrongFileVersion(const CString& fileName, unsigned int codeLine,
                                                         const CkException& previous)
    : CkException(fileName, codeLine, previous, RTTI)
{
}

const CkRTTI& CkExceptionWrongFileVersion::GetRTTI() const
{
    return RTTI;
}

CkExceptionWrongFileVersion* CkExceptionWrongFileVersion::Clone(const CkExceptionWrongFileVersion& exception)
{
    return new CkExceptionWrongFileVersion(exception);
}

CString tarvo::detail::sourceFile(std::string_view path)
{
    std::vector<std::string_view> components;
    while (!path.empty())
    {
        const std::size_t length = std::min(path.find_first_of("/\\"), path.size());
        const std::string_view component = path.substr(0, length);
        path.remove_prefix(std::min(length + 1, path.size()));
        if (component == ".." && !components.empty())
            components.pop_back();
        else if (!component.empty() && component != "." && component != "..")
            components.push_back(component);
    }
    if (components.empty())
        return CString();
    const std::size_t dot = components.back().rfind('.');
    const CString stem = CString::FromUtf8(components.back().substr(0, dot != 0 ? dot : std::string_view::npos));
    return components.size() == 1 ? stem : CString::FromUtf8(components.end()[-2]) + CK_T("\\") + stem;
}
