// The plug-in. Its type record enters the class when the module is loaded and takes it out when it is unloaded; nothing
// else needs to be called, or exported.

#include "plugin_shape.h"

class Rectangle : public Shape
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override { return RTTI; }
    static Rectangle* Create() { return new Rectangle; }

    double GetArea() const override { return m_width * m_height; }
    void Serialize(CkStreamWriteBinary& stream) const override { stream << m_width << m_height; }
    void Serialize(CkStreamReadBinary& stream) override { stream >> m_width >> m_height; }

private:
    double m_width = 2;
    double m_height = 3;
};

const CkRTTI Rectangle::RTTI(CK_T("Rectangle"), CkISerializable::RTTI, &CreateByFactory<Rectangle>, nullptr);
