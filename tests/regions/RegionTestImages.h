#pragma once

#include "PXImage.h"
#include "PXSuperPixel.h"

#include <QFileInfo>
#include <QImage>
#include <QList>

#include <initializer_list>

// Small crafted images for the region tests.
namespace RegionTestImages {

/** A 32-bit label image, one signed label per pixel, rows top to bottom. */
inline QImage labelImage(std::initializer_list<std::initializer_list<int>> rows)
{
    const int height = int(rows.size());
    const int width = height ? int(rows.begin()->size()) : 0;
    QImage image(width, height, QImage::Format_ARGB32);
    int y = 0;
    for (const auto& row : rows) {
        auto* out = reinterpret_cast<qint32*>(image.scanLine(y++));
        int x = 0;
        for (int label : row)
            out[x++] = label;
    }
    return image;
}

/** An edge image whose red byte is the strength. */
inline QImage edgeImage(std::initializer_list<std::initializer_list<int>> rows)
{
    const int height = int(rows.size());
    const int width = height ? int(rows.begin()->size()) : 0;
    QImage image(width, height, QImage::Format_ARGB32);
    int y = 0;
    for (const auto& row : rows) {
        int x = 0;
        for (int strength : row)
            image.setPixel(x++, y, qRgb(strength, strength, strength));
        ++y;
    }
    return image;
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
