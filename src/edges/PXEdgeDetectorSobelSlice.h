#pragma once

#include <QImage>

/**
 * One block of rows of the colour Sobel pass: reads @c source, writes rows
 * [firstRow, endRow) of the Sobel image through @c sobel (the first byte of
 * its pixel data) and counts each written strength in @c histogram.
 *
 * Made on the heap by PXEdgeDetectorSobelColor::createSobelSlices() and
 * deleted by PXEdgeDetectorSobelColor::accumulateValues().
 */
struct PXEdgeDetectorSobelSlice
{
    QImage source;
    uchar* sobel = nullptr;
    int firstRow = 0;
    int endRow = 0;
    int histogram[256] = {};
};
