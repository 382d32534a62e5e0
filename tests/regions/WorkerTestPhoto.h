#pragma once

#include <QColor>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QRandomGenerator>

#include <cmath>

// A synthetic photo with a few flat shapes and mild noise, and a lasso round
// its middle, for the worker's tests and benchmarks.
namespace WorkerTestPhoto {

inline QImage photo(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(QColor(70, 110, 160));
    {
        QPainter painter(&image);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(200, 180, 60));
        painter.drawEllipse(QRectF(width * 0.3, height * 0.25, width * 0.4, height * 0.5));
        painter.setBrush(QColor(40, 140, 60));
        painter.drawRect(QRectF(width * 0.1, height * 0.6, width * 0.3, height * 0.3));
        painter.setBrush(QColor(220, 60, 50));
        painter.drawRect(QRectF(width * 0.6, height * 0.1, width * 0.25, height * 0.2));
    }
    QRandomGenerator random(42);
    for (int y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const int noise = random.bounded(-6, 7);
            row[x] = qRgb(qBound(0, qRed(row[x]) + noise, 255), qBound(0, qGreen(row[x]) + noise, 255),
                qBound(0, qBlue(row[x]) + noise, 255));
        }
    }
    return image;
}

/** An octagon whose bounding box covers @p share of the photo's area, centred. */
inline QPainterPath lasso(int width, int height, double share)
{
    const double side = std::sqrt(share);
    const QRectF box((1 - side) / 2 * width, (1 - side) / 2 * height, side * width, side * height);
    const double cutX = box.width() * 0.2;
    const double cutY = box.height() * 0.2;
    QPainterPath path;
    path.moveTo(box.left() + cutX, box.top());
    path.lineTo(box.right() - cutX, box.top());
    path.lineTo(box.right(), box.top() + cutY);
    path.lineTo(box.right(), box.bottom() - cutY);
    path.lineTo(box.right() - cutX, box.bottom());
    path.lineTo(box.left() + cutX, box.bottom());
    path.lineTo(box.left(), box.bottom() - cutY);
    path.lineTo(box.left(), box.top() + cutY);
    path.closeSubpath();
    return path;
}

} // namespace WorkerTestPhoto
