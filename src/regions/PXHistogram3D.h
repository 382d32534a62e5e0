#pragma once

#include "PXYCbCr.h"
#include "pximagecutter_export.h"

#include <QImage>
#include <QList>
#include <QMetaType>

/**
 * A 16 x 16 x 16 histogram of the YCbCr colours of the pixels that a mask
 * marks (alpha >= 1), or of those it leaves unmarked (alpha 0).
 *
 * Construct it with the images, then count with buildHistogram() (on any
 * thread; a histogram is filled by one thread at a time). The luminance bin
 * varies fastest: index = Y / 16 + (Cb / 16) * 16 + (Cr / 16) * 256.
 * Plain value type, cheap to copy.
 */
class PXIMAGECUTTER_EXPORT PXHistogram3D
{
public:
    static constexpr int binsChannel1 = 16;
    static constexpr int binsChannel2 = 16;
    static constexpr int binsChannel3 = 16;
    static constexpr int range = 256;

    /** No bins, nothing counted. */
    PXHistogram3D() = default;
    /**
     * 4096 empty bins over @p ycbcrImage (32-bit pixels laid out as
     * PXYCbCrPixel), counting the pixels @p mask marks if @p useMarkedPixels,
     * else those it leaves unmarked.
     */
    PXHistogram3D(const QImage& ycbcrImage, const QImage& mask, bool useMarkedPixels);
    virtual ~PXHistogram3D();

    PXHistogram3D(const PXHistogram3D&) = default;
    PXHistogram3D& operator=(const PXHistogram3D&) = default;

    /** Counts the selected pixels. Pixels the mask does not cover are skipped. */
    void buildHistogram();
    /** The count of @p colour's bin; 0 for an index outside the bins. */
    int value(const PXYCbCr& colour) const;
    int createIndex(const PXYCbCr& colour) const;
    /** The number of pixels counted. */
    int size() const { return m_size; }
    QList<int> bins() const { return m_bins; }

private:
    QList<int> m_bins;
    int m_size = 0;
    QImage m_image;
    QImage m_mask;
    bool m_useMarkedPixels = false;
};

Q_DECLARE_METATYPE(PXHistogram3D)
