#pragma once

// What the three assignment kernels share. Internal header.

#include "PXSlicSlice.h"
#include "PXSuperPixel.h"
#include "PXYCbCrPixel.h"

#include <algorithm>
#include <memory>
#include <vector>

/**
 * One stripe made ready for an assignment kernel: its bounds clipped to the
 * image, row access to pixels and labels, and a buffer of best distances so
 * far for one band of rows at a time, all near FLT_MAX when the band starts.
 *
 * A kernel takes the bands top to bottom and, in each, the records in their
 * order: every pixel still meets its records in the order a single pass over
 * the whole stripe would, while the band's distances, labels and pixels stay
 * in the cache. The buffer covers just the stripe's columns.
 */
class PXSlicStripe
{
public:
    // Out of line, in baseline code: the vector kernels' files, built for a
    // raised instruction set, must not emit their own copies of them.
    explicit PXSlicStripe(const PXSlicSlice& slice);
    ~PXSlicStripe();
    PXSlicStripe(const PXSlicStripe&) = delete;
    PXSlicStripe& operator=(const PXSlicStripe&) = delete;

    /** Rows per band. */
    static constexpr int BandRows = 32;

    bool isEmpty() const { return !m_distances; }
    int yStart() const { return m_yStart; }
    int yEnd() const { return m_yEnd; }
    /**
     * Starts the band of rows [@p top, the returned row): its distances are
     * reset and distanceRow() takes its rows.
     */
    int startBand(int top);

    /**
     * The search window of @p record, Sint = @p gridStep on each side of its
     * centre, clamped to the stripe: columns [xLo, xHi), rows [yLo, yHi).
     * False if it is empty.
     */
    bool window(const PXSuperPixel& record, int gridStep, int& xLo, int& xHi, int& yLo, int& yHi) const
    {
        xLo = clamped(qint64(record.xCenter()) - gridStep, m_xStart, m_xEnd);
        xHi = clamped(qint64(record.xCenter()) + gridStep, m_xStart, m_xEnd);
        yLo = clamped(qint64(record.yCenter()) - gridStep, m_yStart, m_yEnd);
        yHi = clamped(qint64(record.yCenter()) + gridStep, m_yStart, m_yEnd);
        return xLo < xHi && yLo < yHi;
    }

    /**
     * Calls @p visit(record, label, xLo, xHi, yLo, yHi) for every superpixel
     * of @p slice whose window meets a band, band by band, its rows clipped
     * to the band: each pixel still meets the superpixels in label order,
     * while the band's rows stay in the cache.
     */
    template <typename Visit>
    void forEachWindowInBands(const PXSlicSlice& slice, Visit visit)
    {
        for (int top = m_yStart; top < m_yEnd; top += BandRows) {
            const int bottom = startBand(top);
            for (int k = 1; k < slice.superPixels.size(); ++k) {
                const PXSuperPixel& record = *slice.superPixels.at(k);
                int xLo, xHi, yLo, yHi;
                if (!window(record, slice.gridStep, xLo, xHi, yLo, yHi))
                    continue;
                yLo = std::max(yLo, top);
                yHi = std::min(yHi, bottom);
                if (yLo < yHi)
                    visit(record, k, xLo, xHi, yLo, yHi);
            }
        }
    }

    /** Row @p y of the image, indexed by column. */
    const PXYCbCrPixel* pixelRow(int y) const { return m_pixels + qint64(y) * m_imageWidth; }
    /** Row @p y of the labels, indexed by column. */
    quint32* labelRow(int y) const { return m_labels + qint64(y) * m_imageWidth; }
    /** Row @p y of the current band's distances, indexed by column - xStart(). */
    float* distanceRow(int y) { return m_distances.get() + qint64(y - m_bandTop) * m_width; }
    int xStart() const { return m_xStart; }
    /** Room for @p count floats that live as long as the stripe. */
    float* spatialTable(std::size_t count);

    /**
     * The scalar step for columns [@p xLo, @p xHi) of row @p y: a pixel goes
     * to @p label if @p record is strictly closer than the best so far.
     */
    void assignRange(const PXSuperPixel& record, quint32 label, int xLo, int xHi, int y, float gridStep)
    {
        const PXYCbCrPixel* pixels = pixelRow(y);
        quint32* labels = labelRow(y);
        float* distances = distanceRow(y);
        for (int x = xLo; x < xHi; ++x) {
            const float d = record.distance(x, y, pixels[x], gridStep);
            if (distances[x - m_xStart] > d) {
                distances[x - m_xStart] = d;
                labels[x] = label;
            }
        }
    }

private:
    // max(low, min(high, value)): an upper bound below low yields low, so the window is empty.
    static int clamped(qint64 value, int low, int high)
    {
        return int(std::max<qint64>(low, std::min<qint64>(high, value)));
    }

    int m_xStart = 0;
    int m_xEnd = 0;
    int m_yStart = 0;
    int m_yEnd = 0;
    int m_width = 0;
    int m_bandTop = 0;
    int m_imageWidth = 0;
    const PXYCbCrPixel* m_pixels = nullptr;
    quint32* m_labels = nullptr;
    std::unique_ptr<float[]> m_distances;
    std::vector<float> m_spatial;
};
