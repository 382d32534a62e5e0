#pragma once

#include "PXEdgeDetectorSobelSlice.h"
#include "PXHandOver.h"
#include "PXRgbPixel.h"
#include "pximagecutter_export.h"

#include <QImage>
#include <QList>
#include <QMutex>
#include <QSize>
#include <QThread>

class PXImage;
class QFileInfo;

/**
 * Computes a grey edge-strength image of a photo from all three YCbCr
 * channels, and two statistics of its strength histogram, on its own thread.
 *
 * Call setup(), then start(); read sobel(), mean() and average() after
 * wait() has returned (they may be read from any thread; during a run they
 * read as a null image and 0). The image is opaque grey,
 * the strength (0..255) in each colour byte. Rows 1 .. height - 3 and
 * columns 1 .. width - 3 are computed; every other pixel is opaque black
 * (strength 0).
 *
 * mean() is the last strength at which fewer than half of the inner pixels
 * have been counted (one bin below the median), average() the truncated mean
 * strength; saturated pixels (255) are left out of both.
 *
 * The detector never deletes a PXImage handed to setup(PXImage*); one it made
 * in setup(const QImage&, const QFileInfo&) it deletes when it is replaced or
 * the detector is destroyed. Destroying a running detector waits for it.
 */
class PXIMAGECUTTER_EXPORT PXEdgeDetectorSobelColor : public QThread
{
    Q_OBJECT

public:
    PXEdgeDetectorSobelColor();
    ~PXEdgeDetectorSobelColor() override;

    /** Uses @p image, not owned, for the next run. Ignored while running. */
    void setup(PXImage* image);
    /** Makes and owns a working image of @p image. Ignored while running. */
    void setup(const QImage& image, const QFileInfo& file);

    /** wait() that also takes over the run's work (see PXHandOver). */
    void join();

    /** The last computed Sobel image; null before the first run ends. */
    QImage sobel() const;
    double mean() const;
    double average() const;

    /** Computes one slice on a pool thread; fills the slice's histogram. */
    static void createSobelSlice(PXEdgeDetectorSobelSlice* slice);
    /** |d byte 0| + |d byte 1| + |d byte 2| of two 32-bit pixels. */
    static int colorDifference(const PXRgbPixel& first, const PXRgbPixel& second);
    /** An uninitialised ARGB32 image of @p size. */
    static QImage createSobelImage(QSize size);
    /**
     * Writes opaque black into the first and last row and, for images of at
     * least 7 rows, into pixels (0, y) and (y - 1, y) for y = 1 .. height - 6.
     */
    static void prepareSobelBorder(QImage& image);
    /** One slice per block of height / cores rows (at least one row each). */
    QList<PXEdgeDetectorSobelSlice*> createSobelSlices(QImage& sobel, const QImage& source) const;
    /** Sums the 256 counters of @p slices, then deletes the slices. */
    QList<int> accumulateValues(const QList<PXEdgeDetectorSobelSlice*>& slices) const;
    /** Sets mean() and average() from strengths 0..254 of @p histogram. */
    void calculateMedianAndMean(const QList<int>& histogram, int half);
    /** Half the number of inner pixels: ((height - 2) * (width - 2)) / 2. */
    static int detectMeanBorder(QImage image);

protected:
    void run() override;

private:
    PXIMAGECUTTER_NO_EXPORT void releaseOwnedImage();

    PXImage* m_image = nullptr;
    QImage m_sobel;
    double m_average = 0.0;
    double m_mean = 0.0;
    // The image made by setup(const QImage&, const QFileInfo&), if any.
    PXImage* m_ownedImage = nullptr;
    // Readers on other threads may ask while run() replaces the results.
    mutable QMutex m_resultMutex;
    PXHandOver m_handOver;
};
