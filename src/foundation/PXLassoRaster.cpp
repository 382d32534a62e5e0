#include "PXLassoRaster.h"

#include <QPainter>

#include <vector>

namespace {

constexpr int myMaximalExactElements = 64;
constexpr QRgb myInside = 0xFFFFFFFF;

struct Run {
    int left;
    int right; // exclusive
    int top;
};

} // namespace

bool PXLassoRaster::isIntricate(const QPainterPath& path)
{
    return path.elementCount() > myMaximalExactElements;
}

QImage PXLassoRaster::fill(const QPainterPath& path, const QRect& rect, const QPen& pen)
{
    if (rect.isEmpty())
        return QImage();
    QImage mask(rect.size(), QImage::Format_ARGB32_Premultiplied);
    if (mask.isNull())
        return mask;
    mask.fill(0);
    QPainter painter(&mask);
    painter.translate(-rect.topLeft());
    painter.setPen(pen);
    painter.setBrush(QColor(myInside));
    painter.drawPath(path);
    painter.end();
    return mask;
}

QPainterPath PXLassoRaster::pathOfMask(const QImage& mask, const QPoint& origin)
{
    QPainterPath path;
    if (mask.format() != QImage::Format_ARGB32_Premultiplied)
        return path;
    auto close = [&](const Run& run, int bottom) {
        path.addRect(QRectF(origin.x() + run.left, origin.y() + run.top, run.right - run.left, bottom - run.top));
    };
    std::vector<Run> open;
    std::vector<Run> current;
    const int width = mask.width();
    for (int y = 0; y <= mask.height(); ++y) {
        current.clear();
        if (y < mask.height()) {
            const auto* row = reinterpret_cast<const QRgb*>(mask.constScanLine(y));
            for (int x = 0; x < width;) {
                if (row[x] != myInside) {
                    ++x;
                    continue;
                }
                const int left = x;
                while (x < width && row[x] == myInside)
                    ++x;
                current.push_back({left, x, y});
            }
        }
        // Both lists run left to right: a run that matches one of the row
        // above continues its rectangle, every other open one ends here.
        std::size_t i = 0;
        for (Run& run : current) {
            while (i < open.size() && open[i].left < run.left)
                close(open[i++], y);
            if (i < open.size() && open[i].left == run.left && open[i].right == run.right)
                run.top = open[i++].top;
        }
        while (i < open.size())
            close(open[i++], y);
        open.swap(current);
    }
    return path;
}
