#pragma once

#include <QList>
#include <QPainterPath>
#include <QPointF>
#include <QSize>
#include <QString>

/**
 * Points as people type them: "x,y" for one point, "x,y x,y ..." for a list
 * (any white space separates points; in files a '#' starts a comment that runs
 * to the end of the line). Coordinates are decimal numbers in photo pixels.
 *
 * The parsers never throw; a malformed text gives false and a message that
 * names the offending token, ready to be shown after the program's name.
 */
namespace PXPointList {

/** Parses "x,y" into @p point; on failure sets @p error and returns false. */
bool parsePoint(const QString& text, QPointF* point, QString* error);

/**
 * Parses a list of points into @p points. An empty list is not an error here;
 * callers decide how many points they need.
 */
bool parse(const QString& text, QList<QPointF>* points, QString* error);

/** Index of the first point outside the pixels [0, width) x [0, height), or -1. */
int firstOutside(const QList<QPointF>& points, const QSize& size);

/** "x,y" with as few digits as the values need. */
QString format(const QPointF& point);

/** The closed polygon through @p points, filled with the winding rule. */
QPainterPath closedPolygon(const QList<QPointF>& points);

/**
 * The area a round brush of @p radius covers when dragged through @p points:
 * a disc for a single point, a stroke with round caps and joins otherwise.
 */
QPainterPath brushStroke(const QList<QPointF>& points, qreal radius);

/** @p points mapped by the scale factors (sx, sy). */
QList<QPointF> scaled(const QList<QPointF>& points, qreal sx, qreal sy);

/**
 * A live wire as hosts draw and write it: the scissors search a half-size
 * grid and report its cells' centres, so @p traced may end a pixel off the
 * clicked points and, on an odd-sized photo, step one pixel past the edge.
 * The result stays inside @p size and starts and ends exactly at @p seed and
 * @p target.
 */
QList<QPoint> joinedWire(const QList<QPoint>& traced, const QPoint& seed, const QPoint& target, const QSize& size);

} // namespace PXPointList
