// Own a thing: several owners share an object, and who only knows it learns of its end.

#include <tarvo/tarvo.h>

#include <iostream>

class Letter : public CkReferenceCountedClass<Letter, 0>
{
public:
    ~Letter() override { std::cout << "the letter is burnt\n"; }
    void Read() const { std::cout << "Dear reader\n"; }
};

void readIfThere(const CkWeakPointer<Letter>& known)
{
    // Owns the letter while it is read, so that it cannot go meanwhile.
    if (const CkSmartPointer<Letter> letter = known.Lock())
        letter->Read();
    else
        std::cout << "nothing to read\n";
}

int main()
{
    CkSmartPointer<Letter> writer(new Letter);
    CkSmartPointer<Letter> archive = writer;
    const CkWeakPointer<Letter> known(writer);

    writer.Reset();
    readIfThere(known);
    archive.Reset();
    readIfThere(known);
}

// Prints:
//   Dear reader
//   the letter is burnt
//   nothing to read
