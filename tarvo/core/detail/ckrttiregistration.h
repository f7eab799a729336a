#pragma once

#include <tarvo/core/ckrtti.h>

/// The registered classes: for each name the latest record, with the functions that make objects of the class.
///
/// Threads: all operations may be called from any thread. Takes a lock of its own and no other meanwhile.
/// Lifetime: made by the first registration, destroyed after the library's records when the library is unloaded.
class CkRTTIRegistration
{
public:
    struct SRegistration
    {
        const CkRTTI* record = nullptr;
        CkRTTI::CreateFunction create = nullptr;
        CkRTTI::CloneFunction clone = nullptr;
    };

    static void Register(const CkRTTI& record, CkRTTI::CreateFunction create, CkRTTI::CloneFunction clone);

    /// Ends the registration of `record`, if it is the latest of its name.
    static void Unregister(const CkRTTI& record) noexcept;

    /// What is registered under `name`; all null when there is nothing.
    static SRegistration Find(const CString& name);

private:
    /// False when there is no memory. The caller raises that, without the lock: exceptions are reported, and those who
    /// listen may ask for classes on another thread.
    static bool tryRegister(const CString& name, const SRegistration& registration);
};
