// Registers the scissors' types with Qt's meta-type system when the library
// is loaded.
#include "PXIntelligentScissors.h"
#include "PXIntelligentScissorsWeightCalculator.h"
#include "PXIntelligentScissorsWireCalculator.h"
#include "PXIntelligentScissorsWorker.h"

#include <QMetaType>

static void registerScissorsMetaTypes()
{
    qRegisterMetaType<PXIntelligentScissorsWeightCalculator::Settings>();
    qRegisterMetaType<PXIntelligentScissors*>();
    qRegisterMetaType<PXIntelligentScissorsWorker*>();
    qRegisterMetaType<PXIntelligentScissorsWeightCalculator*>();
    qRegisterMetaType<PXIntelligentScissorsWireCalculator*>();
}
Q_CONSTRUCTOR_FUNCTION(registerScissorsMetaTypes)
