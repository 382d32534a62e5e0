#pragma once

// Crafted photos and label helpers shared by the superpixel tests.

#include "PXImage.h"
#include "PXSuperPixel.h"

#include <QPainter>
#include <QRandomGenerator>

#include <memory>
#include <vector>

namespace SlicTest {

// YCbCr images keep Y in the red byte, Cb in green and Cr in blue.
inline QRgb ycbcr(int luminance, int cb = 128, int cr = 128)
{
    return qRgba(luminance, cb, cr, 255);
}

inline QImage uniformYCbCr(int width, int height, int luminance)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(ycbcr(luminance));
    return image;
}

// A photo whose YCbCr twin is exactly @p image.
inline PXImage photoFromYCbCr(const QImage& image)
{
    QImage rgb(image.size(), QImage::Format_ARGB32);
    rgb.fill(Qt::black);
    return PXImage(rgb, image, QFileInfo());
}

// Coloured blobs with a little noise, the same for a given seed.
inline PXImage texturedPhoto(int width, int height, quint32 seed)
{
    QRandomGenerator random(seed);
    QImage rgb(width, height, QImage::Format_RGB32);
    rgb.fill(QColor(90, 140, 60));
    QPainter painter(&rgb);
    painter.setPen(Qt::NoPen);
    for (int i = 0; i < 40; ++i) {
        painter.setBrush(QColor(random.bounded(256), random.bounded(256), random.bounded(256)));
        painter.drawEllipse(QRectF(random.bounded(width), random.bounded(height), 5 + random.bounded(width / 3),
            5 + random.bounded(height / 3)));
    }
    painter.end();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; x += 1 + random.bounded(3))
            rgb.setPixel(x, y, rgb.pixel(x, y) ^ random.bounded(8u));
    return PXImage(rgb, QFileInfo());
}

inline qint32 labelAt(const QImage& labels, int x, int y)
{
    return reinterpret_cast<const qint32*>(labels.constScanLine(y))[x];
}

inline QImage labelImage(const QSize& size, qint32 fill)
{
    QImage labels(size, QImage::Format_ARGB32);
    labels.fill(quint32(fill));
    return labels;
}

inline QList<qint32> labelRow(const QImage& labels, int y)
{
    const auto* row = reinterpret_cast<const qint32*>(labels.constScanLine(y));
    return QList<qint32>(row, row + labels.width());
}

// Records for a hand-made work item, the dummy first, owned by the holder.
class Records
{
public:
    Records() { append(PXSuperPixel(0, 0, 0, 0, 0)); }
    void append(const PXSuperPixel& record)
    {
        m_owned.push_back(std::make_unique<PXSuperPixel>(record));
        m_list.append(m_owned.back().get());
    }
    const QList<PXSuperPixel*>& list() const { return m_list; }

private:
    std::vector<std::unique_ptr<PXSuperPixel>> m_owned;
    QList<PXSuperPixel*> m_list;
};

} // namespace SlicTest
