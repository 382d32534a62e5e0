#pragma once

#include "PXHostPhoto.h"
#include "PXStudioSelection.h"

#include <QColor>
#include <QElapsedTimer>
#include <QList>
#include <QMainWindow>
#include <QPainterPath>
#include <QPointF>
#include <QSet>
#include <QTimer>

#include <memory>

class PXImageSegmentation;
class PXIntelligentScissors;
class PXMementoSegmentation;
class PXOutsideRegions;
class PXStudioView;
class QAction;
class QActionGroup;
class QLabel;
class QProgressBar;
class QSpinBox;

/**
 * The studio: one photo, one PXImageSegmentation and one PXIntelligentScissors,
 * driven from a PXStudioView the way a photo application drives the library.
 *
 * The photo is scaled to the maximalImageLength() setting before it is handed
 * over; the view shows that working copy and the export brings the mask back
 * to the photo's size. Every edit, a new lasso included, is one command on
 * the photo editor's undo stack (PXUndoController::instanceForFotoEditor()),
 * which the Edit menu's Undo and Redo are bound to; the stack is cleared with
 * each new photo, because its commands hold the masks of a photo that is gone.
 * A lasso begun with Shift adds to the selection, one begun with Alt removes
 * from it (PXStudioSelection). Lassos give the refined cut unless Tools >
 * Refine edges is unchecked; then they give the library's plain cut, and a
 * paint stroke into the object whose brush touches a region reaching outside
 * the lasso is ignored (the plain cut would select all outside the lasso).
 * The tint's colour and opacity and the Refine edges choice are kept in
 * QSettings (organisation "PXImageCutter", application "pxstudio", INI format;
 * keys "tint/colour", "tint/opacity", "cut/refined", "cut/softEdge"). View >
 * Soft edge shows the selection with the library's soft matte (PXImageSegmentation::matteCutout())
 * and makes File > Export cut-out use it, made on the full-size photo.
 *
 * Actions carry object names ("open", "export", "saveSelection",
 * "loadSelection", "undo", "redo", "invert", "maskColour", "grow", "shrink",
 * "feather", "contours", "softEdge", "refine", "cancel", "zoomIn", "zoomOut", "fit", "guide",
 * "tool.lasso", "tool.click", "tool.paint", "tool.scribble", "tool.scissors",
 * "target.object", "target.background"), and so do the spin boxes
 * ("brushRadius", "tintOpacity", "amount"), so scripts and tests can find them.
 */
class PXStudioWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit PXStudioWindow(QWidget* parent = nullptr);
    ~PXStudioWindow() override;

    /** Loads @p path; on failure keeps the current photo, says why in the status bar and returns false. */
    bool openPhoto(const QString& path);
    /**
     * Writes the photo with the background transparent (soft where feathered,
     * or the soft matte with Soft edge on), at the photo's size.
     */
    bool exportCutOut(const QString& path);
    /** Writes the selection as a grey PNG of the photo's size: white over the object. */
    bool saveSelection(const QString& path);
    /** Reads a selection saved as a mask (see PXSelectionMask::fromSaved) as one undoable edit. */
    bool loadSelection(const QString& path);
    /** Cuts with @p lasso as if it had been drawn without modifiers. */
    void cut(const QPainterPath& lasso);
    /** The colour of what is not cut out; remembered for the next run. */
    void setMaskColour(const QColor& colour);
    QColor maskColour() const { return m_maskColour; }
    /** Brush radius of paint and scribble, in working-photo pixels. */
    void setBrushRadius(int radius);
    /** Paint and scribble add to the object (true) or to the background. */
    void setBrushTargetIsObject(bool object);

    PXStudioView* view() const { return m_view; }
    PXImageSegmentation* segmentation() const { return m_segmentation.get(); }
    const PXHostPhoto& photo() const { return m_photo; }
    /** A lasso is being cut or the controller thread is working. */
    bool isBusy() const;
    /** The status bar's message. */
    QString statusText() const;

