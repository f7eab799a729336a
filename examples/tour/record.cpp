// Store and read a versioned record: today's program reads yesterday's records and refuses tomorrow's.

#include "memory_streams.h"

#include <iostream>

struct Person
{
    static constexpr unsigned int version = 2;
    CString name;
    int born = 0; ///< Since version 2.

    void Serialize(CkStreamWriteBinary& stream) const
    {
        stream.WriteVersion(version);
        stream << name << born;
    }

    void Serialize(CkStreamReadBinary& stream)
    {
        Person read;
        const unsigned int stored = stream.ReadAndCompareVersion(version);
        stream >> read.name;
        if (stored >= 2)
            stream >> read.born;
        *this = read; // Nothing raised: the person is whole.
    }
};

int main()
try
{
    MemoryWriter file;
    Person{CK_T("Ada"), 1815}.Serialize(file);
    file.WriteVersion(1); // Yesterday.
    file << CK_T("Grace");
    file.WriteVersion(3); // Tomorrow.

    MemoryReader reader(file.GetBytes());
    for (int i = 0; i < 3; ++i)
    {
        Person person;
        person.Serialize(reader);
        std::cout << person.name.ToUtf8() << ", born in " << person.born << '\n';
    }
}
catch (const CkExceptionWrongFileVersion&)
{
    std::cout << "a record of a newer program\n";
}

// Prints:
//   Ada, born in 1815
//   Grace, born in 0
//   a record of a newer program
