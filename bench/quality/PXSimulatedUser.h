#pragma once

// A simulated user who corrects a cut with paint dots: each dot goes to the
// middle of the largest wrong area, marked as the truth says there.

#include <QImage>
#include <QList>
#include <QPoint>

#include <optional>

class PXCutter;

/** Where the user paints next. */
struct PXCorrection {
    QPoint centre; // the pixel farthest inside the area
    bool object = false; // the area is object left out (else background taken in)
    qint64 pixels = 0; // the area's size
};

/**
 * The largest 4-connected area where @p selection and @p truth (both
 * Format_Grayscale8, non-zero on the object) differ, object left out and
 * background taken in counted apart, and the pixel of it farthest from its
 * border (the photo's edge counts as a border); of equally deep pixels, the
 * one nearest their mean (the first in reading order of those). Nothing when
 * they agree.
 */
std::optional<PXCorrection> nextCorrection(const QImage& truth, const QImage& selection);

/** How the corrections went. */
struct PXUserRun {
    // Strokes until the IoU reached 0.90 and 0.95; -1: not within the limit.
    int strokesTo90 = -1;
    int strokesTo95 = -1;
    double finalIou = 0.0;
    QList<double> strokeMilliseconds;
};

/**
 * Corrects @p firstSelection, @p cutter's answer to the lasso, with dots of
 * radius @p radius until the IoU reaches 0.95 or @p maxStrokes were made.
 */
PXUserRun simulateUser(PXCutter& cutter, const QImage& truth, const QImage& firstSelection, int maxStrokes = 20,
    double radius = 6.0);
