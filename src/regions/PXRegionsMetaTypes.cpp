// Registers the region segmentation types with Qt's meta-type system when the
// library is loaded.
#include "PXBackgroundExtractor.h"
#include "PXHistogram3D.h"
#include "PXHistogram3DIndex.h"
#include "PXInitialSegmentationWorker.h"
#include "PXRegionGrowing.h"
#include "PXRegionGrowingEdge.h"
#include "PXRegionGrowingEdgeCandidate.h"
#include "PXRegionGrowingFromTo.h"

#include <QMetaType>

static void registerRegionsMetaTypes()
{
    qRegisterMetaType<PXRegionGrowingFromTo>();
    qRegisterMetaType<PXRegionGrowingEdgeCandidate>();
    qRegisterMetaType<PXRegionGrowingEdge>();
    qRegisterMetaType<PXRegionGrowing*>();
    qRegisterMetaType<PXInitialSegmentationWorker*>();
    qRegisterMetaType<PXHistogram3D>();
    qRegisterMetaType<PXHistogram3DIndex>();
    qRegisterMetaType<PXBackgroundExtractor>();
}
Q_CONSTRUCTOR_FUNCTION(registerRegionsMetaTypes)
