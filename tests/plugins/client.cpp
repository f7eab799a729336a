// A client module with classes and singletons of its own, loaded and unloaded while the program runs.

#include <plugins/client.h>

#include <algorithm>
#include <memory>
#include <thread>

const CkRTTI PluginException::RTTI(CK_T("PluginException"), CkException::RTTI, nullptr,
                                   &CloneByFactory<PluginException>);
const CkRTTI PluginValue::RTTI(CK_T("PluginValue"), CkBaseType<short>::RTTI, &CreateByFactory<PluginValue>,
                               &CloneByFactory<PluginValue>);

namespace
{
class First : public CkSingleton<First>
{
public:
    ~First();
    char* order = nullptr;
};

class Second : public CkSingleton<Second>
{
public:
    ~Second();
};

First::~First()
{
    *order++ = '1';
    *order = 0;
}

Second::~Second()
{
    // The one first requested earlier is still there, and errors may still be raised.
    char*& order = First::GetInstance().order;
    try
    {
        throw CkException(CK_SOURCE_FILE, 2, PluginException());
    }
    catch (const CkException& exception)
    {
        *order++ = exception.GetHistory() ? '2' : '?';
    }
}
} // namespace

/// Whether the library is as it must be right after it was loaded: all its classes can be found by name, and nothing
/// was made that is made on first use.
extern "C" bool isFresh()
{
    const WCHAR* const names[] = {
        CK_T("CkExceptionCondition"),
        CK_T("CkExceptionOutOfMemory"),
        CK_T("CkStreamWriteASCII"),
        CK_T("CkStreamWriteASCIIString"),
        CK_T("CkStreamWriteASCIITrace"),
        CK_T("CkStreamWriteASCIITraceDiagnostic"),
        CK_T("CkStreamWriteBinaryByteCount"),
        CK_T("CkStreamRead"),
        CK_T("CkStreamReadBinary"),
        CK_T("CkStreamWrite"),
        CK_T("CkStreamWriteBinary"),
        CK_T("CkISerializable"),
        CK_T("CkException"),
        CK_T("CkExceptionPreconditionViolation"),
        CK_T("CkExceptionStream"),
        CK_T("CkExceptionWrongFileVersion"),
        CK_T("CkBaseType"),
        CK_T("CkBool"),
        CK_T("CkInt8"),
        CK_T("CkInt16"),
        CK_T("CkInt32"),
        CK_T("CkLong"),
        CK_T("CkInt64"),
        CK_T("CkUInt8"),
        CK_T("CkUInt16"),
        CK_T("CkUInt32"),
        CK_T("CkULong"),
        CK_T("CkUInt64"),
        CK_T("CkFloat32"),
        CK_T("CkFloat64"),
        CK_T("CkChar"),
        CK_T("CkString"),
        CK_T("CkPolyLineBase"),
    };
    const auto isFound = [](const WCHAR* name)
    {
        const CkRTTI* const record = CkRTTI::Find(name);
        return record != nullptr && record->GetName() == name;
    };
    // Each singleton of the library, and those of this module.
    return std::ranges::all_of(names, isFound) && CkLogListenerManager::HasInstance() == 0 &&
           CkPerformanceCounter::HasInstance() == 0 && CkDiagnosticsInterface::HasInstance() == 0 &&
           CkThreadPool::HasInstance() == 0 && First::HasInstance() == 0 && Second::HasInstance() == 0;
}

namespace
{
/// Events wake a thread, and have handles; the first timer makes the counter.
bool useEvents()
{
    CkTimer timer;
    timer.Start();
    CkArrayManaged<CkEvent, 0> events(2);
    std::thread setter(
        [&events]
        {
            for (CkEvent& event : events)
                event.Set();
        });
    const bool woken = CkEvent::WaitForMultipleEvents(events, INFINITE) == CkEvent::eWaitSignaled;
    setter.join();
    timer.Stop();
    return woken && CkPerformanceCounter::HasInstance() == 1;
}

class PluginTask : public CkTask
{
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override { throw CkExceptionStream(CK_SOURCE_FILE, 6); }
};

/// Workers run tasks whose code is this module's, and end before it goes.
bool usePool()
{
    CkThreadPool& pool = CkThreadPool::GetInstance();
    CkSmartPointer<CkTask> last;
    for (int i = 0; i < 10; ++i)
    {
        last = new PluginTask;
        if (!pool.AddTask(last, CkThreadPool::eTaskPriorityNormal))
            return false;
    }
    return last->WaitUntilTerminate(INFINITE) && !last->IsSuccessful() && pool.ShutdownAndWait(INFINITE);
}
} // namespace

/// Uses a little of everything. `order`, of at least 3 characters, receives the order in which the singletons go.
extern "C" int use(char* order)
{
    First::GetInstance().order = order;
    Second::GetInstance();

    // Stays until the library goes, together with this module and before the module's code is gone.
    int reports = 0;
    const auto listen = [counted = std::make_shared<int*>(&reports)](auto, const auto&, auto, const auto&)
    { ++**counted; };
    CkLogListenerManager::GetInstance().RegisterListener(CkLogListenerManager::eEventUser5, listen, CK_T("^a?b$"));
    CkLogListenerManager::GetInstance().NotifyListeners(CkLogListenerManager::eEventUser5, CString(), 1, CK_T("ab"));

    CkCriticalSection section(0);
    int guarded = 0;
    const auto work = [&]
    {
        for (int i = 0; i < 20; ++i)
        {
            const CkCriticalSectionAuto guard(section);
            std::this_thread::yield();
            ++guarded;
        }
    };
    std::thread other(work);
    work();
    other.join();

    CkStreamWriteASCIIString stream;
    try
    {
        throw CkException(CK_SOURCE_FILE, 3, PluginException());
    }
    catch (const CkException& exception)
    {
        exception.Dump(stream);
    }
    if (!CkISerializable::CreateByName(CK_T("PluginValue")))
        return 2;
    if (!useEvents())
        return 3;
    if (!usePool())
        return 4;
    return guarded == 40 && reports == 1 && stream->Find(CK_T("PluginException")) > 0 ? 0 : 1;
}

/// Starts threads that use the library for ever. Of this module only their code: its static objects go when the process
/// ends, but the library's stay.
extern "C" void stayBusy()
{
    const auto work = []
    {
        for (;;)
        {
            try
            {
                throw CkException(CK_SOURCE_FILE, 4, CkExceptionStream(CK_SOURCE_FILE, 5));
            }
            catch (const CkException&)
            {
            }
            CkISerializable::CreateByName(CK_T("CkInt32"));
        }
    };
    for (int i = 0; i < 3; ++i)
        std::thread(work).detach();
    for (int i = 0; i < 1000; ++i)
        CkThreadPool::GetInstance().AddTask(new PluginTask, CkThreadPool::eTaskPriorityLow);
}

extern "C" void raisePlugin()
{
    throw PluginException();
}

/// The record of the template as this module instantiates it.
extern "C" const CkRTTI* baseTypeRecord()
{
    return &CkBaseType<unsigned short>().GetRTTI();
}

/// An object of the library's class, made here; the caller's.
extern "C" CkISerializable* makeNumber()
{
    return new CkInt32(42);
}
