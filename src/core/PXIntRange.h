#pragma once

#include "PXRange.h"
#include "pxcore_export.h"

#include <QList>
#include <QMetaType>

class QImage;

/**
 * An inclusive int range that also knows how to cut an image's rows or
 * columns into one block per processor core.
 *
 * Loops run from first() while the index differs from
 * lastIndexEvenIfUnvalid(), which is last + 1 for a valid range and first for
 * an invalid one, so an empty range runs no iteration.
 */
class PXCORE_EXPORT PXIntRange : public PXRange<int>
{
public:
    PXIntRange() = default;
    PXIntRange(int first, int last);

    /** Row indices of @p image: (0, height - 1). */
    static PXIntRange rowsOfImage(const QImage& image);
    /** Column indices of @p image: (0, width - 1). */
    static PXIntRange columnsOfImage(const QImage& image);

    /** last - first + 1 for a valid range, 0 otherwise. */
    int countElements() const;
    /** Exclusive loop end: last + 1 for a valid range, first otherwise. */
    int lastIndexEvenIfUnvalid() const;
    /**
     * Consecutive, non-overlapping blocks covering the range, one per core
     * (PXPlatformIndependent::numberOfCores()), fewer when the range is
     * shorter. The first (count % cores) blocks are one element longer.
     * An invalid range gives an empty list.
     */
    QList<PXIntRange> splitEvenlyForCpuCores() const;
};

Q_DECLARE_METATYPE(PXIntRange)
