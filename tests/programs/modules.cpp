// Several modules share one library, one instance of a singleton and one record of a class, and throw across their
// borders.

#include <libraries/shared.h>
#include <support/dynamiclibrary.h>

#include <cstdio>

namespace
{
int failures = 0;

void expect(bool condition, const char* what)
{
    if (!condition)
    {
        std::printf("failed: %s\n", what);
        ++failures;
    }
}
} // namespace

int main()
{
    void* const module = dynamiclibrary::load("tarvo_plugin_user");
    if (module == nullptr)
        return 2;
    auto* const singleton = dynamiclibrary::find<SharedSingleton*()>(module, "singleton");
    auto* const exceptionRecord = dynamiclibrary::find<const CkRTTI*()>(module, "exceptionRecord");
    auto* const raiseShared = dynamiclibrary::find<void()>(module, "raiseShared");
    auto* const raiseMemory = dynamiclibrary::find<void()>(module, "raiseMemory");

    expect(SharedSingleton::HasInstance() == 0, "no instance before the first request");
    expect(singleton() == &SharedSingleton::GetInstance(), "one instance for all modules");
    expect(exceptionRecord() == &CkException::RTTI, "one record for all modules");
    bool caught = false;
    try
    {
        raiseShared();
    }
    catch (const CkExceptionCondition& exception)
    {
        caught = true;
        const auto history = exception.GetHistory();
        expect(history && history->Is(SharedException::RTTI), "the history has the class of the other module");
        expect(dynamic_cast<const SharedException*>(history.Get()) != nullptr, "and its C++ type");
        expect(history && history->IsKindOf(CkExceptionStream::RTTI), "and its kind");
        expect(exception.GetFilename() == CK_T("plugins\\user"), "and its place");
    }
    expect(caught, "an exception is caught as its own class in another module");
    caught = false;
    try
    {
        raiseMemory();
    }
    catch (CException* exception)
    {
        caught = true;
        exception->Delete();
    }
    expect(caught, "an exception of the framework is caught in another module");

    // The module that asked first goes; the instance is the library's that defines it.
    dynamiclibrary::unload(module);
    expect(SharedSingleton::HasInstance() == 1, "the instance stays when the module that asked first goes");
    expect(SharedSingleton::GetInstance().uses == 1, "and is the same");
    return failures;
}
