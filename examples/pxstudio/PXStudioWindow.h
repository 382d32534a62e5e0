#pragma once

#include "PXHostPhoto.h"

#include <QColor>
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
 * to the photo's size. Edits land on the photo editor's undo stack
 * (PXUndoController::instanceForFotoEditor()), which the Edit menu's Undo and
 * Redo are bound to; the stack is cleared with each new photo and lasso,
 * because its commands hold the masks of a segmentation that is gone.
 *
 * Actions carry object names ("open", "export", "undo", "redo", "invert",
 * "maskColour", "contours", "cancel", "zoomIn", "zoomOut", "fit",
 * "tool.lasso", "tool.click", "tool.paint", "tool.scribble", "tool.scissors",
 * "target.object", "target.background") so scripts and tests can find them.
 */
class PXStudioWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit PXStudioWindow(QWidget* parent = nullptr);
    ~PXStudioWindow() override;

    /** Loads @p path; on failure keeps the current photo, says why in the status bar and returns false. */
    bool openPhoto(const QString& path);
    /** Writes the photo with the background transparent, at the photo's size. */
    bool exportCutOut(const QString& path);
    /** The colour of what is not cut out. */
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
    void setContoursVisible(bool visible);

private Q_SLOTS:
    void showMask(const QImage& mask);
    void showProgress(int current, int total);
    void showScissorsProgress(double value);
    void startCut(const QPainterPath& lasso);
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
    void setCutRunning(bool running);
    void refreshContours();
    bool canRefine();
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
    QActionGroup* m_tools;
    QAction* m_objectTarget;
    QAction* m_maskColourAction;
    QAction* m_contoursAction;
    QColor m_maskColour;

    bool m_cutRunning = false;
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