public Q_SLOTS:
    /** Esc: drops the outline being traced, or stops the cut under way. */
    void cancel();
    void openPhotoDialog();
    void exportDialog();
    void chooseMaskColour();
    void invertMask();
    void saveSelectionDialog();
    void loadSelectionDialog();
    /** Grows, shrinks or feathers the selection by the amount spin box's pixels. */
    void growSelection();
    void shrinkSelection();
    void featherSelection();
    void showGuide();
    void setContoursVisible(bool visible);

private Q_SLOTS:
    void showMask(const QImage& mask);
    // @p mask as the view shows it: with Soft edge on, the current selection's matte.
    QImage shownMask(const QImage& mask) const;
    void showProgress(int current, int total);
    void showScissorsProgress(double value);
    void startCut(const QPainterPath& lasso, Qt::KeyboardModifiers modifiers);
    void toggleSuperpixel(const QPointF& position);
    void applyStroke(const QPainterPath& stroke, bool isFinal);
    void previewBrush(const QPointF& position);
    void endPreview();
    void addScissorsSeed(const QPointF& position);
    void followScissors(const QPointF& position);
    void closeScissorsOutline();
    void finishClick();
    void sendFinalStroke();
    void restoreRealMask();

private:
    void createActions();
    void setStatus(const QString& text);
    void startAction(const QString& name);
    void describeSelection();
    bool canEditSelection();
    void editSelection(const QString& name, const QImage& edited);
    void setTintOpacity(int percent);
    void setCutRunning(bool running);
    void refreshContours();
    bool canRefine();
    // Whether a paint stroke would put all outside the lasso into the object.
    bool wouldSelectOutside(const QPainterPath& stroke, bool object);
    QPointF clampedToPhoto(const QPointF& position) const;
    QList<QPointF> wireTo(const QPointF& position);
    void dropScissorsOutline();
    void clearUndoStack();
    void beginRequest();

    std::unique_ptr<PXImageSegmentation> m_segmentation;
    std::unique_ptr<PXIntelligentScissors> m_scissors;
    PXHostPhoto m_photo;
    PXStudioView* m_view;
    QLabel* m_statusLabel;
    QProgressBar* m_progress;
    QSpinBox* m_brushRadius;
    QSpinBox* m_tintOpacity;
    QSpinBox* m_amount;
    std::unique_ptr<PXOutsideRegions> m_outsideRegions;
    QActionGroup* m_tools;
    QAction* m_objectTarget;
    QAction* m_maskColourAction;
    QAction* m_contoursAction;
    QAction* m_softEdgeAction;
    QColor m_maskColour;

    PXStudioSelection m_selection;
    // The status line's last action: its name and the time its result took.
    QString m_lastAction;
    QElapsedTimer m_actionTimer;
    int m_regions = 0;

    bool m_cutRunning = false;
    // The mode the last lasso was cut in; the toggle applies to the next one.
    bool m_cutIsRefined = true;
    // A paint gesture is under way, and a piece of it was ignored.
    bool m_inStroke = false;
    bool m_strokeIgnored = false;
    bool m_contoursStale = true;
    // Hover previews arrive on the same signal as real masks; one that arrives
    // after the brush left the photo is stale and is not shown.
    bool m_hovering = false;
    bool m_expectPreview = false;
    QSet<int> m_hoverClusters;
    // Puts the real mask back once the controller has finished a preview.
    QTimer m_restoreTimer;
    // A click runs on the thread pool and signals nothing; the timer waits for
    // the pool, then the click becomes one undoable edit.
    QTimer m_clickTimer;
    std::unique_ptr<PXMementoSegmentation> m_beforeClick;
    // The stroke that ends a gesture waits until the controller has taken the
    // temporary ones: sent while they are pending, it would be merged with them
    // into one pass, and a pass that starts with a final stroke makes no undo
    // command.
    QTimer m_finalStrokeTimer;
    QPainterPath m_finalStroke;
    bool m_finalStrokeIsScribble = false;
    bool m_finalStrokeIsObject = true;

    bool m_scissorsReady = false;
    QList<QPointF> m_outline;
};
