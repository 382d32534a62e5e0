#pragma once

#include <QColor>
#include <QImage>
#include <QList>
#include <QPoint>
#include <QString>

#include <utility>

/**
 * The pictures a host makes from the library's results. Every function takes
 * images of one size; a mask is the library's: opaque where the background
 * is, fully transparent over the object (see PXImageSegmentation).
 */
namespace PXHostImages {

/** The contour colour of overlays: bright enough on both dark and light photos. */
inline QColor contourColour() { return QColor(0x00, 0xE5, 0xFF); }

/**
 * @p photo with the background made transparent: each pixel keeps
 * (1 - mask alpha) of its own alpha. QImage::Format_ARGB32.
 */
QImage cutOut(const QImage& photo, const QImage& mask);

/**
 * @p photo with @p mask drawn over it at @p maskOpacity and the opaque pixels
 * of @p contours (may be null) drawn in contourColour(). QImage::Format_RGB32.
 */
QImage overlay(const QImage& photo, const QImage& mask, const QImage& contours,
    qreal maskOpacity = 0.5);

/**
 * @p cutout over a grey checkerboard, so that what is cut away shows as the
 * board and soft edges as a blend. QImage::Format_RGB32.
 */
QImage overCheckerboard(const QImage& cutout);

/**
 * The cut-outs of @p panels side by side with a small gap, each over a
 * checkerboard and under a band with its caption; all cut-outs of one size.
 * QImage::Format_RGB32.
 */
QImage sideBySide(const QList<std::pair<QString, QImage>>& panels);

/** @p image's opaque pixels recoloured to @p colour, alpha kept. */
QImage recoloured(const QImage& image, const QColor& colour);

/**
 * The outline of the selection @p mask shows: its object pixels next to the
 * background (4-neighbours) in white, the background pixels next to the
 * object in black, everything else transparent. Two tones, so the line shows
 * on dark and light photos. QImage::Format_ARGB32.
 */
QImage selectionOutline(const QImage& mask);

/** Share, from 0 to 1, of the pixels where @p mask is more than half transparent. */
double objectShare(const QImage& mask);

/**
 * @p photo with each wire drawn as a two-pixel line and each wire's first
 * point marked. QImage::Format_RGB32.
 */
QImage wires(const QImage& photo, const QList<QList<QPoint>>& wires);

} // namespace PXHostImages
