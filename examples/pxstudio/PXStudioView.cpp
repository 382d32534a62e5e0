#include "PXStudioView.h"

#include "PXHostImages.h"
#include "PXPointList.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QGraphicsPathItem>
#include <QGraphicsPixmapItem>
#include <QMimeData>
#include <QMouseEvent>
#include <QPen>
#include <QScrollBar>
#include <QUrl>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {

constexpr qreal myZoomStep = 1.25;
constexpr qreal myMinimalZoom = 1.0 / 32;
constexpr qreal myMaximalZoom = 32;

QPen feedbackPen()
{
    // Cosmetic: the outline stays two screen pixels wide at every zoom.
    QPen pen(PXHostImages::contourColour(), 2);
    pen.setCosmetic(true);
    pen.setJoinStyle(Qt::RoundJoin);
    pen.setCapStyle(Qt::RoundCap);
    return pen;
}

QPainterPath polyline(const QList<QPointF>& points)
{
    QPainterPath path;
    if (points.isEmpty())
        return path;
    path.moveTo(points.first());
    for (qsizetype i = 1; i < points.size(); ++i)
        path.lineTo(points.at(i));
    return path;
}

} // namespace

PXStudioView::PXStudioView(QWidget* parent)
    : QGraphicsView(parent)
    , m_photoItem(new QGraphicsPixmapItem)
    , m_maskItem(new QGraphicsPixmapItem)
    , m_outlineItem(new QGraphicsPixmapItem)
    , m_contourItem(new QGraphicsPixmapItem)
    , m_feedbackItem(new QGraphicsPathItem)
    , m_brushItem(new QGraphicsPathItem)
{
    auto* scene = new QGraphicsScene(this);
    setScene(scene);
    m_maskItem->setOpacity(m_tintOpacity);
    m_feedbackItem->setPen(feedbackPen());
    QPen brushPen = feedbackPen();
    brushPen.setWidth(1);
    m_brushItem->setPen(brushPen);
    m_brushItem->setVisible(false);
    const QList<QGraphicsItem*> layers { m_photoItem, m_maskItem, m_outlineItem, m_contourItem,
        m_feedbackItem, m_brushItem };
    for (int z = 0; z < layers.size(); ++z) {
        layers.at(z)->setZValue(z);
        scene->addItem(layers.at(z));
    }

    setBackgroundBrush(QColor(0x30, 0x30, 0x30));
    setTransformationAnchor(QGraphicsView::AnchorUnderMouse);
    setResizeAnchor(QGraphicsView::AnchorViewCenter);
    setAcceptDrops(true);
    viewport()->setAcceptDrops(true);
    viewport()->setMouseTracking(true);
    setMinimumSize(320, 240);
    updateCursor();
}

PXStudioView::~PXStudioView() = default;

void PXStudioView::setPhoto(const QImage& photo)
{
    m_photoSize = photo.size();
    m_photoItem->setPixmap(QPixmap::fromImage(photo));
    scene()->setSceneRect(QRectF(QPointF(0, 0), QSizeF(m_photoSize)));
    setMask(QImage());
    setContours(QImage());
    clearToolFeedback();
    fitToWindow();
}

void PXStudioView::setMask(const QImage& mask)
{
    m_mask = mask;
    showMaskPixmap();
    m_outlineItem->setPixmap(mask.isNull() ? QPixmap() : QPixmap::fromImage(PXHostImages::selectionOutline(mask)));
}

void PXStudioView::setTint(const QColor& colour, qreal opacity)
{
    if (colour.isValid())
        m_tintColour = QColor(colour.rgb());
    m_tintOpacity = std::clamp(opacity, 0.0, 1.0);
    m_maskItem->setOpacity(m_tintOpacity);
    showMaskPixmap();
}

void PXStudioView::showMaskPixmap()
{
    m_maskItem->setPixmap(
        m_mask.isNull() ? QPixmap() : QPixmap::fromImage(PXHostImages::recoloured(m_mask, m_tintColour)));
}

QImage PXStudioView::outline() const
{
    return m_outlineItem->pixmap().toImage();
}

void PXStudioView::setContours(const QImage& contours)
{
    m_contourItem->setPixmap(contours.isNull()
            ? QPixmap()
            : QPixmap::fromImage(PXHostImages::recoloured(contours, PXHostImages::contourColour())));
}

