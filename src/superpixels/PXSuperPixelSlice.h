#pragma once

#include <QImage>
#include <QList>

class PXSuperPixel;

/**
 * One work item of PXSlic's centre update: recomputes the records
 * firstIndex..lastIndex from the labelled pixels of the rectangle
 * [left, right) x [top, bottom).
 *
 * Items of one pass own disjoint index ranges, so they may run concurrently;
 * each reads the whole rectangle.
 */
struct PXSuperPixelSlice
{
    /** The YCbCr image (a shared copy). */
    QImage image;
    /** The label image (a shared copy, only read). */
    QImage labels;
    /** First row: the top of the lasso rectangle. */
    int top = 0;
    /** The bottom row of the lasso rectangle, used as an exclusive bound. */
    int bottom = 0;
    /** First column: the left of the lasso rectangle. */
    int left = 0;
    /** The right column of the lasso rectangle, used as an exclusive bound. */
    int right = 0;
    /** The engine's records (a shared copy of the list). */
    QList<PXSuperPixel*> superPixels;
    /** First record index this item owns. */
    int firstIndex = 0;
    /** Last record index this item owns (inclusive). */
    int lastIndex = 0;
};
