// Uses a little of everything that a client gets from the headers and from the library, and says what went wrong:
// consumer PLUGIN. The exit code is the number of failures.

#include "platform_module.h"
#include "reading.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

namespace
{
int failures = 0;

void expect(bool condition, const char* what)
{
    if (condition)
        return;
    std::cerr << "not so: " << what << '\n';
    ++failures;
}

class SensorError : public CkException
{
public:
    SensorError(const CString& file, unsigned int line, const CkException& cause) : CkException(file, line, cause, RTTI)
    {
    }

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static SensorError* Clone(const SensorError& error) { return new SensorError(error); }
};

const CkRTTI SensorError::RTTI(CK_T("SensorError"), CkException::RTTI, nullptr, &CloneByFactory<SensorError>);

class SensorReading : public Reading
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static SensorReading* Create() { return new SensorReading; }
};

const CkRTTI SensorReading::RTTI(CK_T("SensorReading"), CkISerializable::RTTI, &CreateByFactory<SensorReading>,
                                 nullptr);

class MemoryWriter : public CkStreamWriteBinary
{
public:
    std::vector<unsigned char> bytes;

protected:
    CkStreamWrite& write(const void* data, unsigned __int64 size) override
    {
        const auto* const first = static_cast<const unsigned char*>(data);
        bytes.insert(bytes.end(), first, first + size);
        return *this;
    }
};

class MemoryReader : public CkStreamReadBinary
{
public:
    explicit MemoryReader(std::vector<unsigned char> data) : m_bytes(std::move(data)) {}

protected:
    unsigned __int64 read(void* data, unsigned __int64 size) override
    {
        const auto count = static_cast<std::size_t>(std::min<unsigned __int64>(size, m_bytes.size() - m_position));
        if (count != 0)
            std::memcpy(data, m_bytes.data() + m_position, count);
        m_position += count;
        return count;
    }

private:
    std::vector<unsigned char> m_bytes;
    std::size_t m_position = 0;
};

void storeAndRead()
{
    SensorReading stored;
    stored.value = 21.5;
    stored.place = CString("Zürich");
    MemoryWriter writer;
    stored.Serialize(writer);

    const CkSmartPointer<CkISerializable> read = CkISerializable::CreateByName(CK_T("SensorReading"));
    auto* const reading = dynamic_cast<SensorReading*>(read.Get());
    expect(reading != nullptr, "a record is made by the name of its class");
    if (reading == nullptr)
        return;
    MemoryReader reader(writer.bytes);
    reading->Serialize(reader);
    expect(reading->value == stored.value && reading->place == stored.place, "what is read is what was stored");

    writer.bytes.pop_back();
    MemoryReader shortReader(writer.bytes);
    bool refused = false;
    try
    {
        reading->Serialize(shortReader);
    }
    catch (const CkExceptionStream&)
    {
        refused = true;
    }
    expect(refused, "data that ends early is refused");
}

/// The cause of the error, and the error in the task's hands.
class FailingTask : public CkTask
{
public:
    CString cause;

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        try
        {
            throw CkExceptionStream(CK_SOURCE_FILE, 1);
        }
        catch (const CkException& exception)
        {
            throw SensorError(CK_SOURCE_FILE, 2, exception);
        }
    }

    void onException(const CkException* exception) override
    {
        const auto* const error = dynamic_cast<const SensorError*>(exception);
        if (error != nullptr && error->GetHistory())
            cause = error->GetHistory()->GetClassNameW();
    }
};

class SumTask : public CkTask
{
public:
    __int64 sum = 0;

protected:
    CkCheckReturn<bool, CkCheckReturnPolicyAssert> doRun() override
    {
        for (int i = 1; i <= 1000; ++i)
            sum += i;
        return true;
    }
};

void runTasks()
{
    const CkThreadPoolShutdown shutdown;
    const CkSmartPointer<SumTask> sum(new SumTask);
    const CkSmartPointer<FailingTask> failing(new FailingTask);
    CkThreadPool& pool = CkThreadPool::GetInstance();
    expect(pool.AddTask(sum, CkThreadPool::eTaskPriorityNormal), "the pool takes a task");
    expect(pool.AddTask(failing, CkThreadPool::eTaskPriorityNormal), "and another");
    expect(sum->WaitUntilTerminate(60000) && failing->WaitUntilTerminate(60000), "both end");
    expect(sum->IsSuccessful() && sum->sum == 500500, "one with its result");
    expect(!failing->IsSuccessful() && failing->cause == CK_T("CkExceptionStream"), "the other with its error");
}

void usePlugin(const std::string& path)
{
    expect(CkRTTI::Find(CK_T("PluginReading")) == nullptr, "the class of the plug-in is not there before it");
    {
        const Module plugin(path);
        expect(bool(plugin), "the plug-in is loaded");
        const CkSmartPointer<CkISerializable> object = CkISerializable::CreateByName(CK_T("PluginReading"));
        const auto* const reading = dynamic_cast<const Reading*>(object.Get());
        expect(reading != nullptr && reading->value == 1, "a record of the plug-in is made by name");
    }
    expect(CkRTTI::Find(CK_T("PluginReading")) == nullptr, "the class goes when the plug-in is unloaded");
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::cerr << "usage: consumer PLUGIN\n";
        return 255;
    }
    storeAndRead();
    runTasks();
    usePlugin(argv[1]);
    if (failures == 0)
        std::cout << "Tarvo " << TARVO_VERSION_MAJOR << '.' << TARVO_VERSION_MINOR << '.' << TARVO_VERSION_PATCH
                  << " is in order\n";
    return failures;
}