bool PXStudioView::hasContours() const
{
    return !m_contourItem->pixmap().isNull();
}

void PXStudioView::setTool(Tool tool)
{
    if (tool == m_tool)
        return;
    if (m_tool == Paint)
        Q_EMIT brushLeft();
    m_tool = tool;
    m_drawing = false;
    m_gesture.clear();
    m_brushItem->setVisible(false);
    clearToolFeedback();
    updateCursor();
}

void PXStudioView::setBrushRadius(int radius)
{
    m_brushRadius = std::max(1, radius);
    if (m_brushItem->isVisible())
        showBrush(m_brushItem->data(0).toPointF());
}

void PXStudioView::setScissorsOutline(const QList<QPointF>& outline, const QList<QPointF>& liveWire)
{
    QPainterPath path = polyline(outline);
    if (!liveWire.isEmpty()) {
        path.moveTo(liveWire.first());
        for (const QPointF& point : liveWire)
            path.lineTo(point);
    }
    m_feedbackItem->setPath(path);
}

void PXStudioView::clearToolFeedback()
{
    m_feedbackItem->setPath(QPainterPath());
}

qreal PXStudioView::zoom() const
{
    return transform().m11();
}

void PXStudioView::setZoom(qreal factor)
{
    m_fitting = false;
    applyZoom(factor);
}

void PXStudioView::applyZoom(qreal factor)
{
    factor = std::clamp(factor, myMinimalZoom, myMaximalZoom);
    setTransform(QTransform::fromScale(factor, factor));
    Q_EMIT zoomChanged(factor);
}

void PXStudioView::zoomIn()
{
    setZoom(zoom() * myZoomStep);
}

void PXStudioView::zoomOut()
{
    setZoom(zoom() / myZoomStep);
}

void PXStudioView::fitToWindow()
{
    m_fitting = true;
    if (m_photoSize.isEmpty()) {
        applyZoom(1);
        return;
    }
    const QSize room = viewport()->size() - QSize(8, 8);
    const qreal factor = std::min({ qreal(room.width()) / m_photoSize.width(),
        qreal(room.height()) / m_photoSize.height(), qreal(1) });
    applyZoom(factor > 0 ? factor : 1);
    centerOn(m_photoItem);
}

void PXStudioView::resizeEvent(QResizeEvent* event)
{
    QGraphicsView::resizeEvent(event);
    // A photo opened before the window had its size is fitted again here.
    if (m_fitting)
        fitToWindow();
}

QPainterPath PXStudioView::brushAt(const QPointF& centre) const
{
    return PXPointList::brushStroke({ centre }, m_brushRadius);
}

QPointF PXStudioView::photoPoint(const QPointF& viewportPosition) const
{
    return mapToScene(viewportPosition.toPoint());
}

bool PXStudioView::isOnPhoto(const QPointF& p) const
{
    return p.x() >= 0 && p.y() >= 0 && p.x() < m_photoSize.width() && p.y() < m_photoSize.height();
}

void PXStudioView::showBrush(const QPointF& centre)
{
    m_brushItem->setData(0, centre);
    m_brushItem->setPath(brushAt(centre));
    m_brushItem->setVisible(true);
}

void PXStudioView::updateCursor()
{
    viewport()->setCursor(m_panning ? Qt::ClosedHandCursor : Qt::CrossCursor);
}

void PXStudioView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::MiddleButton) {
        m_panning = true;
        m_panOrigin = event->position().toPoint();
        updateCursor();
        event->accept();
        return;
    }
    if (event->button() != Qt::LeftButton || m_photoSize.isEmpty()) {
        QGraphicsView::mousePressEvent(event);
        return;
    }
    const QPointF p = photoPoint(event->position());
    event->accept();
    switch (m_tool) {
    case Lasso:
        m_drawing = true;
        m_lassoModifiers = event->modifiers();
        m_gesture = { p };
        m_feedbackItem->setPath(QPainterPath());
        break;
    case Click:
        if (isOnPhoto(p))
            Q_EMIT clicked(p);
        break;
    case Paint:
    case Scribble:
        if (m_tool == Paint)
            Q_EMIT brushLeft();
        m_drawing = true;
        m_gesture = { p };
        Q_EMIT strokeDrawn(brushAt(p), false);
        break;
    case Scissors:
        Q_EMIT scissorsClicked(p);
        break;
    }
}

