// Registers the superpixel types with Qt's meta-type system when the library
// is loaded.
#include "PXSuperPixel.h"

#include <QMetaType>

static void registerSuperPixelsMetaTypes()
{
    qRegisterMetaType<PXSuperPixel>();
}
Q_CONSTRUCTOR_FUNCTION(registerSuperPixelsMetaTypes)
