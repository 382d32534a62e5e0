#pragma once

#include <QPointF>
#include <QSize>

class PXImageSegmentation;

/** What both hosts ask a controller about its cut, beyond its signals. */
namespace PXSegmentationQueries {

/** Whether @p point lies in the lasso the controller analysed (grown as it grows it). */
bool insideLasso(const PXImageSegmentation& segmentation, const QPointF& point);

/** The number of regions: every label under a brush that covers a photo of @p size. */
int regionCount(const PXImageSegmentation& segmentation, const QSize& size);

} // namespace PXSegmentationQueries
