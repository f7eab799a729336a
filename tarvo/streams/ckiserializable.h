#pragma once

#include <tarvo/config.h>
#include <tarvo/core/ckreferencecountedclass.h>
#include <tarvo/core/ckrtti.h>
#include <tarvo/core/cksmartpointer.h>
#include <tarvo/platform/framework/cstring.h>

#include <concepts>
#include <utility>

class CkStreamReadBinary;
class CkStreamWriteBinary;

/// The root of objects that store themselves and can be made again knowing only the name of their class.
///
/// What is stored is the object's state alone: whoever reads it back knows the class from what surrounds it. A class
/// that can be made by name has `static S* Create()`, one that can be copied by name `static S* Clone(const S&)`, and
/// names `&CreateByFactory<S>` and `&CloneByFactory<S>` in its record.
///
/// Threads: references are counted from any thread; the state is for one thread at a time.
/// Lifetime: shared through CkSmartPointer, or a value like any other; copies start without references.
class TARVO_API CkISerializable : public CkReferenceCountedClass<CkISerializable, 0>
{
public:
    CkISerializable() noexcept;
    CkISerializable(const CkISerializable& other) noexcept;
    CkISerializable& operator=(const CkISerializable&) noexcept { return *this; }
    ~CkISerializable() override;

    static const CkRTTI RTTI;
    virtual const CkRTTI& GetRTTI() const;

    virtual void Serialize(CkStreamWriteBinary& stream) const = 0;
    /// Reads the state back, in the order in which it was written.
    virtual void Serialize(CkStreamReadBinary& stream) = 0;

    bool Is(const CkRTTI& rtti) const { return GetRTTI().Is(rtti); }
    bool IsKindOf(const CkRTTI& rtti) const { return GetRTTI().IsKindOf(rtti); }
    const CString& GetClassNameW() const { return GetRTTI().GetName(); }

    /// A new object of the class registered as `className`. Empty when there is none, when it cannot be made by name or
    /// is no kind of CkISerializable, and when its create function gives nothing, for want of memory as a rule. What
    /// that function raises passes on. The module of the class must stay loaded meanwhile.
    static CkSmartPointer<CkISerializable> CreateByName(const CString& className);

protected:
    // The functions for the record of a class `S`. Their untyped pointers are to CkISerializable, whatever the place of
    // that base in `S`.

    template <class S>
    static void* CreateByFactory()
    {
        static_assert(std::same_as<decltype(S::Create()), S*>, "S needs a Create of its own");
        return static_cast<CkISerializable*>(S::Create());
    }

    template <class S>
    static void* CloneByFactory(const void* object)
    {
        static_assert(std::same_as<decltype(S::Clone(std::declval<const S&>())), S*>, "S needs a Clone of its own");
        const auto* const original = static_cast<const CkISerializable*>(object);
        return static_cast<CkISerializable*>(S::Clone(static_cast<const S&>(*original)));
    }
};
