#pragma once

#include <tarvo/config.h>
#include <tarvo/platform/framework/cstring.h>

class CkStreamWriteASCII;

/// Base of classes that can (1) or cannot (0) describe themselves in text.
template <int N>
class CkIDumpable;

template <>
class CkIDumpable<0>
{
};

/// An object that writes its description into a text stream.
///
/// A description reaches its destination as one text, however many pieces the object wrote.
template <>
class TARVO_API CkIDumpable<1>
{
public:
    /// The description.
    CString ToString() const;

    /// Writes the description to `stream`, in one piece.
    void Dump(CkStreamWriteASCII& stream) const;

    /// Writes the description to the diagnostic trace.
    void Dump() const;

protected:
    CkIDumpable() = default;
    CkIDumpable(const CkIDumpable&) = default;
    CkIDumpable& operator=(const CkIDumpable&) = default;
    ~CkIDumpable() = default;

    virtual void dump(CkStreamWriteASCII& stream) const = 0;
};
