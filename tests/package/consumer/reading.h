#pragma once

#include <tarvo/tarvo.h>

/// A record of the program or of its plug-in: which one it is, is said by its class.
class Reading : public CkISerializable
{
public:
    double value = 0;
    CString place;

    void Serialize(CkStreamWriteBinary& stream) const override { stream << value << place; }
    void Serialize(CkStreamReadBinary& stream) override { stream >> value >> place; }
};
