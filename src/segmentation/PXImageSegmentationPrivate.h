#pragma once

// Internal header: not installed.

#include "PXHandOver.h"
#include "PXMatteOptions.h"
#include "PXSelectionModel.h"

#include <QFuture>
#include <QList>
#include <QMutex>
#include <QMutexLocker>
#include <QPainterPath>
#include <QRect>
#include <QSet>

#include <atomic>
#include <functional>

class PXImageSegmentation;
class PXInitialSegmentationWorker;
class PXMementoSegmentation;
class PXUndoCommandSegmentation;
class PXUndoController;
template <typename T>
class QFutureWatcher;

/**
 * The state behind PXImageSegmentation: the selection model and its lock, the
 * requests waiting for the controller thread, and the workers.
 */
class PXImageSegmentationPrivate
{
public:
    /** Stroke and hover requests waiting for the controller thread. */
    struct Requests {
        QPainterPath strokes;
        bool strokeIsForeground = false;
        bool strokeIsTemporary = false;
        QSet<int> hoverClusters;
        // The state before the gesture in progress; owned.
        PXMementoSegmentation* pendingMemento = nullptr;
    };

    /** What one pass of the paint loop takes. */
    struct Stroke {
        QPainterPath path;
        bool isForeground;
        // The gesture that a final stroke closes, to push; owned by the taker.
        PXUndoCommandSegmentation* command;
    };

    struct Hover {
        QSet<int> clusters;
        bool isForeground;
    };

    struct RetiredWorker {
        PXInitialSegmentationWorker* worker;
        QFutureWatcher<void>* watcher;
    };

    explicit PXImageSegmentationPrivate(PXImageSegmentation* owner);
    ~PXImageSegmentationPrivate();

    /**
     * Runs @p change on the model under its lock. Nothing that takes the
     * request lock or emits may run inside.
     */
    template <typename Change>
    auto withModel(Change&& change)
    {
        QMutexLocker locker(&modelMutex);
        return change(model);
    }
    /** A copy of the model to read without the lock. */
    PXSelectionModel snapshot() const
    {
        QMutexLocker locker(&modelMutex);
        return model;
    }

    /** See PXImageSegmentation::matteCutout(). */
    QImage matteCutout(const QImage& photo, const PXMatteOptions& options, const std::function<void()>& progress,
        const std::function<bool()>& cancelled) const;

    /** Stores @p mode and starts the thread. Call with the request lock held. */
    void request(int mode);
    /** Adds a paint or scribble stroke to the pending ones and requests @p mode. */
    void requestStroke(const QPainterPath& path, bool isForeground, bool isTemporary, int mode);
    /** Before and after of the gesture in progress. Call with the request lock held. */
    PXUndoCommandSegmentation* takeUndoCommand();
    /**
     * Takes the pending strokes and does the undo bookkeeping of a pass; an
     * empty path ends the loop.
     */
    Stroke takeStroke();
    Hover takeHover();
    /** Whether hover clusters came in meanwhile; if not, the loop ends. */
    bool moreHover();
    /** Stops (if @p stop) and forgets the current worker; released once its task ends. */
    void retireWorker(bool stop);
    void releaseRetiredWorker(QFutureWatcher<void>* watcher);
    /**
     * Interrupts the controller thread and waits up to two seconds for it
     * (terminating it after), then for the clicks and the workers. Only for
     * the controller's destructor.
     */
    void shutDown();
    /** Deletes every worker, waiting for their tasks. */
    void deleteWorkers();
    /**
     * The refined initial cut: the plain cut gives its object while the
     * refined cut is set up on a pool thread, then the refined cut runs and
     * its selection becomes the mask. Controller thread.
     */
    void cutRefined();
    /**
     * While the model is refining, puts a gesture's mark on it with @p mark
     * and solves the refined cut again with every mark so far; false (doing
     * nothing) otherwise. On the controller thread the solve stops when the
     * thread is interrupted. Takes the model lock only to read and to write.
     */
    bool refineStroke(const std::function<void(PXSelectionModel&)>& mark);
    /**
     * The blurred one-bit mask of createSmoothForegroundMask(); null outside
     * a widget application's thread.
     */
    static QImage smoothMask(const QImage& mask, int radius);

    PXImageSegmentation* const q;
    PXUndoController* const undoController;

    PXSelectionModel model;
    mutable QMutex modelMutex;

    Requests requests;
    QMutex requestMutex;
    std::atomic<int> mode {0};
    // Set when run() takes no more requests: by the paint and hover loops
    // under the request lock together with their last look at the requests,
    // so a request arriving before the thread has ended restarts it instead
    // of being left behind.
    std::atomic<bool> loopIsLeaving {false};
    // A colour change whose recolouring has not run yet (its request may have been overtaken).
    std::atomic<bool> recolourPending {false};

    std::atomic<int> workerTotalSteps {0};
    std::atomic<int> currentStep {0};
    bool maskIsInverted = false;
    QRect analysedRegion;

    std::atomic<PXInitialSegmentationWorker*> worker {nullptr};
    QFuture<void> workerTask;
    // Replaced workers, kept until their pool tasks have ended.
    QList<RetiredWorker> retiredWorkers;
    QList<QFuture<void>> clicks;
    // -1 follows the "refinedCut" setting, else the host's choice.
    std::atomic<int> refinedCutChoice {-1};
    // Whether the current lasso gets the refined cut; fixed when it arrives.
    std::atomic<bool> refining {false};
    // What run() did, for whoever waits for the thread (see PXHandOver).
    PXHandOver runs;
};
