#pragma once

#include "PXMatteOptions.h"
#include "PXSuperPixel.h"
#include "pximagecutter_export.h"

#include <QColor>
#include <QFileInfo>
#include <QHash>
#include <QImage>
#include <QList>
#include <QPainterPath>
#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QSet>
#include <QThread>

#include <functional>
#include <memory>
#include <utility>

class PXImageSegmentationPrivate;
class PXMementoSegmentation;
class PXUndoController;

/**
 * Cuts one object out of one photo: the object a host drives.
 *
 * Call order: setup() with the photo (hosts scale it to
 * PXImageCutterSettings::maximalImageLength() first; the library never
 * scales), then startThreadWithInitialPath() with a lasso. A
 * PXInitialSegmentationWorker computes superpixels and regions for the lasso
 * on a pool thread; when it finishes, the controller makes the initial cut on
 * its own thread and emits sendNewMask(). From then on (isValid() is true) the
 * refinement slots (paint selection, scribble, hover, clicker) and the mask
 * operations change the mask; every change is emitted with sendNewMask().
 *
 * The mask is a QImage::Format_ARGB32_Premultiplied image of the photo's size:
 * background opaque in the mask colour, the object fully transparent.
 *
 * Threads: every slot and operation is called from the thread the object lives
 * in (the host's, normally the GUI thread). Requests are stored, a
 * SegmentationMode is set and the object's own thread is started when idle;
 * run() dispatches on the mode. A running paint or hover pass takes the
 * requests that arrive meanwhile; any other running job leaves them pending
 * until the next request starts the thread. The clicker alone runs on
 * QThreadPool::globalInstance(). Signals are emitted from the controller
 * thread; connect them queued.
 *
 * Who owns what: the host's thread owns the workers, the progress counters
 * and the analysed region; pending strokes, hover clusters, stroke flags and
 * the pending memento pass to the controller thread under a request lock;
 * the selection (photo, labels, sets, mask, paths) is a plain model that each
 * step, gesture or query holds under its own lock for just that call, so the
 * synchronous queries (maskForeground(), drawContour(), ...) are meant for an
 * idle controller but are safe at any time.
 *
 * Ownership: the controller owns its worker, the pending memento and every
 * worker it replaced until that worker's pool task has ended. Mementos from
 * createMemento() belong to the caller.
 */
class PXIMAGECUTTER_EXPORT PXImageSegmentation : public QThread
{
    Q_OBJECT

public:
    /** What run() does next. */
    enum SegmentationMode {
        None = 0,
        InitialCut = 1,
        PaintSelection = 2,
        PaintSelectionHover = 3,
        Scribble = 4,
        ChangeMaskColor = 5,
        InvertMask = 6
    };
    Q_ENUM(SegmentationMode)

    PXImageSegmentation();
    /**
     * Interrupts the controller thread and waits up to two seconds for it;
     * a thread that still runs then is terminated. Workers are stopped and
     * released once their pool tasks have ended.
     */
    ~PXImageSegmentation() override;

    /**
     * Cancels everything and takes @p image (converted to
     * QImage::Format_ARGB32) as the photo. Emits a null mask and zero progress.
     */
    void setup(const QImage& image, const QFileInfo& fileInfo);
    /** Replaces the photo as it stands: no conversion, no reset. */
    void setImage(const QImage& image);
    /** Stores @p mode and starts the controller thread if it is idle. */
    void startWithMode(SegmentationMode mode);
    /**
     * Stops the current worker (if the controller thread runs), interrupts the
     * controller thread, forgets the worker and resets.
     */
    void cancel();
    /**
     * Forgets the segmentation results and any unfinished gesture, emits a null
     * mask and zero progress. The sets, labels, lasso and mask (unless there is
     * no photo) are kept.
     */
    void reset();
    /** Whether a worker has delivered results, i.e. refinement is possible. */
    bool isValid() const;
    /** Progress steps of one lasso: the worker's steps plus 5. */
    int totalSteps() const;
    /** One more step of progress, emitted with segmentationProgress(). */
    void increaseAndUpdateProgressbar();
    /** The photo editor's undo controller; not owned. */
    PXUndoController* undoController() const;

    // Initial cut.

