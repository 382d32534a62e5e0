#pragma once

// Geometry of selections for the quality bench: distances, connected areas
// and outlines over Format_Grayscale8 masks (non-zero = set).

#include <QImage>
#include <QList>
#include <QPointF>
#include <QRect>

#include <vector>

/**
 * Squared Euclidean distance from each pixel of @p mask to the nearest set
 * pixel (0 on set pixels, a huge value everywhere when none is set), row by
 * row. Exact (two passes of lower envelopes of parabolas).
 */
std::vector<float> squaredDistanceToSet(const QImage& mask);

/** A connected area of a mask. */
struct PXMaskArea {
    int label = 0;
    qint64 pixels = 0;
    QRect bounds;
};

/**
 * Labels the 4-connected areas of set pixels of @p mask, 1.., into @p labels
 * (0 outside every area; row by row) and returns the areas in label order.
 */
QList<PXMaskArea> connectedAreas(const QImage& mask, std::vector<int>* labels);

/**
 * The outer border of the 8-connected area of @p mask that holds @p start (a
 * set pixel whose upper and left neighbours are unset, e.g. the area's first
 * pixel in reading order), as pixel centres in clockwise order.
 */
QList<QPointF> outerBorder(const QImage& mask, QPoint start);
