#pragma once

// Raster forms of the path operations on a lasso. Internal header.
//
// The path clipper behind QPainterPath::united/subtracted/intersected slows
// down with the square of a path's self-crossings or worse: a jittery hand-
// drawn lasso of a few thousand points keeps it busy for minutes. Lassos of
// many elements are therefore filled on a raster instead, which costs the
// lasso's area in pixels whatever its shape.

#include <QImage>
#include <QPainterPath>
#include <QPen>
#include <QRect>

class PXLassoRaster
{
public:
    /**
     * Whether @p path has too many elements for the path clipper. A polygon
     * of up to 64 vertices, however it crosses itself, clips in well under a
     * second; every lasso clicked as a polygon stays on the exact path.
     */
    static bool isIntricate(const QPainterPath& path);

    /**
     * @p path filled with its own fill rule and, when @p pen is not
     * Qt::NoPen, stroked with @p pen, without antialiasing, on a
     * QImage::Format_ARGB32_Premultiplied image of @p rect's size whose
     * origin is @p rect's top left: 0xFFFFFFFF where painted, 0 elsewhere.
     * A pixel is painted when its centre is inside, as with any aliased fill.
     */
    static QImage fill(const QPainterPath& path, const QRect& rect, const QPen& pen = QPen(Qt::NoPen));

    /**
     * The 0xFFFFFFFF pixels of @p mask as a path of pixel rectangles, moved by
     * @p origin; runs repeated on consecutive rows share one rectangle.
     * Filling it without antialiasing paints exactly those pixels.
     */
    static QPainterPath pathOfMask(const QImage& mask, const QPoint& origin);

private:
    PXLassoRaster() = delete;
};
