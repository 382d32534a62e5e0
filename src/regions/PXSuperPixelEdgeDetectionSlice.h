#pragma once

#include "PXSuperPixel.h"

#include <QImage>
#include <QList>

/**
 * One task of the graph builder: scans rows [top, bottom) and columns
 * [left, right) of @c labelImage and visits only the pixels whose label lies
 * in [firstLabel, lastLabel]. The edge strength of a pixel is the red byte of
 * @c edgeImage; @c superPixels is indexed by label.
 */
struct PXSuperPixelEdgeDetectionSlice
{
    QImage edgeImage;
    QImage labelImage;
    int top = 0;
    int bottom = 0;
    int left = 0;
    int right = 0;
    QList<PXSuperPixel> superPixels;
    int firstLabel = 0;
    int lastLabel = 0;
};
