#include "PXHostImages.h"

#include <QFont>
#include <QPainter>
#include <QPen>

#include <algorithm>

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

QImage overCheckerboard(const QImage& cutout)
{
    QImage result(cutout.size(), QImage::Format_RGB32);
    result.fill(QColor(0xFF, 0xFF, 0xFF));
    QPainter painter(&result);
    // Squares large enough to tell from the photo's own texture at a glance.
    const int square = std::max(8, std::min(result.width(), result.height()) / 48);
    for (int y = 0; y < result.height(); y += square) {
        for (int x = (y / square % 2) * square; x < result.width(); x += 2 * square)
            painter.fillRect(x, y, square, square, QColor(0xCC, 0xCC, 0xCC));
    }
    painter.drawImage(0, 0, cutout);
    return result;
}

QImage sideBySide(const QList<std::pair<QString, QImage>>& panels)
{
    if (panels.isEmpty())
        return QImage();
    const QSize size = panels.first().second.size();
    QFont font;
    font.setPixelSize(std::max(14, size.height() / 24));
    const int band = font.pixelSize() * 8 / 5;
    // A gap in the band's colour, so that one checkerboard does not run into the next.
    const int gap = std::max(4, band / 4);
    const int count = int(panels.size());
    QImage result(size.width() * count + gap * (count - 1), size.height() + band, QImage::Format_RGB32);
    result.fill(QColor(0x30, 0x30, 0x30));
    QPainter painter(&result);
    painter.setFont(font);
    painter.setPen(Qt::white);
    for (int i = 0; i < panels.size(); ++i) {
        const int left = i * (size.width() + gap);
        painter.drawImage(left, band, overCheckerboard(panels.at(i).second));
        painter.drawText(QRect(left, 0, size.width(), band), Qt::AlignCenter, panels.at(i).first);
    }
    return result;
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
