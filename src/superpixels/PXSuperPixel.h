#pragma once

#include "PXSimd.h"
#include "PXYCbCr.h"
#include "PXYCbCrPixel.h"
#include "pximagecutter_export.h"

#include <QMetaType>
#include <QPoint>
#include <QRgb>

#include <cmath>

/**
 * One superpixel: its mean colour, its centre and how many pixels it holds.
 *
 * While PXSlic accumulates, the same fields hold the sums of the colours and
 * coordinates; normalize() turns them into means. A record made by one of the
 * value constructors starts with a pixelCount of 1 although it holds no
 * accumulated pixel yet, so means computed on top of it are pulled toward its
 * initial values (zero for the records PXSlic rebuilds by counting); that bias
 * is relied on downstream.
 *
 * PXSlic owns its records through pointers; everybody else copies them by
 * value. Not thread-safe; PXSlic's parallel passes never let two threads write
 * the same record.
 */
class PXIMAGECUTTER_EXPORT PXSuperPixel
{
public:
    /** An empty record: colour 0, centre (0, 0), pixelCount 0. */
    PXSuperPixel() = default;
    /** Colour (luminance, cb, cr), centre (x, y), pixelCount 1. */
    PXSuperPixel(int luminance, int cb, int cr, int x, int y);
    /** The colour of @p pixel, centre @p centre, pixelCount 1. */
    PXSuperPixel(const PXYCbCrPixel& pixel, const QPoint& centre);
    virtual ~PXSuperPixel();

    PXSuperPixel(const PXSuperPixel&) = default;
    PXSuperPixel& operator=(const PXSuperPixel&) = default;

    /** The mean colour, or the colour sum while accumulating. */
    const PXYCbCr& color() const { return m_color; }
    /** The centre column, or the column sum while accumulating. */
    int xCenter() const { return m_xCenter; }
    /** The centre row, or the row sum while accumulating. */
    int yCenter() const { return m_yCenter; }
    int pixelCount() const { return m_pixelCount; }

    /** Clears colour, centre and pixelCount to 0, ready to accumulate. */
    void reset();
    /** Adds @p pixel at (@p x, @p y) to the sums and counts it. */
    void addPixel(const PXYCbCrPixel& pixel, int x, int y);
    /**
     * Adds @p count pixels at once, given by the sums of their colours and
     * coordinates; the same as adding them one by one.
     */
    PXIMAGECUTTER_NO_EXPORT void addPixels(const PXYCbCr& colorSum, int xSum, int ySum, int count);
    /**
     * Turns the sums into means: the colour rounded, the centre truncated
     * toward zero. Does nothing unless pixelCount is at least 2.
     */
    void normalize();

    /** The mean colour as an opaque QRgb (see PXYCbCr::rgb()). */
    QRgb averageRgb() const;
    PXYCbCr averageYCbCr() const { return m_color; }
    PXYCbCr absColorDistance(const PXSuperPixel& other) const;
    /** Squared colour distance, in wrapping 32-bit arithmetic. */
    int colorDistanceQuadrat(const PXYCbCrPixel& pixel) const
    {
        // PXYCbCr::distanceQuadrat() inline: the assignment kernels call this per pixel.
        const unsigned int luminance = m_color.luminance() - pixel.luminance;
        const unsigned int cb = m_color.cb() - pixel.cb;
        const unsigned int cr = m_color.cr() - pixel.cr;
        return static_cast<int>(luminance * luminance + cb * cb + cr * cr);
    }
    int colorDistanceQuadrat(const PXSuperPixel& other) const;

    /**
     * The clustering distance of @p pixel at (@p x, @p y) from this record:
     * the plain spatial distance in units of @p gridStep plus the squared
     * colour distance divided by 900, so that a colour difference of 30
     * levels weighs as much as one grid step.
     */
    float distance(int x, int y, const PXYCbCrPixel& pixel, float gridStep) const
    {
        const int colorQuadrat = colorDistanceQuadrat(pixel);
        // 64-bit so that far-off centres (a reset record sits at the origin) cannot overflow.
        const qint64 dx = qint64(m_xCenter) - x;
        const qint64 dy = qint64(m_yCenter) - y;
        // The root in double, rounded to float: the vector kernels' float root
        // of the same exact integer gives the identical value.
        const float spatial = float(std::sqrt(double(dx * dx + dy * dy)));
        return spatial / gridStep + float(colorQuadrat) / 900.0f;
    }

    /** Whether the centre column lies strictly closer than @p d to @p x. */
    bool isXCloserThan(float d, int x) const;
    /** Whether the centre row lies strictly closer than @p d to @p y. */
    bool isYCloserThan(float d, int y) const;
    /** Whether (@p x, @p y) lies strictly inside the square of half-width @p d round the centre. */
    bool isCloserThan(float d, int x, int y) const;

#ifdef PX_X86_64
    /** @name Broadcasts for the vector assignment kernels
     * The colour components and the centre as floats in every lane; the X8
     * forms may only be called from AVX2 code.
     */
    ///@{
    __m128 luminanceX4() const { return m_color.luminanceX4(); }
    __m128 cbX4() const { return m_color.cbX4(); }
    __m128 crX4() const { return m_color.crX4(); }
    __m128 xCenterX4() const { return _mm_set1_ps(float(m_xCenter)); }
    __m128 YCenterX4() const { return _mm_set1_ps(float(m_yCenter)); }
    PX_TARGET_AVX2 __m256 luminanceX8() const { return m_color.luminanceX8(); }
    PX_TARGET_AVX2 __m256 cbX8() const { return m_color.cbX8(); }
    PX_TARGET_AVX2 __m256 crX8() const { return m_color.crX8(); }
    PX_TARGET_AVX2 __m256 xCenterX8() const { return _mm256_set1_ps(float(m_xCenter)); }
    PX_TARGET_AVX2 __m256 YCenterX8() const { return _mm256_set1_ps(float(m_yCenter)); }
    ///@}
#endif

private:
    PXYCbCr m_color;
    int m_xCenter = 0;
    int m_yCenter = 0;
    int m_pixelCount = 0;
};

Q_DECLARE_METATYPE(PXSuperPixel)
