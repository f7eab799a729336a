#pragma once

#include <tarvo/tarvo.h>

/// What the program and its plug-ins agree on. It has no type record: the process must have only one of a class, so it
/// would have to be in a library that all of them link to.
class Shape : public CkISerializable
{
public:
    virtual double GetArea() const = 0;
};
