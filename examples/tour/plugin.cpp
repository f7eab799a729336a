// Load a plug-in that brings its own classes: they can be made by name as long as it is there.

#include "platform_module.h"
#include "plugin_shape.h"

#include <exception>
#include <iostream>

void printArea()
{
    // Goes before the function returns: no object may outlive the module of its class.
    const CkSmartPointer<CkISerializable> object = CkISerializable::CreateByName(CK_T("Rectangle"));
    if (const auto* const shape = dynamic_cast<const Shape*>(object.Get()))
        std::cout << "a rectangle with the area " << shape->GetArea() << '\n';
    else
        std::cout << "no rectangle\n";
}

int main()
try
{
    printArea();
    {
        const Module plugin("tour_plugin_rectangle");
        printArea();
    }
    printArea();
}
catch (const std::exception& exception)
{
    std::cerr << exception.what() << '\n';
    return 1;
}

// Prints:
//   no rectangle
//   a rectangle with the area 6
//   no rectangle
