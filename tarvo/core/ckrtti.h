#pragma once

#include <tarvo/config.h>
#include <tarvo/library/unloadsequence.h>
#include <tarvo/platform/framework/cstring.h>

#include <array>
#include <cstddef>
#include <initializer_list>

/// The run-time type record of a class: its name and the records of its base classes. Two records are the same class
/// only if they are the same object.
///
/// Every class that takes part has a static member `RTTI`, a virtual `GetRTTI() const` that returns the record of the
/// object's class, and `Is`, `IsKindOf` and `GetClassNameW` that ask that record.
///
/// Threads: a record never changes once it is constructed; any thread may use it without a lock. Looking up a name
/// takes the registry's lock and no other meanwhile.
/// Lifetime: static, in the module that defines the class. A record refers to the records of its bases without reading
/// them, so it may be constructed before them. One of static lifetime may still be asked after its end, and has then no
/// name; those of the library stay as they are when the process ends.
/// Failure: construction raises what allocation and the registration raise.
class TARVO_API CkRTTI
{
public:
    /// Makes a new object of the class, or gives null. The pointer is to the root of the class's hierarchy.
    using CreateFunction = void* (*)();
    /// Makes a new copy of the object passed, or gives null. Both pointers are to the root of the class's hierarchy.
    using CloneFunction = void* (*)(const void*);

    /// Register the class under `name`, with its functions where they are not null. A name that is registered already
    /// is replaced.
    CkRTTI(const CString& name, CreateFunction create, CloneFunction clone);
    CkRTTI(const CString& name, const CkRTTI& base, CreateFunction create, CloneFunction clone);
    CkRTTI(const CString& name, const CkRTTI& base1, const CkRTTI& base2, CreateFunction create, CloneFunction clone);
    CkRTTI(const CString& name, const CkRTTI& base1, const CkRTTI& base2, const CkRTTI& base3, CreateFunction create,
           CloneFunction clone);
    CkRTTI(const CkRTTI&) = delete;
    CkRTTI& operator=(const CkRTTI&) = delete;

    /// Takes the registration back, unless the name has been registered anew. Objects and functions of the class that
    /// were found before must not be in use any more.
    ~CkRTTI();

    /// The record registered under `name`, with exactly these letters; null when there is none.
    static const CkRTTI* Find(const CString& name);

    const CString& GetName() const noexcept { return m_name.object; }

    /// The base classes: null without any, else the number of them in slot 0 (as a number) and their records behind it,
    /// in the order of construction.
    const CkRTTI** GetBaseClassRTTI() const noexcept { return m_bases; }

    bool operator==(const CkRTTI& rtti) const noexcept { return this == &rtti; }
    bool Is(const CkRTTI& rtti) const noexcept { return this == &rtti; }

    /// Whether the class is that of `rtti` or derives from it, at any depth.
    bool IsKindOf(const CkRTTI& rtti) const noexcept
    {
        // Straight up through first bases, which is all there is in most hierarchies.
        for (const CkRTTI* record = this;;)
        {
            if (record == &rtti)
                return true;
            const CkRTTI* const* const bases = record->m_bases;
            if (bases == nullptr)
                return false;
            if (record->hasSeveralBases() && record->isKindOfFurtherBase(rtti))
                return true;
            record = bases[1];
        }
    }

    /// The same for the record registered under `name`; false when there is none.
    bool IsKindOf(const CString& name) const;

private:
    friend class CkException;
    friend class CkISerializable;
    friend struct CkRTTIPeer;

    // The functions registered under `name`; null when the class has none, or the name is unknown.
    static CreateFunction getCreate(const CString& name);
    static CloneFunction getClone(const CString& name);

    CkRTTI(const CString& name, std::initializer_list<const CkRTTI*> bases, CreateFunction create, CloneFunction clone);

    /// As `IsKindOf`, but a class does not derive from itself.
    bool isDerivedFrom(const CkRTTI& rtti) const noexcept { return this != &rtti && IsKindOf(rtti); }

    std::size_t countBases() const noexcept { return reinterpret_cast<std::size_t>(m_bases[0]); }
    bool hasSeveralBases() const noexcept { return countBases() > 1; }
    bool isKindOfFurtherBase(const CkRTTI& rtti) const noexcept;
    void forgetName() noexcept;

    const CkRTTI** m_bases = nullptr;       ///< `m_table`, or null without bases.
    std::array<const CkRTTI*, 4> m_table{}; ///< In the record: no heap to outlive, and none to fail.
    tarvo::detail::Undestroyed<CString> m_name;
};