    /** Stops any previous worker, resets and starts a new worker on @p path. */
    void startInitialSegmentation(const QPainterPath& path);
    /**
     * Takes the results of the current worker and starts the initial cut.
     * Connected to the worker's finished(); signals of other senders are
     * ignored.
     */
    void initialSegmentationIsFinished();
    /**
     * Repeats cutObjectInitial() until the worker did not change during a cut,
     * then emits sendNewMask(). Ends without emitting when interrupted. Runs on
     * the calling thread.
     */
    void doInitialCut();
    /** One initial cut: object, background colour model, neighbourhood vote. */
    void cutObjectInitial();
    /** The expanded lasso filled 0xFFFFFFFF on black, the photo's size. */
    QImage createImageWithLassoPath() const;
    /**
     * Labels with a pixel inside (first) and outside (second) the lasso image,
     * visiting @p rect without its last row and column.
     */
    std::pair<QSet<int>, QSet<int>> separateForegroundAndBackgroundSuperPixels(
        const QImage& lassoImage, const QRect& rect) const;
    /**
     * Makes the labels only inside the lasso the object and the others the
     * background; returns the object's labels.
     */
    QSet<int> assignForegroundPixels(const std::pair<QSet<int>, QSet<int>>& insideOutside);
    /** Moves object labels whose colour is the background's; returns them. */
    QSet<int> extractBackground();
    /**
     * Moves object labels of which at least half the neighbours are background
     * or in @p possibleBackground; returns 0 and the moved labels.
     */
    QSet<int> confirmPossibleBackground(const QSet<int>& possibleBackground);
    /** Puts @p label on one side and paints its pixels into the mask. */
    void drawSuperpixelOnForegroundUserMask(int label, bool isForeground);

    // Interactive refinement.

    /** Toggles the superpixel under @p position. Emits nothing. */
    void cutObjectWithClicker(const QPointF& position);
    /** Moves every superpixel that @p path touches to one side. */
    void cutObjectWithPaintSelection(const QPainterPath& path, bool isForeground);
    /** Paints @p path into the mask pixel by pixel. */
    void cutObjectWithScribble(const QPainterPath& path, bool isForeground);
    /** Clears @p path in the mask (foreground) or fills it with the mask colour. */
    void drawPathOnForegroundUserMask(const QPainterPath& path, bool isForeground);
    /** The controller-thread loop of PaintSelection and Scribble. */
    void paintSelecting();
    /** The controller-thread loop of PaintSelectionHover. */
    void paintHovering();
    /**
     * A copy of the mask with @p clusters shown as object (@p isForeground)
     * or background. The top-left pixel is never written.
     */
    QImage maskWithSegments(const QSet<int>& clusters, bool isForeground) const;
    /** The labels under a round brush of @p radius around @p centre. */
    QSet<int> superpixels(const QPoint& centre, int radius) const;
    /** The pixels of the superpixel at @p point (clamped into the photo). */
    QList<QPoint> pointsOfSuperpixel(const QPointF& point) const;
    /** The label at @p point clamped into the photo; 0 without labels. */
    int safeGetSuperPixelAt(const QPoint& point) const;
    /** Discards strokes the controller thread has not taken yet. */
    void clearLastScribble();
    /** Whether the expanded lasso contains @p path. */
    bool containsPath(const QPainterPath& path) const;
    /** The path of the last paint selection. */
    QPainterPath lastPath() const;
    /** Ends a gesture without a final stroke: pushes its undo command. */
    void pushUndoCommand();

    // Mask output.

    /** Recolours the mask in place with the mask colour. Emits nothing. */
    void updateMask();
    /** Recolours the mask on the controller thread; alpha alone is ignored. */
    void setMaskColor(const QColor& colour);
    QColor maskColor() const;
    /**
     * Toggles the inversion. The mask is repainted on the controller thread
     * only when that thread is idle; otherwise only the flag changes.
     */
    void invertMask();
    /** Inverts the mask and swaps the object and background sets. */
    void invertMaskJob();
    /** Sets the flag; inverts synchronously when it changed and isValid(). */
    void setMaskIsInverted(bool inverted);
    bool maskIsInverted() const;
    /** @p path filled 0xFFFFFFFF on black, the mask's size. */
    QImage createMask(const QPainterPath& path) const;
    /** The current mask (shared copy). */
    QImage maskForeground() const;
    /**
     * The mask blurred by @p radius and thresholded to QImage::Format_Mono.
     * Needs a QApplication and its thread; elsewhere returns a null image.
     */
    QImage createSmoothForegroundMask(int radius) const;
    /**
     * Opaque white where at least two of a pixel's eight neighbours carry
     * another label, transparent elsewhere.
     */
    QImage drawContour() const;

