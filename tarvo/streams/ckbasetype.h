#pragma once

#include <tarvo/config.h>
#include <tarvo/streams/ckiserializable.h>
#include <tarvo/streams/ckstreamreadbinary.h>
#include <tarvo/streams/ckstreamwritebinary.h>

namespace tarvo::detail
{
/// What all CkBaseType have in common. The record is the library's, whichever module instantiates the template.
class TARVO_API BaseTypeRecord : public CkISerializable
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
    ~BaseTypeRecord() override;

protected:
    BaseTypeRecord() noexcept;
    BaseTypeRecord(const BaseTypeRecord& other) noexcept;
    BaseTypeRecord& operator=(const BaseTypeRecord&) noexcept { return *this; }
};
} // namespace tarvo::detail

/// A value of a type that the streams take, as an object that can be shared and stores itself. All types have one
/// record, "CkBaseType"; the classes of ckbasetypes.h have their own and can be made by name.
///
/// Only the value is stored, and only the value is copied.
///
/// Threads: one thread at a time, as for the value.
/// Failure: reading passes on what the stream raises, and leaves in the value what the stream leaves in its target.
template <class T>
class CkBaseType : public tarvo::detail::BaseTypeRecord
{
public:
    /// Zero, false or empty.
    CkBaseType() : m_value() {}
    CkBaseType(const T& value) : m_value(value) {}
    CkBaseType(const CkBaseType&) = default;
    CkBaseType& operator=(const CkBaseType&) = default;
    ~CkBaseType() override = default;

    CkBaseType& operator=(const T& value)
    {
        m_value = value;
        return *this;
    }

    operator T&() noexcept { return m_value; }
    operator const T&() const noexcept { return m_value; }
    T& operator*() noexcept { return m_value; }
    const T& operator*() const noexcept { return m_value; }
    T* operator->() noexcept { return &m_value; }
    const T* operator->() const noexcept { return &m_value; }

    void Serialize(CkStreamWriteBinary& stream) const override { stream << m_value; }
    void Serialize(CkStreamReadBinary& stream) override { stream >> m_value; }

private:
    T m_value;
};
