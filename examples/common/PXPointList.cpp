#include "PXPointList.h"

#include <QPainterPathStroker>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>

namespace PXPointList {

namespace {

bool parseNumber(const QString& text, double* value)
{
    bool ok = false;
    *value = text.toDouble(&ok);
    // toDouble() accepts "nan" and "inf"; neither is a place in a photo.
    return ok && std::isfinite(*value);
}

} // namespace

bool parsePoint(const QString& text, QPointF* point, QString* error)
{
    const QStringList parts = text.split(QLatin1Char(','));
    double x = 0;
    double y = 0;
    if (parts.size() != 2 || !parseNumber(parts.at(0), &x) || !parseNumber(parts.at(1), &y)) {
        *error = QStringLiteral("malformed point '%1' (expected x,y)").arg(text);
        return false;
    }
    *point = QPointF(x, y);
    return true;
}

bool parse(const QString& text, QList<QPointF>* points, QString* error)
{
    static const QRegularExpression comment(QStringLiteral("#[^\n]*"));
    static const QRegularExpression space(QStringLiteral("\\s+"));

    QString withoutComments = text;
    withoutComments.remove(comment);
    QList<QPointF> result;
    for (const QString& token : withoutComments.split(space, Qt::SkipEmptyParts)) {
        QPointF point;
        if (!parsePoint(token, &point, error))
            return false;
        result.append(point);
    }
    *points = result;
    return true;
}

int firstOutside(const QList<QPointF>& points, const QSize& size)
{
    for (int i = 0; i < points.size(); ++i) {
        const QPointF& p = points.at(i);
        if (p.x() < 0 || p.y() < 0 || p.x() >= size.width() || p.y() >= size.height())
            return i;
    }
    return -1;
}

QString format(const QPointF& point)
{
    return QStringLiteral("%1,%2").arg(point.x()).arg(point.y());
}

QPainterPath closedPolygon(const QList<QPointF>& points)
{
    QPainterPath path;
    path.setFillRule(Qt::WindingFill);
    if (points.isEmpty())
        return path;
    path.moveTo(points.first());
    for (qsizetype i = 1; i < points.size(); ++i)
        path.lineTo(points.at(i));
    path.closeSubpath();
    return path;
}

QPainterPath brushStroke(const QList<QPointF>& points, qreal radius)
{
    QPainterPath result;
    if (points.isEmpty() || !(radius > 0))
        return result;
    if (points.size() == 1) {
        result.addEllipse(points.first(), radius, radius);
        return result;
    }
    QPainterPath line;
    line.moveTo(points.first());
    for (qsizetype i = 1; i < points.size(); ++i)
        line.lineTo(points.at(i));
    QPainterPathStroker stroker;
    stroker.setWidth(2 * radius);
    stroker.setCapStyle(Qt::RoundCap);
    stroker.setJoinStyle(Qt::RoundJoin);
    // The raw stroke overlaps itself at joins; simplified() makes it one
    // outline, so a winding or odd-even fill covers the same pixels.
    result = stroker.createStroke(line).simplified();
    // A drag that never moved strokes nothing; it still touched one spot.
    if (result.isEmpty())
        result.addEllipse(points.first(), radius, radius);
    return result;
}

QList<QPointF> scaled(const QList<QPointF>& points, qreal sx, qreal sy)
{
    QList<QPointF> result;
    result.reserve(points.size());
    for (const QPointF& p : points)
        result.append(QPointF(p.x() * sx, p.y() * sy));
    return result;
}

QList<QPoint> joinedWire(const QList<QPoint>& traced, const QPoint& seed, const QPoint& target, const QSize& size)
{
    QList<QPoint> wire { seed };
    for (const QPoint& p : traced) {
        const QPoint inside(std::clamp(p.x(), 0, size.width() - 1), std::clamp(p.y(), 0, size.height() - 1));
        if (inside != wire.last())
            wire.append(inside);
    }
    if (wire.last() != target)
        wire.append(target);
    return wire;
}

} // namespace PXPointList
