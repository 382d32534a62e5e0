#pragma once

#include "PXMatteOptions.h"

#include <QImage>
#include <QList>

// The kernels of PXMatte: plain functions over plain data.
namespace PXMatteSteps {

/** The part of the photo whose matte one slice of the pass computes. */
struct Tile {
    int left = 0, top = 0;
    int right = 0, bottom = 0; // exclusive
};

/** Where a tile reads and writes; the outputs' pixels of a tile are its own. */
struct Frame {
    QImage photo; // Format_RGB32 or Format_ARGB32
    QImage mask; // Format_Grayscale8 of the photo's size, 0 or 255
    PXMatteOptions options;
    uchar* alpha = nullptr; // Format_Grayscale8 bits
    qsizetype alphaStride = 0;
    uchar* foreground = nullptr; // Format_ARGB32 bits
    qsizetype foregroundStride = 0;
};

/** @p mask read as grey at @p size, thresholded to 0 and 255; null if no pixel is set. */
QImage hardMask(const QImage& mask, const QSize& size);

/** The photo cut into square tiles of a fixed size. */
QList<Tile> tiles(const QSize& size);

/** Writes the tile's pixels of alpha and foreground. */
void matteTile(const Tile& tile, const Frame& frame);

} // namespace PXMatteSteps
