// Registers the segmentation controller's types with Qt's meta-type system
// when the library is loaded.
#include "PXImageSegmentation.h"
#include "PXMementoSegmentation.h"

#include <QMetaType>

static void registerSegmentationMetaTypes()
{
    qRegisterMetaType<PXImageSegmentation*>();
    qRegisterMetaType<PXMementoSegmentation>();
}
Q_CONSTRUCTOR_FUNCTION(registerSegmentationMetaTypes)
