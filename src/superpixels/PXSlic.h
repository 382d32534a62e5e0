#pragma once

#include "PXSlicSlice.h"
#include "PXSuperPixelSlice.h"
#include "PXYCbCrPixel.h"
#include "pximagecutter_export.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QPainterPath>
#include <QPoint>
#include <QRect>

class PXImage;
class PXSuperPixel;

/**
 * Cuts the part of a photo under a lasso into compact superpixels of similar
 * colour (simple linear iterative clustering in YCbCr).
 *
 * Work is confined to the lasso rectangle, the lasso's bounding rectangle
 * rounded by QRectF::toRect() (and clipped to the photo). Its right and bottom
 * edges serve as exclusive bounds, so the last column and row of the
 * rectangle are never assigned or accumulated; the stages downstream expect
 * exactly that.
 *
 * Use: setup(), run() (in a worker thread; it blocks and uses the global
 * thread pool), then superPixelAssignments() and clusterInformations(). Each
 * stage of run() is public as well, so that a host or a test can drive them
 * one by one in the same order. An engine is meant to run once: running again
 * appends a second dummy record and a second set of seeds to the list.
 *
 * The label image (Format_ARGB32, the photo's size) holds one signed 32-bit
 * label per pixel: 0 for unassigned, 1..n-1 for an index into the record
 * list (index 0 is a dummy), and outsideLabel() outside the lasso. The
 * connectivity stage treats the outside like any other label, so after run()
 * the clipped outside parts carry superpixel labels of their own.
 *
 * The engine owns its records and the labels; it does not own the image,
 * which must outlive it. Not thread-safe: call everything from one thread.
 */
class PXIMAGECUTTER_EXPORT PXSlic : public QObject
{
    Q_OBJECT

public:
    PXSlic();
    ~PXSlic() override;

    /**
     * Stores @p image (not owned; may be null, then nothing is computed) and
     * @p lasso, in image coordinates, and chooses the number of superpixels
     * and the grid step from the lasso rectangle.
     */
    void setup(PXImage* image, const QPainterPath& lasso);
    /** The number of superpixels setup() chooses for the stored lasso: 100 to 1200. */
    int countSuperPixels() const;
    /**
     * Sets the number of superpixels to @p count and the grid step S to
     * sqrt(w * h / count) of the lasso's unrounded bounding rectangle. A
     * @p count below 1 is ignored.
     */
    void setupParameters(int count);

    /**
     * The whole clustering: initialize(), adjustSuperPixels(),
     * clipLabelsToLasso() and forceConnectivity(), emitting increaseProgress()
     * after each. Blocks the calling thread.
     */
    void run();
    /** The number of increaseProgress() signals one run() emits. */
    static int totalProgressSteps();

    /** A shared copy of the label image. */
    QImage superPixelAssignments() const;
    /**
     * Replaces the label image, for hosts and tests that drive the stages one
     * by one. Ignored unless @p labels is a Format_ARGB32 image of the photo's
     * size.
     */
    void setSuperPixelAssignments(const QImage& labels);
    /** Copies of all records, the dummy at index 0 included, in index order. */
    QList<PXSuperPixel> clusterInformations() const;
    /** The record at @p index, owned by the engine; null for an index out of range. */
    PXSuperPixel* clusterInformations(int index) const;
    /** The lasso rectangle, clipped to the photo. */
    QRect lassoBoundingRect() const;
    /** The value clipLabelsToLasso() gives pixels outside the lasso (-1). */
    static qint32 outsideLabel();

    double gridStep() const { return m_gridStep; }
    int superPixelCount() const { return m_superPixelCount; }
    int iterations() const { return m_iterations; }

    /**
     * Stage 1: appends the dummy record and one record per grid point of the
     * lasso rectangle (row by row), each seeded with the colour of its grid
     * point and centred on the smallest gradient nearby, and creates the
     * label image filled with 0.
     */
    void initialize();
    /**
     * The position of the smallest gradient in the 3 x 3 neighbourhood of
     * (@p x, @p y), columns outer, rows inner, first one winning a tie. The
     * gradient of (i, j) adds the luminance step to (i + 1, j) and the step to
     * the first pixel of row j + 1. @p bits is the YCbCr image's first pixel;
     * positions that would read outside it are not candidates, and (@p x,
     * @p y) comes back when none is left.
     */
    QPoint findLocalGradientMinimum(int x, int y, const PXYCbCrPixel* bits) const;
    /**
     * Stage 2: the assignment and update rounds. Each round cuts the lasso
     * rectangle into column stripes, maps the fastest kernel the processor
     * allows over them on the global pool, then calls
     * updateSuperPixelInformations().
     */
    void adjustSuperPixels();
    /** The scalar assignment kernel for one stripe; the reference of the vector kernels. */
    static void adjustSuperPixelSlice(const PXSlicSlice& slice);
    /**
     * The 4-lane (SSE4.1) assignment kernel. Within whole blocks of 4 columns
     * lane i takes the colour of column x0 + i but the spatial distance of
     * column x0 + 3 - i, so its labels differ from the scalar kernel's in that
     * fixed way. Call only if pxCpuHasFeature(CPU_FEATURE_SSE); does nothing
     * on processors other than x86-64.
     */
    static void adjustSuperPixelSliceSSE(const PXSlicSlice& slice);
    /**
     * The 8-lane (AVX2) assignment kernel: as the SSE one over blocks of 8
     * columns, with lane 3 taking its luminance from column x0 and lanes 1
     * and 6 their Cr from columns x0 + 2 and x0 + 7. Call only if
     * pxCpuHasFeature(CPU_FEATURE_AVX); does nothing on processors other than
     * x86-64.
     */
    static void adjustSuperPixelSliceAVX(const PXSlicSlice& slice);
    /**
     * Recomputes every record from the labels inside the lasso rectangle, in
     * parallel over ranges of record indices; the dummy record is reset.
     */
    void updateSuperPixelInformations();
    /** Recomputes the records of one index range (reset, accumulate, normalise). */
    static void updateSuperPixelSlice(const PXSuperPixelSlice& slice);

    /**
     * Stage 3: gives every pixel outside the lasso outsideLabel(), then
     * updates the records.
     */
    void clipLabelsToLasso();
    /**
     * Stage 4: renumbers every 4-connected piece of equal labels that starts
     * inside the lasso rectangle as a superpixel of its own (the outside of
     * the lasso is a label like any other), marks pieces too small with
     * labels from -2 downward, rebuilds the records from the labels, then
     * calls allocateSmallClusters().
     */
    void forceConnectivity();
    /**
     * Gives each small piece (label -2 or below) to the 8-connected
     * neighbouring superpixel of the closest colour, or to a new record if it
     * has no neighbour, then updates the records.
     */
    void allocateSmallClusters();
    /**
     * Deletes all records and appends @p count new records of colour 0 at
     * (0, 0), each with a pixelCount of 1.
     */
    void initNewSuperPixels(int count);

signals:
    /** Emitted after each of the four stages of run(), in run()'s thread. */
    void increaseProgress();

private:
    PXIMAGECUTTER_NO_EXPORT QRectF clippedLassoRect() const;
    PXIMAGECUTTER_NO_EXPORT QImage imageYCbCr() const;
    PXIMAGECUTTER_NO_EXPORT bool hasLabelsFor(const QImage& image) const;

    double m_gridStep = 0.0;
    int m_superPixelCount = 0;
    int m_iterations = 10;
    QImage m_labels;
    QList<PXSuperPixel*> m_superPixels;
    QPainterPath m_lasso;
    PXImage* m_image = nullptr;
};
