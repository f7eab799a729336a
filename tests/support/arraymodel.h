#pragma once

#include <tarvo/platform/kernel/kernel.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <vector>

// Arrays of numbers, or of what is made of numbers, beside vectors that do the same. What is inserted is an element of
// the array itself.

/// With `grow` false the last element falls off the end.
template <class Array>
void insertInBoth(Array& array, std::vector<int>& model, ULONG at, ULONG from, bool after, bool grow)
{
    const int value = model[from];
    const int replaced = after ? array.InsertAfter(at, array[from], grow) : array.InsertBefore(at, array[from], grow);
    model.insert(model.begin() + static_cast<std::ptrdiff_t>(at) + (after ? 1 : 0), value);
    if (grow)
        return;
    EXPECT_EQ(replaced, 0);
    model.pop_back();
}

/// The elements twice, or if there are many already, no more than `count`.
template <class Array>
void doubleBoth(Array& array, std::vector<int>& model, ULONG count)
{
    if (model.size() < 100)
    {
        array.AddTail(array);
        model.insert(model.end(), model.begin(), model.begin() + static_cast<std::ptrdiff_t>(model.size()));
    }
    else
    {
        array.SetCount(count, 1);
        model.resize(count);
    }
}

inline constexpr unsigned int operationsOfBoth = 12;

/// Does the operation of that number; both have elements.
template <class Array>
void changeBoth(Array& array, std::vector<int>& model, unsigned int operation, ULONG at, ULONG from)
{
    const auto place = model.begin() + static_cast<std::ptrdiff_t>(at);
    switch (operation)
    {
    case 0:
        array.AddTail(array[from]);
        model.push_back(model[from]);
        break;
    case 1: insertInBoth(array, model, at, from, false, true); break;
    case 2: insertInBoth(array, model, at, from, true, true); break;
    case 3: insertInBoth(array, model, at, from, false, false); break;
    case 4: insertInBoth(array, model, at, from, true, false); break;
    case 5:
        array.Remove(at);
        model.erase(place);
        break;
    case 6:
        at % 2 != 0 ? array.RemoveHead() : array.RemoveTail();
        model.erase(at % 2 != 0 ? model.begin() : model.end() - 1);
        break;
    case 7:
        array.Rotate(static_cast<int>(at));
        std::rotate(model.begin(), model.end() - static_cast<std::ptrdiff_t>(at), model.end());
        break;
    case 8:
        array.Rotate(-static_cast<int>(at));
        std::rotate(model.begin(), place, model.end());
        break;
    case 9:
        array.Reverse();
        std::ranges::reverse(model);
        break;
    case 10:
        array.SetMemoryElementCount(at, 1);
        EXPECT_EQ(array.GetMemoryElementCount(), model.size());
        break;
    default: doubleBoth(array, model, at);
    }
}
