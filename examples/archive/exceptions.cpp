#include "exceptions.h"

namespace archive
{
const CkRTTI ArchiveException::RTTI(CK_T("ArchiveException"), CkException::RTTI, nullptr,
                                    &CloneByFactory<ArchiveException>);
const CkRTTI DamageException::RTTI(CK_T("DamageException"), ArchiveException::RTTI, nullptr,
                                   &CloneByFactory<DamageException>);
const CkRTTI InterruptException::RTTI(CK_T("InterruptException"), ArchiveException::RTTI, nullptr,
                                      &CloneByFactory<InterruptException>);

ArchiveException::ArchiveException(const CString& fileName, unsigned int codeLine, const CString& text)
    : ArchiveException(fileName, codeLine, text, RTTI)
{
}

ArchiveException::ArchiveException(const CString& fileName, unsigned int codeLine, const CString& text,
                                   const CkRTTI& rtti)
    : CkException(fileName, codeLine, rtti), m_text(text)
{
}

ArchiveException::ArchiveException(const CString& fileName, unsigned int codeLine, const CString& text,
                                   const CkException& previous, const CkRTTI& rtti)
    : CkException(fileName, codeLine, previous, rtti), m_text(text)
{
}

DamageException::DamageException(const CString& fileName, unsigned int codeLine, const CString& text)
    : ArchiveException(fileName, codeLine, text, RTTI)
{
}

DamageException::DamageException(const CString& fileName, unsigned int codeLine, const CString& text,
                                 const CkException& previous)
    : ArchiveException(fileName, codeLine, text, previous, RTTI)
{
}

InterruptException::InterruptException(const CString& fileName, unsigned int codeLine)
    : ArchiveException(fileName, codeLine, CK_T("interrupted"), RTTI)
{
}

namespace
{
const ArchiveException* asOurs(const CkException& exception)
{
    return exception.IsKindOf(ArchiveException::RTTI) ? static_cast<const ArchiveException*>(&exception) : nullptr;
}
} // namespace

CString describe(const CkException& exception)
{
    const ArchiveException* const ours = asOurs(exception);
    if (ours != nullptr && ours->GetExitCode() != exitDamaged)
        return ours->GetText();
    CString text;
    const CkException::History history = exception.GetHistory();
    const CkException& cause = history ? *history : exception;
    if (ours != nullptr && history)
        text = ours->GetText() + CK_T(": ");
    text += cause.GetClassNameW() + CK_T(", error ") + cause.GetErrorCode();
    if (const ArchiveException* const known = asOurs(cause))
        text += CK_T(": ") + known->GetText();
    return text;
}
} // namespace archive
