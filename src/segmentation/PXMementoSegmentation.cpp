#include "PXMementoSegmentation.h"

PXMementoSegmentation::PXMementoSegmentation()
    : m_maskColor(QColor(QColor().rgb()))
{
}

PXMementoSegmentation::PXMementoSegmentation(const QPainterPath& lassoPath,
                                             const QSet<int>& foreground,
                                             const QSet<int>& background, const QImage& mask,
                                             const QImage& labels,
                                             const QList<QList<QPoint>>& pointsOfSuperpixels,
                                             const QColor& maskColor)
    : m_pointsOfSuperpixels(pointsOfSuperpixels)
    , m_foregroundClusters(foreground)
    , m_backgroundClusters(background)
    , m_mask(mask)
    , m_labels(labels)
    , m_maskColor(maskColor)
    , m_lassoPath(lassoPath)
{
}

PXMementoSegmentation::~PXMementoSegmentation() = default;

PXMementoSegmentation* PXMementoSegmentation::clone() const
{
    return new PXMementoSegmentation(*this);
}
