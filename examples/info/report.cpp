#include "report.h"

#include <concepts>
#include <cstddef>

namespace
{
using Machine = CkMachineCapabilities;

void addTextUnless(Writer& writer, Name name, const CString& text, const WCHAR* unknown)
{
    if (text == unknown)
        writer.AddUnknown(name);
    else
        writer.AddText(name, text);
}

void addNumberUnless0(Writer& writer, Name name, unsigned __int64 number)
{
    if (number == 0)
        writer.AddUnknown(name);
    else
        writer.AddNumber(name, number);
}

Texts processorFeatures()
{
    struct Feature
    {
        Machine::ECPUFeatures bit;
        const char* name;
    };

    const Feature features[] = {
        {Machine::eCPUFeatureFPU, "FPU"},      {Machine::eCPUFeatureMMX, "MMX"},
        {Machine::eCPUFeatureSSE, "SSE"},      {Machine::eCPUFeatureSSE2, "SSE2"},
        {Machine::eCPUFeatureSSE3, "SSE3"},    {Machine::eCPUFeatureSSE41, "SSE4.1"},
        {Machine::eCPUFeatureSSE42, "SSE4.2"}, {Machine::eCPUFeatureHTT, "HTT"},
        {Machine::eCPUFeatureTSC, "TSC"},      {Machine::eCPUFeaturePSN, "PSN"},
    };
    Texts names;
    for (const Feature& feature : features)
    {
        if (Machine::HasCPUFeature(feature.bit))
            names.emplace_back(feature.name);
    }
    return names;
}

void writeLibrary(Writer& writer)
{
    writer.BeginSection({"library", "Library"}, Writer::Section::thing);
    writer.BeginThing();
    writer.AddText({"version", "version"}, CString(libraryVersion().c_str()));
    writer.EndThing();
    writer.EndSection();
}

void writeMachine(Writer& writer)
{
    writer.BeginSection({"machine", "Machine"}, Writer::Section::thing);
    writer.BeginThing();
    addTextUnless(writer, {"name", "name"}, Machine::GetMachineName(), CK_T(""));
    addTextUnless(writer, {"operatingSystem", "operating system"}, Machine::GetOperatingSystemName(), CK_T(""));
    writer.AddNumber({"processors", "processors"}, Machine::GetCPUCount());
    writer.AddFlag({"hasKnownVendor", "has a known vendor"}, Machine::HasCPUID());
    writer.AddNumber({"vendorNumber", "number of the vendor"}, static_cast<unsigned int>(Machine::GetCPUVendor()));
    addTextUnless(writer, {"vendor", "vendor"}, Machine::GetCPUVendorName(), CK_T(""));
    addTextUnless(writer, {"model", "model"}, Machine::GetCPUModelName(), CK_T("unknown"));
    addNumberUnless0(writer, {"speedMHz", "speed in MHz"}, Machine::GetCPUSpeed());
    writer.AddTexts({"features", "features"}, processorFeatures());
    addNumberUnless0(writer, {"physicalMemory", "bytes of memory"}, Machine::GetTotalPhysicalMemory());
    addNumberUnless0(writer, {"virtualMemory", "bytes of address space"}, Machine::GetTotalVirtualMemory());
    writer.EndThing();
    writer.EndSection();
}

/// The names of the classes that a class derives from directly.
Texts baseNames(const CkRTTI& record)
{
    Texts names;
    const CkRTTI* const* const bases = record.GetBaseClassRTTI();
    if (bases == nullptr)
        return names;
    // Slot 0 holds their number.
    const auto count = reinterpret_cast<std::size_t>(bases[0]);
    for (std::size_t i = 1; i <= count; ++i)
        names.push_back(bases[i]->GetName());
    return names;
}

/// Writes what the registry says of a name, whoever has registered it.
void writeType(Writer& writer, const CString& name)
{
    const CkRTTI* const record = CkRTTI::Find(name);
    writer.BeginThing();
    writer.AddText({"name", "name"}, name);
    writer.AddFlag({"isRegistered", "is registered"}, record != nullptr);
    writer.AddTexts({"bases", "base classes"}, record != nullptr ? baseNames(*record) : Texts());
    writer.AddFlag({"canBeMade", "can be made by name"}, static_cast<bool>(CkISerializable::CreateByName(name)));
    writer.EndThing();
}

/// The registry can be asked for a name, but does not tell which ones there are. The library's own come first.
void writeTypes(Writer& writer, const Texts& furtherNames)
{
    const CkRTTI* const records[] = {
        &CkException::RTTI,
        &CkExceptionPreconditionViolation::RTTI,
        &CkExceptionCondition::RTTI,
        &CkExceptionOutOfMemory::RTTI,
        &CkExceptionStream::RTTI,
        &CkExceptionWrongFileVersion::RTTI,
        &CkISerializable::RTTI,
        &CkPolyLineBase::RTTI,
        &CkBaseType<int>::RTTI,
        &CkBool::RTTI,
        &CkInt8::RTTI,
        &CkInt16::RTTI,
        &CkInt32::RTTI,
        &CkLong::RTTI,
        &CkInt64::RTTI,
        &CkUInt8::RTTI,
        &CkUInt16::RTTI,
        &CkUInt32::RTTI,
        &CkULong::RTTI,
        &CkUInt64::RTTI,
        &CkFloat32::RTTI,
        &CkFloat64::RTTI,
        &CkChar::RTTI,
        &CkString::RTTI,
    };
    writer.BeginSection({"types", "Types"}, Writer::Section::list);
    for (const CkRTTI* const record : records)
        writeType(writer, record->GetName());
    for (const CString& name : furtherNames)
        writeType(writer, name);
    writer.EndSection();
}

template <class T>
void writeSingleton(Writer& writer, const char* name)
{
    writer.BeginThing();
    writer.AddText({"name", "name"}, CString(name));
    writer.AddFlag({"exists", "exists"}, T::HasInstance() != 0);
    if constexpr (std::same_as<T, CkPerformanceCounter>)
    {
        const long long frequency = T::GetInstance().QueryPerformanceFrequency();
        writer.AddNumber({"ticksPerSecond", "ticks in a second"}, static_cast<unsigned __int64>(frequency));
    }
    writer.EndThing();
}

/// Only the counter is made if it does not exist, after that was said.
void writeSingletons(Writer& writer)
{
    writer.BeginSection({"singletons", "Singletons"}, Writer::Section::list);
    writeSingleton<CkPerformanceCounter>(writer, "CkPerformanceCounter");
    writeSingleton<CkLogListenerManager>(writer, "CkLogListenerManager");
    writeSingleton<CkThreadPool>(writer, "CkThreadPool");
    writeSingleton<CkDiagnosticsInterface>(writer, "CkDiagnosticsInterface");
    writer.EndSection();
}
} // namespace

void writeReport(Writer& writer, const Texts& typeNames)
{
    writeLibrary(writer);
    writeMachine(writer);
    writeTypes(writer, typeNames);
    writeSingletons(writer);
}

std::string libraryVersion()
{
    return std::to_string(TARVO_VERSION_MAJOR) + '.' + std::to_string(TARVO_VERSION_MINOR) + '.' +
           std::to_string(TARVO_VERSION_PATCH);
}