void PXStudioView::mouseMoveEvent(QMouseEvent* event)
{
    if (m_panning) {
        const QPoint delta = event->position().toPoint() - m_panOrigin;
        m_panOrigin = event->position().toPoint();
        horizontalScrollBar()->setValue(horizontalScrollBar()->value() - delta.x());
        verticalScrollBar()->setValue(verticalScrollBar()->value() - delta.y());
        event->accept();
        return;
    }
    if (m_photoSize.isEmpty()) {
        QGraphicsView::mouseMoveEvent(event);
        return;
    }
    const QPointF p = photoPoint(event->position());
    event->accept();
    switch (m_tool) {
    case Lasso:
        if (m_drawing && QLineF(m_gesture.last(), p).length() >= 1) {
            m_gesture.append(p);
            m_feedbackItem->setPath(polyline(m_gesture));
        }
        break;
    case Click:
        break;
    case Paint:
    case Scribble:
        showBrush(p);
        if (m_drawing) {
            Q_EMIT strokeDrawn(PXPointList::brushStroke({ m_gesture.last(), p }, m_brushRadius), false);
            m_gesture.append(p);
        } else if (m_tool == Paint) {
            if (isOnPhoto(p))
                Q_EMIT brushHovered(p);
            else
                Q_EMIT brushLeft();
        }
        break;
    case Scissors:
        Q_EMIT scissorsMoved(p);
        break;
    }
}

void PXStudioView::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::MiddleButton && m_panning) {
        m_panning = false;
        updateCursor();
        event->accept();
        return;
    }
    if (event->button() != Qt::LeftButton || !m_drawing) {
        QGraphicsView::mouseReleaseEvent(event);
        return;
    }
    event->accept();
    m_drawing = false;
    const QPointF p = photoPoint(event->position());
    if (m_tool == Lasso) {
        if (QLineF(m_gesture.last(), p).length() >= 1)
            m_gesture.append(p);
        // Fewer than three points enclose nothing: a stray click.
        if (m_gesture.size() >= 3) {
            m_feedbackItem->setPath(PXPointList::closedPolygon(m_gesture));
            Q_EMIT lassoDrawn(PXPointList::closedPolygon(m_gesture), m_lassoModifiers);
        } else {
            clearToolFeedback();
        }
    } else {
        Q_EMIT strokeDrawn(brushAt(p), true);
    }
    m_gesture.clear();
}

void PXStudioView::mouseDoubleClickEvent(QMouseEvent* event)
{
    if (m_tool == Scissors && event->button() == Qt::LeftButton) {
        event->accept();
        Q_EMIT scissorsClosed();
        return;
    }
    // Other tools take the second click of a double click as a click.
    mousePressEvent(event);
}

void PXStudioView::wheelEvent(QWheelEvent* event)
{
    if (!(event->modifiers() & Qt::ControlModifier)) {
        QGraphicsView::wheelEvent(event);
        return;
    }
    const qreal steps = event->angleDelta().y() / 120.0;
    if (steps != 0)
        setZoom(zoom() * std::pow(myZoomStep, steps));
    event->accept();
}

void PXStudioView::leaveEvent(QEvent* event)
{
    m_brushItem->setVisible(false);
    if (m_tool == Paint && !m_drawing)
        Q_EMIT brushLeft();
    QGraphicsView::leaveEvent(event);
}

QString PXStudioView::droppedFile(const QMimeData* mime)
{
    if (!mime || !mime->hasUrls())
        return QString();
    for (const QUrl& url : mime->urls()) {
        if (url.isLocalFile() && QFileInfo(url.toLocalFile()).isFile())
            return url.toLocalFile();
    }
    return QString();
}

void PXStudioView::dragEnterEvent(QDragEnterEvent* event)
{
    if (!droppedFile(event->mimeData()).isEmpty())
        event->acceptProposedAction();
    else
        event->ignore();
}

void PXStudioView::dragMoveEvent(QDragMoveEvent* event)
{
    if (!droppedFile(event->mimeData()).isEmpty())
        event->acceptProposedAction();
    else
        event->ignore();
}

void PXStudioView::dropEvent(QDropEvent* event)
{
    const QString path = droppedFile(event->mimeData());
    if (path.isEmpty()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    Q_EMIT fileDropped(path);
}
