#include <tarvo/system/ckmachinecapabilities.h>

#include <tarvo/containers/ckplexmanager.h>
#include <tarvo/library/unloadsequence.h>
#include <tarvo/platform/kernel/cpuid.h>
#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/platform/kernel/machine.h>
#include <tarvo/system/detail/processoridentity.h>
#include <tarvo/system/detail/processormodel.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <atomic>
#include <memory>

using Machine = CkMachineCapabilities;

namespace
{
constexpr unsigned int notMeasured = 0xFFFFFFFF;

struct SRecord
{
    CString machineName;
    CString operatingSystemName;
    Machine::ECPUVendor vendor = Machine::eCPUVendorUnknown;
    CString modelName = CK_T("unknown");
    unsigned int processorCount = 1;
    unsigned int features = 0;
    mutable std::atomic<unsigned int> speed{notMeasured};
    unsigned __int64 totalPhysicalMemory = 0;
    unsigned __int64 totalVirtualMemory = 0;
};

CString machineName()
{
    WCHAR name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
    GetComputerNameW(name, &size);
    return name;
}

CString vendorText(const tarvo::kernel::CpuId& leaf)
{
    CString text;
    for (const DWORD part : {leaf.ebx, leaf.edx, leaf.ecx})
    {
        for (unsigned int shift = 0; shift != 32; shift += 8)
            text += static_cast<WCHAR>(part >> shift & 0xFFu);
    }
    return text;
}

constexpr long long waitMs = 50;

/// The counter's ticks in the time that the speed is measured over, once more while `repeat` says so of the ticks that
/// have passed. Without a performance counter at once.
template <class Repeat>
long long timeStampsWhile(Repeat repeat)
{
    const ULONGLONG before = tarvo::kernel::timeStampCounter();
    LARGE_INTEGER frequency{};
    if (QueryPerformanceFrequency(&frequency))
    {
        const long long wait = frequency.QuadPart / 1000 * waitMs;
        LARGE_INTEGER start{};
        LARGE_INTEGER now{};
        QueryPerformanceCounter(&start);
        do
            QueryPerformanceCounter(&now);
        while (repeat(now.QuadPart - start.QuadPart, wait));
    }
    return static_cast<long long>(tarvo::kernel::timeStampCounter() - before);
}

/// Time stamps in a microsecond, those that the measuring itself takes left out.
unsigned int measureSpeed()
{
    const long long measured = timeStampsWhile([](long long passed, long long wait) { return passed < wait; });
    const long long overhead = timeStampsWhile([](long long passed, long long wait) { return passed == wait; });
    return static_cast<unsigned int>((measured - overhead) / waitMs / 1000);
}

/// False when there is no memory for the tables. Raises nothing that would be reported.
bool fill(SRecord& record)
{
    record.machineName = machineName();
    record.operatingSystemName = tarvo::kernel::operatingSystemName();
    const auto vendor = tarvo::detail::processorVendor(vendorText(tarvo::kernel::cpuId(0)));
    if (!vendor)
        return false;
    record.vendor = *vendor;
    record.processorCount = tarvo::kernel::processorCount();
    const tarvo::kernel::CpuId leaf = tarvo::kernel::cpuId(1);
    record.modelName = tarvo::detail::processorModel(record.vendor, leaf.eax);
    record.features = tarvo::detail::processorFeatures(leaf.ecx, leaf.edx);
    MEMORYSTATUSEX memory{};
    static_assert(sizeof memory == 64);
    memory.dwLength = sizeof memory;
    GlobalMemoryStatusEx(&memory);
    record.totalPhysicalMemory = memory.ullTotalPhys;
    record.totalVirtualMemory = memory.ullTotalVirtual;
    return true;
}

constinit std::atomic<const SRecord*> g_record{nullptr};

/// Held while the record is made: by a thread that may hold any other lock of the library, so that none of them is
/// entered here, nor an exception constructed, whose report would enter that of the listeners.
constinit tarvo::detail::Undestroyed<CkCriticalSection> g_lock;

void destroy()
{
    delete g_record.exchange(nullptr, std::memory_order_acq_rel);
    g_lock.object.~CkCriticalSection();
}

constinit tarvo::detail::UnloadEntry g_unload{&destroy};

const SRecord& create()
{
    CkCriticalSectionAuto guard(g_lock.object);
    if (const SRecord* const record = g_record.load(std::memory_order_relaxed))
        return *record;
    auto record = std::make_unique<SRecord>();
    if (!fill(*record))
    {
        guard.Leave();
        tarvo::detail::raisePlexOutOfMemory();
    }
    tarvo::detail::registerUnload(g_unload);
    g_record.store(record.get(), std::memory_order_release);
    return *record.release();
}

const SRecord& theRecord()
{
    // Acquire pairs with the release in `create`.
    const SRecord* const record = g_record.load(std::memory_order_acquire);
    return record != nullptr ? *record : create();
}
} // namespace

const CString& CkMachineCapabilities::GetMachineName()
{
    return theRecord().machineName;
}

const CString& CkMachineCapabilities::GetOperatingSystemName()
{
    return theRecord().operatingSystemName;
}

bool CkMachineCapabilities::HasCPUID()
{
    return GetCPUVendor() != eCPUVendorUnknown;
}

CkMachineCapabilities::ECPUVendor CkMachineCapabilities::GetCPUVendor()
{
    return theRecord().vendor;
}

CString CkMachineCapabilities::GetCPUVendorName()
{
    return tarvo::detail::processorVendorName(GetCPUVendor());
}

const CString& CkMachineCapabilities::GetCPUModelName()
{
    return theRecord().modelName;
}

// Measured when it is first asked for, not with the rest: who wants to know how many processors there are, as the pool
// does before it takes its first task, should not wait for that.
unsigned int CkMachineCapabilities::GetCPUSpeed()
{
    const SRecord& record = theRecord();
    if (record.speed.load(std::memory_order_relaxed) == notMeasured)
    {
        const CkCriticalSectionAuto guard(g_lock.object);
        if (record.speed.load(std::memory_order_relaxed) == notMeasured)
            record.speed.store(HasCPUFeature(eCPUFeatureTSC) ? measureSpeed() : 0, std::memory_order_relaxed);
    }
    return record.speed.load(std::memory_order_relaxed);
}

bool CkMachineCapabilities::HasCPUFeature(ECPUFeatures features)
{
    return (theRecord().features & features) != 0;
}

unsigned int CkMachineCapabilities::GetCPUCount()
{
    return theRecord().processorCount;
}

unsigned __int64 CkMachineCapabilities::GetTotalPhysicalMemory()
{
    return theRecord().totalPhysicalMemory;
}

unsigned __int64 CkMachineCapabilities::GetTotalVirtualMemory()
{
    return theRecord().totalVirtualMemory;
}
