#pragma once

#include <tarvo/tarvo.h>

// The classes of the client module that programs know, too. Their records are the module's; whatever else is in them is
// inline, so that a program needs nothing of the module to name them.

class PluginException : public CkException
{
public:
    PluginException() : CkException(CK_SOURCE_FILE, 1, RTTI) {}

    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static PluginException* Clone(const PluginException& exception) { return new PluginException(exception); }
};

/// Takes the first place in an object, so that the serializable base has another address than the object.
struct PluginFront
{
    virtual ~PluginFront() = default;
    int front = 1;
};

class PluginValue : public PluginFront, public CkBaseType<short>
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static PluginValue* Create() { return new PluginValue; }
    static PluginValue* Clone(const PluginValue& value) { return new PluginValue(value); }
};
