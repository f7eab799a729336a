// Describe a type and create it by name: who knows the name of a class can make it, and ask any object what it is.

#include <tarvo/tarvo.h>

#include <iostream>

class Shape : public CkISerializable
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    virtual double GetArea() const = 0;
};

class Square : public Shape
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static Square* Create() { return new Square; }

    double GetArea() const override { return m_side * m_side; }
    void Serialize(CkStreamWriteBinary& stream) const override { stream << m_side; }
    void Serialize(CkStreamReadBinary& stream) override { stream >> m_side; }

private:
    double m_side = 3;
};

// A shape as such cannot be made, so its record names no function for that.
const CkRTTI Shape::RTTI(CK_T("Shape"), CkISerializable::RTTI, nullptr, nullptr);
const CkRTTI Square::RTTI(CK_T("Square"), Shape::RTTI, &CreateByFactory<Square>, nullptr);

int main()
{
    for (const WCHAR* const name : {CK_T("Square"), CK_T("Shape")})
    {
        const CkSmartPointer<CkISerializable> object = CkISerializable::CreateByName(name);
        if (object && object->IsKindOf(Shape::RTTI))
            std::cout << "a " << object->GetClassNameW().ToUtf8() << " with the area "
                      << static_cast<const Shape&>(*object).GetArea() << '\n';
        else
            std::cout << "no " << CString(name).ToUtf8() << " can be made\n";
    }
}

// Prints:
//   a Square with the area 9
//   no Shape can be made
