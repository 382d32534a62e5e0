#pragma once

#include "PXEdgeDetectorSobelColor.h"
#include "PXHandOver.h"
#include "PXRegionGrowing.h"
#include "PXSlic.h"
#include "PXSuperPixel.h"
#include "pximagecutter_export.h"

#include <QFileInfo>
#include <QFuture>
#include <QHash>
#include <QImage>
#include <QList>
#include <QObject>
#include <QPainterPath>
#include <QPoint>
#include <QRect>
#include <QSet>

#include <atomic>

class PXImage;

/**
 * The expensive first step of a cut: for one photo and one lasso, computes
 * the colour edge image, the SLIC superpixels inside the lasso and the merged
 * regions, on a pool thread.
 *
 * Create one worker per lasso in the thread that will receive its signals,
 * connect to them, then call startInitialSegmentation(). The run emits
 * resetProgress(), then one updateProgress() per stage of SLIC and of region
 * growing (delivered in the worker's thread), and finished() from the pool
 * thread when the results are ready. Read the results after finished(): the
 * label image (regions 1..N, 0 outside the lasso), one record and one pixel
 * list per region (entry 0 empty), the region adjacency (key 0 for the
 * outside of the lasso) and the two lasso paths.
 *
 * stop() takes effect at the next phase boundary: a stopped run emits nothing
 * more. A worker may be deleted at any time, stopped or not: the destructor
 * waits for its pool task and its edge detector thread. The worker owns its
 * working image and does not scale the photo; hosts scale it beforehand.
 * Workers compare equal when they were created in the same millisecond.
 */
class PXIMAGECUTTER_EXPORT PXInitialSegmentationWorker : public QObject
{
    Q_OBJECT

public:
    /** Makes the working image of @p image; emits updateProgress(0, 9). */
    PXInitialSegmentationWorker(const QImage& image, const QFileInfo& file);
    /** Takes over @p image, colour spaces and all: nothing is converted again. */
    explicit PXInitialSegmentationWorker(const PXImage& image);
    ~PXInitialSegmentationWorker() override;

    /**
     * Stores @p lasso and starts the run on QThreadPool::globalInstance();
     * returns at once. A worker runs once: later calls return the first
     * run's future and change nothing.
     */
    QFuture<void> startInitialSegmentation(const QPainterPath& lasso);
    /**
     * Asks the run to end at its next phase boundary; a run the pool has not
     * begun yet ends before it does anything. Any thread.
     */
    void stop();
    /** Whether a run is under way and has not been stopped. Any thread. */
    bool isRunning() const;

    QImage labels() const { return m_labels; }
    QList<PXSuperPixel> superpixel() const { return m_superpixels; }
    QList<QList<QPoint>> pointsOfSuperpixel() const { return m_pointsOfSuperpixels; }
    QHash<int, QSet<int>> neighbours() const { return m_neighbours; }
    /** The lasso after snapping points near the photo's edges onto them. */
    QPainterPath path() const { return m_path; }
    /** The snapped lasso grown by 10 pixels and clipped to the photo. */
    QPainterPath pathExpanded() const { return m_expandedPath; }
    /** Milliseconds since the epoch at construction. */
    qint64 timestamp() const { return m_timestamp; }
    int totalSteps() const { return m_totalSteps; }
    int currentStep() const { return m_currentStep; }

    bool operator==(const PXInitialSegmentationWorker& other) const;
    bool operator!=(const PXInitialSegmentationWorker& other) const { return !(*this == other); }

    /** Sets the total and emits updateProgress(current, total). */
    void setTotalStepsForProgressbar(int total);

    /**
     * @p path grown by @p width pixels on every side (united with a stroke
     * of width 2 * @p width), clipped to @p rect.
     */
    QPainterPath growPainterPath(const QPainterPath& path, const QRect& rect, int width) const;

    /** Diagnostic: the photo with every labelled pixel in its region's mean colour. */
    QImage drawClustersWithTransparentColorsAndContours() const;

public Q_SLOTS:
    /** Counts one step and emits updateProgress(current, total). */
    void increaseAndUpdateProgressbar();

Q_SIGNALS:
    void updateProgress(int currentStep, int totalSteps);
    void resetProgress();
    void finished();

private:
    enum RunFlag : int {
        RunningFlag = 1,
        StopRequestedFlag = 2
    };

    void run();
    void snapToImageBorder();
    void runSlic();
    void runRegionGrowing();
    bool stopRequested() const;

    PXImage* m_image = nullptr;
    int m_totalSteps = 1;
    int m_currentStep = 0;
    PXEdgeDetectorSobelColor m_edgeDetector;
    PXHandOver m_handOver;
    PXSlic m_slic;
    PXRegionGrowing m_regionGrowing;
    QImage m_labels;
    QList<PXSuperPixel> m_superpixels;
    QList<QList<QPoint>> m_pointsOfSuperpixels;
    QPainterPath m_path;
    QPainterPath m_expandedPath;
    QHash<int, QSet<int>> m_neighbours;
    // Running and stop-requested together, so stop() is one store.
    std::atomic<int> m_flags{0};
    qint64 m_timestamp = 0;
    QFuture<void> m_future;
    bool m_started = false;
};
