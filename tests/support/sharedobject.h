#pragma once

#include <tarvo/core/cksmartpointer.h>

#include <atomic>

/// A reference-counted object that tells how many of its kind live.
template <int N>
class CountedObject : public CkReferenceCountedClass<CountedObject<N>, N>
{
public:
    CountedObject() { ++s_living; }
    CountedObject(const CountedObject& other) : CkReferenceCountedClass<CountedObject, N>(other) { ++s_living; }
    CountedObject& operator=(const CountedObject&) = default;
    ~CountedObject() override { --s_living; }

    static int Living() { return s_living; }

    CkSmartPointer<CountedObject> next;

private:
    static inline std::atomic<int> s_living{0};
};

using SharedObject = CountedObject<0>;
using ExternalObject = CountedObject<1>;
