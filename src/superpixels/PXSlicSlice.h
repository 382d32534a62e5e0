#pragma once

#include <QImage>
#include <QList>
#include <QtGlobal>

class PXSuperPixel;

/**
 * One column stripe of PXSlic's assignment pass: the kernel assigns the
 * pixels of columns [xStart, xEnd) and rows [yStart, yEnd) to the nearest
 * record whose search window covers them.
 *
 * Stripes of one pass cover disjoint columns, so their kernels may write
 * the shared label bits concurrently. The records are only read.
 */
struct PXSlicSlice
{
    /** The YCbCr image (a shared copy). */
    QImage image;
    /** The first pixel of the label image; row stride is the image width. */
    quint32* labels = nullptr;
    /** The engine's records (a shared copy of the list; the records are shared). */
    QList<PXSuperPixel*> superPixels;
    /** Width of the lasso rectangle; no stripe is wider. */
    int lassoWidth = 0;
    /** Height of the lasso rectangle; no stripe is higher. */
    int lassoHeight = 0;
    /** First column of the stripe. */
    int xStart = 0;
    /** Column bound of the stripe (exclusive). */
    int xEnd = 0;
    /** First row: the top of the lasso rectangle. */
    int yStart = 0;
    /** The bottom row of the lasso rectangle, used as an exclusive bound. */
    int yEnd = 0;
    /** The grid step S, truncated: the search window reaches this far on each side. */
    int gridStep = 0;
};
