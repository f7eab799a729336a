#pragma once

/// A type made of an integer: passing a value of it selects one of several overloads when the program is compiled.
template <int N>
struct CkIntToType
{
    static constexpr int value = N;
};
