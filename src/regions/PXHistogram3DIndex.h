#pragma once

#include "pximagecutter_export.h"

#include <QMetaType>

#include <cstddef>

/**
 * The coordinates of one bin of a PXHistogram3D, for hosts that key tables by
 * bin. Plain value type.
 */
class PXIMAGECUTTER_EXPORT PXHistogram3DIndex
{
public:
    PXHistogram3DIndex() = default;
    PXHistogram3DIndex(int first, int second, int third);
    virtual ~PXHistogram3DIndex();

    PXHistogram3DIndex(const PXHistogram3DIndex&) = default;
    PXHistogram3DIndex& operator=(const PXHistogram3DIndex&) = default;

    int first() const { return m_first; }
    int second() const { return m_second; }
    int third() const { return m_third; }

    bool operator==(const PXHistogram3DIndex& other) const;
    bool operator!=(const PXHistogram3DIndex& other) const { return !(*this == other); }
    /**
     * first + second * 255 + third * 65025. The multipliers are 255, not the
     * bin count, as the index has always hashed; distinct bins may collide.
     */
    uint hash() const;

private:
    int m_first = 0;
    int m_second = 0;
    int m_third = 0;
};

/** @p key.hash() xor @p seed. */
PXIMAGECUTTER_EXPORT size_t qHash(const PXHistogram3DIndex& key, size_t seed = 0) noexcept;

Q_DECLARE_METATYPE(PXHistogram3DIndex)
