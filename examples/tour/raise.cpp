// Raise and report an error with its history: each level adds what it knows, and the cause is not lost.

#include <tarvo/tarvo.h>

#include <iostream>

/// The settings cannot be used.
class SettingsException : public CkException
{
public:
    SettingsException(const CString& fileName, unsigned int codeLine, const CkException& previous)
        : CkException(fileName, codeLine, previous, RTTI)
    {
    }

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static SettingsException* Clone(const SettingsException& exception) { return new SettingsException(exception); }
};

const CkRTTI SettingsException::RTTI(CK_T("SettingsException"), CkException::RTTI, nullptr,
                                     &CloneByFactory<SettingsException>);

int main()
try
{
    try
    {
        throw CkExceptionStream(CK_SOURCE_FILE, __LINE__);
    }
    catch (const CkException& exception)
    {
        throw SettingsException(CK_SOURCE_FILE, __LINE__, exception);
    }
}
catch (const CkException& exception)
{
    std::cout << "error " << exception.GetErrorCode().ToUtf8() << '\n' << exception.ToString().ToUtf8();
    const CkException::History cause = exception.GetHistory();
    if (cause && cause->IsKindOf(CkExceptionStream::RTTI))
        std::cout << "the file may be damaged\n";
}

// Prints:
//   error d41 eff.021
//   tour\raise(33): EXCEPTION SettingsException
//       tour\raise(29): EXCEPTION CkExceptionStream
//   the file may be damaged
