#pragma once

#include <tarvo/streams/ckstreamread.h>
#include <tarvo/streams/ckstreamwrite.h>

/// Base of classes whose objects have an index that is stored with them. Anybody (1) or only the class itself (0) may
/// change it.
///
/// Threads: one thread at a time, as for the index.
template <int N>
class CkIClassIndex;

template <>
class CkIClassIndex<0>
{
public:
    CkIClassIndex() = default;
    explicit CkIClassIndex(unsigned int index) noexcept : m_index(index) {}

    unsigned int GetIndex() const noexcept { return m_index; }

    void Serialize(CkStreamWrite& stream) const { stream << m_index; }
    void Serialize(CkStreamRead& stream) { stream >> m_index; }

protected:
    void setIndex(unsigned int index) noexcept { m_index = index; }

private:
    unsigned int m_index = 0;
};

template <>
class CkIClassIndex<1> : public CkIClassIndex<0>
{
public:
    using CkIClassIndex<0>::CkIClassIndex;

    void SetIndex(unsigned int index) noexcept { setIndex(index); }
};
