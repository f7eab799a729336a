// A client module with an exception class and singletons of its own, loaded and unloaded while the program runs.

#include <tarvo/tarvo.h>

#include <memory>
#include <thread>

namespace
{
class PluginException : public CkException
{
public:
    PluginException() : CkException(CK_SOURCE_FILE, 1, RTTI) {}

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static PluginException* Clone(const PluginException& exception) { return new PluginException(exception); }
};

const CkRTTI PluginException::RTTI(CK_T("PluginException"), CkException::RTTI, nullptr,
                                   &CloneByFactory<PluginException>);

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
    return guarded == 40 && stream->Find(CK_T("PluginException")) > 0 ? 0 : 1;
}
