// Several modules share one library, one instance of a singleton and one record of a class; they throw, make and copy
// objects across their borders.

#include <libraries/shared.h>
#include <plugins/client.h>
#include <support/barrier.h>
#include <support/dynamiclibrary.h>
#include <support/expect.h>
#include <support/memorystreams.h>
#include <support/rttipeer.h>

#include <atomic>
#include <thread>

namespace
{
void useShared()
{
    void* const module = dynamiclibrary::load("tarvo_plugin_user");
    expect(module != nullptr, "the user loads");
    if (module == nullptr)
        return;
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
}

void useValueByName()
{
    CkSmartPointer<CkISerializable> object = CkISerializable::CreateByName(CK_T("PluginValue"));
    expect(bool(object), "an object is made by the name of a class of another module");
    auto* const value = dynamic_cast<PluginValue*>(object.Get());
    expect(value != nullptr && value->front == 1, "and has its C++ type");
    if (value == nullptr)
        return;
    MemoryReader reader({2, 1});
    object->Serialize(reader);
    expect(**value == 258, "and reads its state");
    expect(object->IsKindOf(CkBaseType<int>::RTTI), "and its kind is known here");
    expect(object->GetRTTI().IsKindOf(CK_T("PluginValue")), "and by name");
    auto* const clone = static_cast<CkISerializable*>(CkRTTIPeer::GetClone(CK_T("PluginValue"))(object.Get()));
    object = clone;
    MemoryWriter writer;
    object->Serialize(writer);
    expect(writer.bytes == Bytes{2, 1}, "and so does its clone");
}

void catchException(void (*raise)())
{
    CkException::History history;
    try
    {
        raise();
    }
    catch (const PluginException& exception)
    {
        history = CkException(CK_SOURCE_FILE, 3, exception).GetHistory();
    }
    expect(dynamic_cast<const PluginException*>(history.Get()) != nullptr, "an exception is caught and cloned");
    bool caught = false;
    try
    {
        raise();
    }
    catch (const CkException& exception)
    {
        caught = exception.GetClassNameW() == CK_T("PluginException");
    }
    expect(caught, "and caught by its base");
}

/// Classes come and go with their module while other threads look up those that stay.
void useClient()
{
    Barrier running(3);
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    const auto lookUp = [&]
    {
        const CkExceptionStream cause(CK_SOURCE_FILE, 1);
        running.Arrive();
        while (!done)
        {
            if (!CkISerializable::CreateByName(CK_T("CkInt32")) ||
                !CkException(CK_SOURCE_FILE, 2, cause).GetHistory() ||
                !CkExceptionStream::RTTI.IsKindOf(CK_T("CkException")))
                ++wrong;
        }
    };
    std::thread first(lookUp);
    std::thread second(lookUp);
    running.Arrive();
    CkSmartPointer<CkISerializable> number;
    for (int round = 0; round < 5; ++round)
    {
        void* const module = dynamiclibrary::load("tarvo_plugin_client");
        expect(module != nullptr, "the client loads");
        if (module == nullptr)
            break;
        useValueByName();
        catchException(dynamiclibrary::find<void()>(module, "raisePlugin"));
        expect(dynamiclibrary::find<const CkRTTI*()>(module, "baseTypeRecord")() == &CkBaseType<int>::RTTI,
               "all modules share the record of the template");
        number = dynamiclibrary::find<CkISerializable*()>(module, "makeNumber")();
        dynamiclibrary::unload(module);
        expect(!dynamiclibrary::isLoaded("tarvo_plugin_client"), "the client goes");
        expect(!CkISerializable::CreateByName(CK_T("PluginValue")), "and its classes with it");
    }
    done = true;
    first.join();
    second.join();
    expect(wrong == 0, "the library's classes are found at any time");
    expect(number && **dynamic_cast<CkInt32*>(number.Get()) == 42, "an object outlives the module that made it");
}
} // namespace

int main()
{
    useClient();
    useShared();
    return failures;
}
