#include "PXSegmentationQueries.h"

#include <PXImageSegmentation.h>

#include <QPainterPath>

#include <cmath>

namespace PXSegmentationQueries {

bool insideLasso(const PXImageSegmentation& segmentation, const QPointF& point)
{
    QPainterPath spot;
    spot.addRect(QRectF(point, QSizeF(1, 1)));
    return segmentation.containsPath(spot);
}

int regionCount(const PXImageSegmentation& segmentation, const QSize& size)
{
    const QPoint centre(size.width() / 2, size.height() / 2);
    const int reach = int(std::ceil(std::hypot(size.width(), size.height()))) + 2;
    return int(segmentation.superpixels(centre, 2 * reach).size());
}

} // namespace PXSegmentationQueries
