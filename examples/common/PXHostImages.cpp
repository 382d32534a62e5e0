#include "PXHostImages.h"

#include <QPainter>
#include <QPen>

namespace PXHostImages {

QImage cutOut(const QImage& photo, const QImage& mask)
{
    QImage result = photo.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (!mask.isNull()) {
        QPainter painter(&result);
        painter.setCompositionMode(QPainter::CompositionMode_DestinationOut);
        painter.drawImage(0, 0, mask);
    }
    return result.convertToFormat(QImage::Format_ARGB32);
}

QImage recoloured(const QImage& image, const QColor& colour)
{
    QImage result = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&result);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(result.rect(), colour);
    return result;
}

QImage overlay(const QImage& photo, const QImage& mask, const QImage& contours, qreal maskOpacity)
{
    QImage result = photo.convertToFormat(QImage::Format_RGB32);
    QPainter painter(&result);
    if (!mask.isNull()) {
        painter.setOpacity(maskOpacity);
        painter.drawImage(0, 0, mask);
        painter.setOpacity(1);
    }
    if (!contours.isNull())
        painter.drawImage(0, 0, recoloured(contours, contourColour()));
    painter.end();
    return result;
}

QImage selectionOutline(const QImage& mask)
{
    if (mask.isNull())
        return QImage();
    const QImage argb = mask.convertToFormat(QImage::Format_ARGB32);
    const int width = argb.width();
    const int height = argb.height();
    auto isObject = [&argb](int x, int y) {
        return qAlpha(reinterpret_cast<const QRgb*>(argb.constScanLine(y))[x]) < 128;
    };
    QImage result(argb.size(), QImage::Format_ARGB32);
    result.fill(Qt::transparent);
    for (int y = 0; y < height; ++y) {
        QRgb* out = reinterpret_cast<QRgb*>(result.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const bool object = isObject(x, y);
            const bool edge = (x > 0 && isObject(x - 1, y) != object) || (x + 1 < width && isObject(x + 1, y) != object)
                || (y > 0 && isObject(x, y - 1) != object) || (y + 1 < height && isObject(x, y + 1) != object);
            if (edge)
                out[x] = object ? qRgb(255, 255, 255) : qRgb(0, 0, 0);
        }
    }
    return result;
}

double objectShare(const QImage& mask)
{
    if (mask.isNull())
        return 0;
    const QImage argb = mask.convertToFormat(QImage::Format_ARGB32);
    qint64 object = 0;
    for (int y = 0; y < argb.height(); ++y) {
        const QRgb* line = reinterpret_cast<const QRgb*>(argb.constScanLine(y));
        for (int x = 0; x < argb.width(); ++x)
            object += qAlpha(line[x]) < 128;
    }
    return double(object) / (qint64(argb.width()) * argb.height());
}

QImage wires(const QImage& photo, const QList<QList<QPoint>>& wires)
{
    QImage result = photo.convertToFormat(QImage::Format_RGB32);
    QPainter painter(&result);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor colour = contourColour();
    for (const QList<QPoint>& wire : wires) {
        if (wire.isEmpty())
            continue;
        painter.setPen(QPen(colour, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter.drawPolyline(wire.constData(), int(wire.size()));
        painter.setPen(QPen(Qt::black, 1));
        painter.setBrush(colour);
        painter.drawEllipse(QPointF(wire.first()) + QPointF(0.5, 0.5), 4, 4);
        painter.setBrush(Qt::NoBrush);
    }
    painter.end();
    return result;
}

} // namespace PXHostImages
