// Registers the superpixel types with Qt's meta-type system when the library
// is loaded.
#include "PXSlic.h"
#include "PXSuperPixel.h"

#include <QMetaType>

static void registerSuperPixelsMetaTypes()
{
    qRegisterMetaType<PXSuperPixel>();
    qRegisterMetaType<PXSlic*>();
}
Q_CONSTRUCTOR_FUNCTION(registerSuperPixelsMetaTypes)
