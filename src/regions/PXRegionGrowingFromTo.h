#pragma once

#include "pximagecutter_export.h"

#include <QMetaType>

#include <cstddef>

/**
 * An ordered pair of superpixel labels: the label of a visited pixel and the
 * label of one of its neighbours. (a, b) and (b, a) are different pairs, so a
 * boundary is seen once from each side. Plain value type.
 */
class PXIMAGECUTTER_EXPORT PXRegionGrowingFromTo
{
public:
    PXRegionGrowingFromTo() = default;
    PXRegionGrowingFromTo(int from, int to);
    virtual ~PXRegionGrowingFromTo();

    PXRegionGrowingFromTo(const PXRegionGrowingFromTo&) = default;
    PXRegionGrowingFromTo& operator=(const PXRegionGrowingFromTo&) = default;

    int from() const { return m_from; }
    int to() const { return m_to; }

    bool operator==(const PXRegionGrowingFromTo& other) const
    {
        return m_from == other.m_from && m_to == other.m_to;
    }
    bool operator!=(const PXRegionGrowingFromTo& other) const { return !(*this == other); }

private:
    int m_from = 0;
    int m_to = 0;
};

/** to * 10000 + from (wrapping 32-bit arithmetic), xor @p seed. */
PXIMAGECUTTER_EXPORT size_t qHash(const PXRegionGrowingFromTo& key, size_t seed = 0) noexcept;

Q_DECLARE_METATYPE(PXRegionGrowingFromTo)
