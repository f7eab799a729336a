// A client module that uses a library which the program uses as well.

#include <libraries/shared.h>

/// The instance as this module sees it.
extern "C" SharedSingleton* singleton()
{
    SharedSingleton& instance = SharedSingleton::GetInstance();
    ++instance.uses;
    return &instance;
}

extern "C" const CkRTTI* exceptionRecord()
{
    return &CkException::RTTI;
}

extern "C" void raiseShared()
{
    try
    {
        throw SharedException();
    }
    catch (const CkException& exception)
    {
        throw CkExceptionCondition(CK_SOURCE_FILE, 2, exception);
    }
}

extern "C" void raiseMemory()
{
    AfxThrowMemoryException();
}
