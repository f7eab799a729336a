// A module that brings a class of records, and a singleton that the class uses.

#include "reading.h"

/// Not in an unnamed namespace, so the static members of the template have names that the loader knows.
class Counter : public CkSingleton<Counter>
{
public:
    int Next() { return ++m_value; }

private:
    friend class CkSingleton<Counter>;
    Counter() = default;

    int m_value = 0;
};

namespace
{
class PluginReading : public Reading
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }

    static PluginReading* Create()
    {
        auto* const reading = new PluginReading;
        reading->value = Counter::GetInstance().Next();
        return reading;
    }
};

const CkRTTI PluginReading::RTTI(CK_T("PluginReading"), CkISerializable::RTTI, &CreateByFactory<PluginReading>,
                                 nullptr);
} // namespace
