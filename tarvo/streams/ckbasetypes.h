#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/framework/cexception.h>
#include <tarvo/platform/framework/cstring.h>
#include <tarvo/platform/kernel/kernel.h>
#include <tarvo/streams/ckbasetype.h>

#include <new>

// The basic types as classes that can be made and copied by name. `long` is 32 bits, as everywhere in the interface.
//
// Their destructors stand in the library, and with them the tables of their virtual operations: an object may outlive
// the module that made it.

/// What the class `W` adds to its CkBaseType.
template <class W, class T>
class CkBaseTypeWrapper : public CkBaseType<T>
{
public:
    using CkBaseType<T>::CkBaseType;
    using CkBaseType<T>::operator=;

    const CkRTTI& GetRTTI() const override { return W::RTTI; }

    /// Both give an object without references, which is the caller's, or null when there is no memory.
    static W* Create() { return make(); }
    static W* Clone(const W& object) { return make(object); }

private:
    template <class... Arguments>
    static W* make(const Arguments&... arguments)
    try
    {
        return new W(arguments...);
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
    catch (CMemoryException* exception)
    {
        exception->Delete();
        return nullptr;
    }
};

class TARVO_API CkBool : public CkBaseTypeWrapper<CkBool, bool>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkBool() override;
};

class TARVO_API CkInt8 : public CkBaseTypeWrapper<CkInt8, signed char>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkInt8() override;
};

class TARVO_API CkInt16 : public CkBaseTypeWrapper<CkInt16, short>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkInt16() override;
};

class TARVO_API CkInt32 : public CkBaseTypeWrapper<CkInt32, int>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkInt32() override;
};

class TARVO_API CkLong : public CkBaseTypeWrapper<CkLong, LONG>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkLong() override;
};

class TARVO_API CkInt64 : public CkBaseTypeWrapper<CkInt64, __int64>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkInt64() override;
};

class TARVO_API CkUInt8 : public CkBaseTypeWrapper<CkUInt8, unsigned char>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkUInt8() override;
};

class TARVO_API CkUInt16 : public CkBaseTypeWrapper<CkUInt16, unsigned short>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkUInt16() override;
};

class TARVO_API CkUInt32 : public CkBaseTypeWrapper<CkUInt32, unsigned int>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkUInt32() override;
};

class TARVO_API CkULong : public CkBaseTypeWrapper<CkULong, ULONG>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkULong() override;
};

class TARVO_API CkUInt64 : public CkBaseTypeWrapper<CkUInt64, unsigned __int64>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkUInt64() override;
};

class TARVO_API CkFloat32 : public CkBaseTypeWrapper<CkFloat32, float>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkFloat32() override;
};

class TARVO_API CkFloat64 : public CkBaseTypeWrapper<CkFloat64, double>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkFloat64() override;
};

class TARVO_API CkChar : public CkBaseTypeWrapper<CkChar, char>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkChar() override;
};

class TARVO_API CkString : public CkBaseTypeWrapper<CkString, CString>
{
public:
    static const CkRTTI RTTI;
    using CkBaseTypeWrapper::CkBaseTypeWrapper;
    using CkBaseTypeWrapper::operator=;
    ~CkString() override;
};