    // Refined cut.

    /**
     * Makes the following lassos give the refined cut, whose outline follows
     * the object's edges (true), or the superpixel cut (false), whatever the
     * "refinedCut" setting says. The refined cut adds PXRefinedCut's progress
     * steps to totalSteps(). While a lasso's refined cut stands, every paint
     * and scribble stroke and every click is a hard mark (a click marks a
     * small dot on the side opposite to the mask's there) and the refined cut
     * is solved again with all marks so far, from the current mask: the mask
     * follows the object's edges around the stroke instead of moving whole
     * superpixels, and never takes in pixels outside the grown lasso. Undo
     * takes the mark back with the mask. After invertMask() strokes are plain
     * again until the next lasso. Host's thread.
     */
    void setRefinedCut(bool refined);
    /** Lets the following lassos follow the "refinedCut" setting again (the default). */
    void followRefinedCutSetting();
    /** Whether the next lasso gives the refined cut. Host's thread. */
    bool refinedCut() const;

    // Soft edge.

    /**
     * The soft matte of the current mask (whatever lasso, strokes, undo and
     * redo made it), as a cut-out: PXMatte::foreground(), a Format_ARGB32 image
     * (not premultiplied) whose alpha is the matte, 255 on the object, and
     * whose colours in the edge's band have the background's taken out.
     *
     * Off by default: nothing is computed unless a host calls this. With a
     * null @p photo it has the size of the photo given to setup(); a host that
     * cut a scaled copy passes the full-size photo instead, and the mask is
     * scaled up smoothly and the band measured on that photo, so the matte has
     * @p photo's size and its edge is the photo's, not the copy's pixels.
     *
     * Runs PXMatte on the calling thread and blocks (any thread: it works on a
     * copy of the mask taken under the selection's lock, so call it from a
     * pool thread for large photos). @p progress is called
     * PXMatte::progressSteps times on that thread; @p cancelled is asked
     * between stages. A null image without a mask or photo, or when
     * cancelled. The result depends only on the mask, photo and options.
     */
    QImage matteCutout(const QImage& photo = QImage(), const PXMatteOptions& options = PXMatteOptions(),
        const std::function<void()>& progress = {}, const std::function<bool()>& cancelled = {}) const;

    // Undo.

    /** A snapshot of the selection, owned by the caller. */
    PXMementoSegmentation* createMemento(bool withLabels);
    /** Restores @p memento (which stays the caller's) and emits the mask. */
    void setMemento(const PXMementoSegmentation* memento);

Q_SIGNALS:
    void segmentationProgress(int currentStep, int totalSteps);
    /** The current mask; a null image after reset(). */
    void sendNewMask(QImage theImage);
    /** For a contour image of the host's; the library never emits it. */
    void sendContours(QImage theImage);

public Q_SLOTS:
    void startThreadWithPaintSelection(QPainterPath theScribble, bool isForeground, bool isTemporary);
    void startThreadWithScribble(QPainterPath theScribble, bool isForeground, bool isTemporary);
    void startThreadWithPaintSelectionHover(QSet<int> theClusters, bool isForeground);
    /**
     * A new lasso: starts a worker; the first mask follows when it is done.
     * Here and for strokes, a path with a coordinate that is NaN or beyond
     * 2^24 in size is taken as empty.
     */
    void startThreadWithInitialPath(QPainterPath thePath);
    /** Runs cutObjectWithClicker() on the global thread pool. */
    void startThreadWithClicker(QPointF thePosition);
    /** Progress of the current worker; other senders are ignored. */
    void setProgressFromWorker(int theCurrentStep, int theTotalStep);
    void resetProgress();

protected:
    void run() override;

private:
    int controllerSteps() const;
    // The plain initial cut; false when interrupted or a newer worker's
    // results came in meanwhile.
    bool cutObjectPlain();
    friend class PXImageSegmentationPrivate;
    std::unique_ptr<PXImageSegmentationPrivate> d;
};

Q_DECLARE_METATYPE(PXImageSegmentation*)
