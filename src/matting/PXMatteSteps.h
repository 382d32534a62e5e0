#pragma once

#include "PXMatteOptions.h"

#include <QImage>
#include <QList>

// The kernels of PXMatte: plain functions over plain data.
namespace PXMatteSteps {

/** Rows of the photo whose matte one slice of the pass computes. */
struct Strip {
    int top = 0;
    int bottom = 0; // exclusive
};

/** Where a strip reads and writes; the outputs' rows of a strip are its own. */
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

/** The photo's rows cut into strips of a fixed height. */
QList<Strip> strips(int height);

/** Writes the strip's rows of alpha and foreground. */
void matteStrip(const Strip& strip, const Frame& frame);

} // namespace PXMatteSteps
