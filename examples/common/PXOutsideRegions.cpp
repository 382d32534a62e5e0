#include "PXOutsideRegions.h"

#include <PXImageSegmentation.h>
#include <PXMementoSegmentation.h>

#include <QPainter>
#include <QPen>

#include <memory>

namespace {

// The library's label image and its filled lasso are 32-bit, one word a pixel.
bool isWordImage(const QImage& image)
{
    return !image.isNull() && image.depth() == 32;
}

} // namespace

bool PXOutsideRegions::touchedBy(PXImageSegmentation& segmentation, const QPainterPath& stroke)
{
    if (stroke.isEmpty())
        return false;
    const std::unique_ptr<PXMementoSegmentation> state(segmentation.createMemento(true));
    const QImage labels = state->labels();
    if (!isWordImage(labels))
        return false;
    if (labels.cacheKey() != m_labelsKey)
        read(segmentation, labels);

    // The stroke is rasterised as the library does (an unantialiased fill),
    // with its outline on top: the controller unites strokes that wait and
    // fills them at once, so a pixel on a stroke's edge may be reached even
    // where this stroke's own fill leaves it out.
    const QRect rect = stroke.boundingRect().toAlignedRect().adjusted(-1, -1, 1, 1).intersected(labels.rect());
    if (rect.isEmpty())
        return false;
    QImage brush(rect.size(), QImage::Format_ARGB32_Premultiplied);
    brush.fill(Qt::black);
    {
        QPainter painter(&brush);
        painter.translate(-rect.topLeft());
        painter.fillPath(stroke, Qt::white);
        painter.setPen(QPen(Qt::white, 0));
        painter.drawPath(stroke);
    }
    for (int y = rect.top(); y <= rect.bottom(); ++y) {
        const auto* labelLine = reinterpret_cast<const qint32*>(labels.constScanLine(y));
        const auto* brushLine = reinterpret_cast<const QRgb*>(brush.constScanLine(y - rect.top()));
        for (int x = rect.left(); x <= rect.right(); ++x) {
            const qint32 label = labelLine[x];
            if (brushLine[x - rect.left()] == 0xFFFFFFFFu && label > 0
                && std::size_t(label) < m_reachesOutside.size() && m_reachesOutside[std::size_t(label)])
                return true;
        }
    }
    return false;
}

void PXOutsideRegions::read(PXImageSegmentation& segmentation, const QImage& labels)
{
    m_labelsKey = labels.cacheKey();
    m_reachesOutside.clear();
    const QImage lasso = segmentation.createImageWithLassoPath();
    if (!isWordImage(lasso) || lasso.size() != labels.size())
        return;
    for (int y = 0; y < labels.height(); ++y) {
        const auto* labelLine = reinterpret_cast<const qint32*>(labels.constScanLine(y));
        const auto* lassoLine = reinterpret_cast<const QRgb*>(lasso.constScanLine(y));
        for (int x = 0; x < labels.width(); ++x) {
            const qint32 label = labelLine[x];
            if (label <= 0 || lassoLine[x] == 0xFFFFFFFFu)
                continue;
            if (std::size_t(label) >= m_reachesOutside.size())
                m_reachesOutside.resize(std::size_t(label) + 1, false);
            m_reachesOutside[std::size_t(label)] = true;
        }
    }
}
