#pragma once

#include <QGraphicsView>
#include <QImage>
#include <QList>
#include <QPainterPath>
#include <QPointF>

class QGraphicsPathItem;
class QGraphicsPixmapItem;
class QMimeData;

/**
 * The studio's picture: the working photo with the library's mask laid over
 * it, the superpixel contours and the feedback of the current tool (the lasso
 * being drawn, the brush, the scissors' outline and live wire).
 *
 * The view knows nothing of the library. It turns mouse gestures into signals
 * in photo (scene) coordinates and leaves the decisions to the window. Zoom
 * with Ctrl+wheel or zoomIn()/zoomOut()/fitToWindow()/setZoom(); pan with the
 * scroll bars, the wheel, or by dragging with the middle button. Photo files
 * dropped on the view are announced with fileDropped().
 */
class PXStudioView : public QGraphicsView
{
    Q_OBJECT

public:
    enum Tool { Lasso, Click, Paint, Scribble, Scissors };
    Q_ENUM(Tool)

    /** Tint of the background until the user chooses one: visible on dark and light photos alike. */
    static QColor defaultTint() { return QColor(40, 110, 255); }
    static constexpr qreal myDefaultTintOpacity = 0.5;

    explicit PXStudioView(QWidget* parent = nullptr);
    ~PXStudioView() override;

    /**
     * Shows @p photo, drops the mask, contours and tool feedback, and fits it
     * to the window, now and whenever the view is resized, until the user zooms.
     */
    void setPhoto(const QImage& photo);
    QSize photoSize() const { return m_photoSize; }

    /**
     * Lays @p mask over the photo in the tint, with the selection's outline
     * drawn in black and white so it shows on any photo; a null image removes it.
     */
    void setMask(const QImage& mask);
    /** The colour and opacity the background is tinted with. */
    void setTint(const QColor& colour, qreal opacity);
    QColor tintColour() const { return m_tintColour; }
    qreal tintOpacity() const { return m_tintOpacity; }
    /** The outline drawn over the selection's edge (transparent elsewhere). */
    QImage outline() const;
    /** The mask on screen (a hover preview while hovering). */
    QImage mask() const { return m_mask; }

    /** The contour image drawn over everything; a null image removes it. */
    void setContours(const QImage& contours);
    bool hasContours() const;

    Tool tool() const { return m_tool; }
    void setTool(Tool tool);
    /** Brush radius of paint and scribble, in photo pixels. */
    int brushRadius() const { return m_brushRadius; }
    void setBrushRadius(int radius);

    /** Shows the scissors' outline so far and the live wire after it. */
    void setScissorsOutline(const QList<QPointF>& outline, const QList<QPointF>& liveWire);
    /** Forgets the lasso or outline being drawn. */
    void clearToolFeedback();

    qreal zoom() const;
    /** Zooms to @p factor; the photo then no longer follows the window's size. */
    void setZoom(qreal factor);
    /** Whether the photo is refitted when the view is resized. */
    bool isFitting() const { return m_fitting; }

    /** The brush as the paint and scribble tools apply it at @p centre. */
    QPainterPath brushAt(const QPointF& centre) const;

public Q_SLOTS:
    void zoomIn();
    void zoomOut();
    /** Shrinks a photo larger than the window to fit it; smaller photos show at 100 %. */
    void fitToWindow();

Q_SIGNALS:
    /**
     * Lasso tool: the button was released; @p lasso is closed. @p modifiers
     * were held when the lasso began (Shift adds, Alt subtracts).
     */
    void lassoDrawn(const QPainterPath& lasso, Qt::KeyboardModifiers modifiers);
    /** Click tool. */
    void clicked(const QPointF& position);
    /**
     * Paint and scribble tools: a piece of a brush stroke; @p isFinal for the
     * piece that ends the gesture (button released).
     */
    void strokeDrawn(const QPainterPath& stroke, bool isFinal);
    /** Paint tool: the brush moved without a button at @p position. */
    void brushHovered(const QPointF& position);
    /** Paint tool: the brush left the photo or the tool changed. */
    void brushLeft();
    /** Scissors: a seed at @p position (single click). */
    void scissorsClicked(const QPointF& position);
    /** Scissors: the mouse moved to @p position without a button. */
    void scissorsMoved(const QPointF& position);
    /** Scissors: double click: close the outline. */
    void scissorsClosed();
    /** A local file was dropped on the view. */
    void fileDropped(const QString& path);
    void zoomChanged(qreal factor);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    QPointF photoPoint(const QPointF& viewportPosition) const;
    bool isOnPhoto(const QPointF& photoPosition) const;
    void showBrush(const QPointF& centre);
    void updateCursor();
    void applyZoom(qreal factor);
    void showMaskPixmap();
    static QString droppedFile(const QMimeData* mime);

    QGraphicsPixmapItem* m_photoItem;
    QGraphicsPixmapItem* m_maskItem;
    QGraphicsPixmapItem* m_outlineItem;
    QGraphicsPixmapItem* m_contourItem;
    QGraphicsPathItem* m_feedbackItem;
    QGraphicsPathItem* m_brushItem;
    QSize m_photoSize;
    QImage m_mask;
    QColor m_tintColour = defaultTint();
    qreal m_tintOpacity = myDefaultTintOpacity;
    bool m_fitting = true;
    Qt::KeyboardModifiers m_lassoModifiers;
    Tool m_tool = Lasso;
    int m_brushRadius = 12;

    // The gesture under way with the left button.
    bool m_drawing = false;
    QList<QPointF> m_gesture;
    // Panning with the middle button.
    bool m_panning = false;
    QPoint m_panOrigin;
};
