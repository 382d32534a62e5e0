#pragma once

#include "PXSimd.h"
#include "PXYCbCrPixel.h"
#include "pximagecutter_export.h"

#include <QMetaType>
#include <QRgb>

/**
 * A YCbCr colour, or the running sum of many (superpixel means accumulate
 * here), as three unsigned 32-bit components.
 *
 * Differences are taken in wrapping 32-bit arithmetic and read as signed, so
 * a smaller component gives a negative difference as if the fields were
 * signed. Plain value type.
 */
class PXIMAGECUTTER_EXPORT PXYCbCr
{
public:
    PXYCbCr() = default;
    /** Luminance from byte 2, Cb from byte 1, Cr from byte 0 of @p pixel. */
    explicit PXYCbCr(const PXYCbCrPixel& pixel);
    PXYCbCr(unsigned int luminance, unsigned int cb, unsigned int cr);
    virtual ~PXYCbCr();

    PXYCbCr(const PXYCbCr&) = default;
    PXYCbCr& operator=(const PXYCbCr&) = default;

    void clear();

    bool operator==(const PXYCbCr& other) const;
    bool operator!=(const PXYCbCr& other) const { return !(*this == other); }
    PXYCbCr& operator+=(const PXYCbCr& other);
    PXYCbCr& operator+=(const PXYCbCrPixel& pixel);
    /**
     * Each component becomes its quotient by @p n rounded half away from zero
     * (computed in double). Callers divide by counts of at least 2; 0 leaves
     * the value unchanged.
     */
    PXYCbCr& operator/=(int n);

    /** Component-wise absolute signed difference. */
    PXYCbCr absDistance(const PXYCbCr& other) const;
    /** Squared Euclidean distance in wrapping 32-bit arithmetic. */
    int distanceQuadrat(const PXYCbCr& other) const;
    int distanceQuadrat(const PXYCbCrPixel& pixel) const;

    unsigned int luminance() const { return m_luminance; }
    unsigned int cb() const { return m_cb; }
    unsigned int cr() const { return m_cr; }

    /**
     * The colour as an opaque QRgb, in mixed float/double precision. The red
     * channel is computed from Cb, not Cr: superpixel colours shown to the
     * rest of the system have always been made this way.
     */
    QRgb rgb() const;

#ifdef PX_X86_64
    /** The component as float, broadcast to 4 lanes. */
    __m128 luminanceX4() const { return _mm_set1_ps(float(m_luminance)); }
    __m128 cbX4() const { return _mm_set1_ps(float(m_cb)); }
    __m128 crX4() const { return _mm_set1_ps(float(m_cr)); }
    /** The component as float, broadcast to 8 lanes (AVX callers only). */
    PX_TARGET_AVX2 __m256 luminanceX8() const { return _mm256_set1_ps(float(m_luminance)); }
    PX_TARGET_AVX2 __m256 cbX8() const { return _mm256_set1_ps(float(m_cb)); }
    PX_TARGET_AVX2 __m256 crX8() const { return _mm256_set1_ps(float(m_cr)); }
#endif

private:
    unsigned int m_luminance = 0;
    unsigned int m_cb = 0;
    unsigned int m_cr = 0;
};

Q_DECLARE_METATYPE(PXYCbCr)
