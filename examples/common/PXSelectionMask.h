#pragma once

#include <QColor>
#include <QImage>

/**
 * Selections as a host edits them beyond what the library offers: combining
 * the cuts of several lassos, growing, shrinking and feathering.
 *
 * A selection is a QImage::Format_Grayscale8 image: 255 where the object is,
 * 0 where the background is, values between on a soft (feathered) edge. The
 * library's mask is the opposite coverage in colour: toMask() and
 * fromMask() convert between the two. Every function takes images of one
 * size, returns a new image, and never fails: a null input gives a null result.
 */
namespace PXSelectionMask {

/** The selection a library mask shows: 255 - the mask's alpha. */
QImage fromMask(const QImage& mask);

/**
 * The library mask of @p selection: opaque @p colour over the background,
 * transparent over the object, partly transparent on a soft edge.
 * QImage::Format_ARGB32_Premultiplied, as the library keeps its mask.
 */
QImage toMask(const QImage& selection, const QColor& colour);

/**
 * The selection a saved mask file holds: a picture with transparency is read
 * like the library's mask (transparent = object), an opaque one by its grey
 * level (white = object).
 */
QImage fromSaved(const QImage& saved);

/** Pixels selected in @p a or @p b (the larger value). */
QImage united(const QImage& a, const QImage& b);

/** Pixels of @p a not selected in @p b. */
QImage subtracted(const QImage& a, const QImage& b);

/** @p selection with every pixel within @p pixels (Euclidean) of it added. */
QImage grown(const QImage& selection, int pixels);

/** @p selection without the pixels within @p pixels (Euclidean) of its outside. */
QImage shrunk(const QImage& selection, int pixels);

/**
 * @p selection with a soft edge @p radius pixels wide centred on its outline:
 * 128 on the outline, rising to 255 at radius / 2 inside, falling to 0 at
 * radius / 2 outside. Pixels count as selected from 128 on.
 */
QImage feathered(const QImage& selection, qreal radius);

/** Share, from 0 to 1, of the pixels selected (128 or more). */
double selectedShare(const QImage& selection);

} // namespace PXSelectionMask
