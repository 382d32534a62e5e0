// Registers the foundation's types with Qt's meta-type system when the
// library is loaded.
#include "PXImage.h"
#include "PXImageCutterSettings.h"
#include "PXYCbCr.h"

#include <QMetaType>

static void registerFoundationMetaTypes()
{
    qRegisterMetaType<PXYCbCr>();
    qRegisterMetaType<PXImage>();
    qRegisterMetaType<PXImageCutterSettings*>();
}
Q_CONSTRUCTOR_FUNCTION(registerFoundationMetaTypes)
