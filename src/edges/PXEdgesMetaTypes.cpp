// Registers the edge detector with Qt's meta-type system when the library is
// loaded.
#include "PXEdgeDetectorSobelColor.h"

#include <QMetaType>

static void registerEdgesMetaTypes()
{
    qRegisterMetaType<PXEdgeDetectorSobelColor*>();
}
Q_CONSTRUCTOR_FUNCTION(registerEdgesMetaTypes)
