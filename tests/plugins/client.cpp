// A client module with classes and singletons of its own, loaded and unloaded while the program runs.

#include <plugins/client.h>

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
    return guarded == 40 && reports == 1 && stream->Find(CK_T("PluginException")) > 0 ? 0 : 1;
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
