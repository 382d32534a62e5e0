#pragma once

#include "PXImage.h"
#include "PXSuperPixel.h"

#include <QFileInfo>
#include <QImage>
#include <QList>

#include <initializer_list>

// Small crafted images for the region tests.
namespace RegionTestImages {

/** A 32-bit image from rows of values, top to bottom, each made a pixel by @p pixel. */
inline QImage rowsImage(std::initializer_list<std::initializer_list<int>> rows, QRgb (*pixel)(int))
{
    QImage image(rows.size() ? int(rows.begin()->size()) : 0, int(rows.size()), QImage::Format_ARGB32);
    int y = 0;
    for (const auto& row : rows) {
        int x = 0;
        for (int value : row)
            image.setPixel(x++, y, pixel(value));
        ++y;
    }
    return image;
}

/** One signed label per pixel. */
inline QImage labelImage(std::initializer_list<std::initializer_list<int>> rows)
{
    return rowsImage(rows, [](int label) { return QRgb(label); });
}

/** An edge image whose red byte is the strength. */
inline QImage edgeImage(std::initializer_list<std::initializer_list<int>> rows)
{
    return rowsImage(rows, [](int strength) { return qRgb(strength, strength, strength); });
}

inline QImage uniformEdgeImage(const QSize& size, int strength)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(qRgb(strength, strength, strength));
    return image;
}

/** A working image of @p size whose YCbCr twin is filled with @p ycbcr. */
inline PXImage* workingImage(const QSize& size, QRgb ycbcr = qRgb(0, 128, 128))
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(ycbcr);
    return new PXImage(image, image, QFileInfo());
}

/** A record of mean colour (y, cb, cr) that claims @p pixels pixels. */
inline PXSuperPixel superPixel(int y, int cb, int cr, int pixels)
{
    PXSuperPixel record(y, cb, cr, 0, 0);
    PXYCbCrPixel none{0, 0, 0, 255};
    for (int i = 1; i < pixels; ++i)
        record.addPixel(none, 0, 0);
    return record;
}

} // namespace RegionTestImages
