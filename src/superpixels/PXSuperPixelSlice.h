#pragma once

#include <QImage>
#include <QList>

class PXSuperPixel;

/**
 * One work item of PXSlic's centre update: the sums of the records
 * firstIndex..lastIndex over the labelled pixels of the band
 * [left, right) x [top, bottom).
 *
 * Items of one pass cover disjoint bands and only read; the engine adds
 * their sums up and writes the records.
 */
struct PXSuperPixelSlice
{
    /** The YCbCr image (a shared copy). */
    QImage image;
    /** The label image (a shared copy, only read). */
    QImage labels;
    /** First row of the band. */
    int top = 0;
    /** The row after the band: the last band ends at the lasso rectangle's bottom row, exclusive. */
    int bottom = 0;
    /** First column: the left of the lasso rectangle. */
    int left = 0;
    /** The right column of the lasso rectangle, used as an exclusive bound. */
    int right = 0;
    /** The engine's records (a shared copy of the list). */
    QList<PXSuperPixel*> superPixels;
    /** First record index summed. */
    int firstIndex = 0;
    /** Last record index summed (inclusive). */
    int lastIndex = 0;
};
