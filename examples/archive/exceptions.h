#pragma once

#include <tarvo/tarvo.h>

namespace archive
{
/// The exit codes of the program.
enum ExitCode
{
    exitDone = 0,
    exitFailed = 1,  ///< Wrong usage, or something could not be read or written.
    exitDamaged = 2, ///< The archive is damaged, or not fit to be unpacked.
    exitInterrupted = 130
};

/// An error with a text for the user and an exit code: here what the user or the system is to blame for.
class ArchiveException : public CkException
{
public:
    ArchiveException(const CString& fileName, unsigned int codeLine, const CString& text);

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static ArchiveException* Clone(const ArchiveException& exception) { return new ArchiveException(exception); }

    const CString& GetText() const noexcept { return m_text; }
    virtual ExitCode GetExitCode() const { return exitFailed; }

protected:
    ArchiveException(const CString& fileName, unsigned int codeLine, const CString& text, const CkRTTI& rtti);
    ArchiveException(const CString& fileName, unsigned int codeLine, const CString& text, const CkException& previous,
                     const CkRTTI& rtti);

private:
    CString m_text;
};

/// What is read is no archive, or not what was written. With a cause, the text says which record is meant, and the
/// cause what is wrong with it.
class DamageException : public ArchiveException
{
public:
    DamageException(const CString& fileName, unsigned int codeLine, const CString& text);
    DamageException(const CString& fileName, unsigned int codeLine, const CString& text, const CkException& previous);

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static DamageException* Clone(const DamageException& exception) { return new DamageException(exception); }

    ExitCode GetExitCode() const override { return exitDamaged; }
};

/// The user has asked the program to stop.
class InterruptException : public ArchiveException
{
public:
    InterruptException(const CString& fileName, unsigned int codeLine);

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static InterruptException* Clone(const InterruptException& exception) { return new InterruptException(exception); }

    ExitCode GetExitCode() const override { return exitInterrupted; }
};

/// The text for the user: what happened, and for damage also the class and the error code of its cause.
CString describe(const CkException& exception);
} // namespace archive
