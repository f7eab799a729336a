// The process ends with the exit code that is its argument although singletons, static objects and running threads
// still use the library.

#include <tarvo/tarvo.h>

#include <support/dynamiclibrary.h>

#include <cstdlib>
#include <string_view>
#include <thread>

namespace
{
int g_steps = 0;

[[noreturn]] void fail(int code)
{
    std::_Exit(code);
}

class Earlier : public CkSingleton<Earlier>
{
public:
    ~Earlier()
    {
        if (++g_steps != 2)
            fail(11);
    }
};

class Later : public CkSingleton<Later>
{
public:
    ~Later()
    {
        if (++g_steps != 1 || Earlier::HasInstance() != 1)
            fail(12);
        // Gone as far as others can see: made anew, and never destroyed.
        static bool again = false;
        if (!again)
        {
            again = true;
            GetInstance();
        }
    }
};

/// Constructed before the singletons' first use, so destroyed after all of them.
struct Last
{
    ~Last()
    {
        if (g_steps != 2)
            fail(13);
        const CkCriticalSectionAuto guard(GetCriticalSectionSingleton());
        Later::GetInstance();
        try
        {
            throw CkExceptionStream(CK_SOURCE_FILE, 1, CkException(CK_SOURCE_FILE, 2));
        }
        catch (const CkException& exception)
        {
            if (exception.GetErrorCode().IsEmpty() || exception.ToString().IsEmpty())
                fail(14);
        }
    }
};

/// So slow that the end finds a thread in it, with the lock of all reports.
void listen(CkLogListenerManager::EEventType, const CString& fileName, unsigned int codeLine, const CString& message)
{
    CString text;
    for (int i = 0; i < 100; ++i)
        text.Format(CK_T("%s(%d): %s"), fileName.GetString(), codeLine, message.GetString());
}

void workForEver(CkCriticalSection& section)
{
    for (;;)
    {
        const CkCriticalSectionAuto guard(section);
        try
        {
            throw CkExceptionStream(CK_SOURCE_FILE, 3, CkException(CK_SOURCE_FILE, 4));
        }
        catch (const CkException&)
        {
        }
        const CkSmartPointer<CkException> shared(new CkException(CK_SOURCE_FILE, 5));
    }
}
} // namespace

int main(int, char** arguments)
{
    static Last last;
    static CkCriticalSection section(10);
    Earlier::GetInstance();
    Later::GetInstance();
    CkLogListenerManager::GetInstance().RegisterListener(CkLogListenerManager::eEventException, &listen);
    if (dynamiclibrary::load("tarvo_plugin_late") == nullptr)
        fail(15);
    for (int i = 0; i < 3; ++i)
        std::thread(workForEver, std::ref(section)).detach();
    for (int i = 0; i < 100; ++i)
        const CkCriticalSectionAuto guard(section);
    std::exit(std::atoi(arguments[1]));
}
