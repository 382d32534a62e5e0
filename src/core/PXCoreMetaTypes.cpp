// Registers the core library's types with Qt's meta-type system when the
// library is loaded, so they travel in QVariant and queued connections.
#include "PXIntRange.h"
#include "PXLogger.h"
#include "PXSettings.h"
#include "PXUndoController.h"

#include <QMetaType>

static void registerCoreMetaTypes()
{
    qRegisterMetaType<PXIntRange>();
    qRegisterMetaType<PXLogger*>();
    qRegisterMetaType<PXSettings*>();
    qRegisterMetaType<PXUndoController*>();
}
Q_CONSTRUCTOR_FUNCTION(registerCoreMetaTypes)
