#pragma once

#include <atomic>
#include <stdexcept>

/// A value whose constructors throw when it is their turn, and that tells how many of its kind live.
class Fragile
{
public:
    /// The `countdown`-th construction from now on throws; 0: none does.
    static void ThrowAt(int countdown) { s_countdown = countdown; }
    static int Living() { return s_living; }

    Fragile() : Fragile(0) {}

    Fragile(int newValue) : value(newValue)
    {
        if (s_countdown > 0 && --s_countdown == 0)
            throw std::runtime_error("fragile");
        ++s_living;
    }

    Fragile(const Fragile& other) : Fragile(other.value) {}
    Fragile& operator=(const Fragile&) = default;
    ~Fragile() { --s_living; }

    bool operator==(const Fragile&) const = default;

    int value;

private:
    static inline int s_countdown = 0;
    static inline int s_living = 0;
};
