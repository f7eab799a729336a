#pragma once

#include <tarvo/platform/framework/cstring.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tarvo::detail
{
template <class K>
concept Number = std::integral<K> || std::is_enum_v<K>;
}

/// The hash of a map's key: a callable object that gives an unsigned 32-bit number, the same for equal keys. Specialise
/// it for key types of your own.
///
/// | key               | hash                                                                                |
/// |-------------------|-------------------------------------------------------------------------------------|
/// | CString           | from 0, for each UTF-16 unit: hash * 33 + unit (D. J. Bernstein's, begun with zero) |
/// | integer, enum     | shifted right by 4 bits, as an unsigned number of 32 or, where it is wider, 64 bits |
/// | pointer           | the address shifted right by 4 bits: what alignment makes equal is left out         |
template <class K>
struct CkHashKey;

template <>
struct CkHashKey<CString>
{
    unsigned int operator()(const CString& text) const noexcept
    {
        const WCHAR* unit = text.begin();
        std::size_t left = text.View().size();
        unsigned int hash = 0;
        // Four units in a step wait for one multiplication instead of four.
        for (; left >= 4; left -= 4, unit += 4)
        {
            hash = hash * (33u * 33u * 33u * 33u) + unit[0] * (33u * 33u * 33u) + unit[1] * (33u * 33u) +
                   unit[2] * 33u + unit[3];
        }
        for (; left != 0; --left, ++unit)
            hash = hash * 33u + *unit;
        return hash;
    }
};

template <tarvo::detail::Number K>
struct CkHashKey<K>
{
    unsigned int operator()(K key) const noexcept
    {
        if constexpr (sizeof(K) > sizeof(std::uint32_t))
            return static_cast<unsigned int>(static_cast<std::uint64_t>(key) >> 4);
        else
            return static_cast<std::uint32_t>(key) >> 4;
    }
};

template <class T>
struct CkHashKey<T*>
{
    unsigned int operator()(T* key) const noexcept
    {
        return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(key) >> 4);
    }
};
