#pragma once

// Crafted photos and label helpers shared by the superpixel tests.

#include "PXImage.h"
#include "PXSlic.h"
#include "PXSuperPixel.h"

#include <QFileInfo>
#include <QImage>
#include <QPainter>
#include <QRandomGenerator>

#include <memory>
#include <vector>

namespace SlicTest {

// A YCbCr image stores Y in the red byte, Cb in green and Cr in blue.
inline QRgb ycbcr(int luminance, int cb = 128, int cr = 128)
{
    return qRgba(luminance, cb, cr, 255);
}

inline QImage uniformYCbCr(int width, int height, int luminance, int cb = 128, int cr = 128)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(ycbcr(luminance, cb, cr));
    return image;
}

// A photo whose YCbCr twin is exactly @p ycbcrImage.
inline PXImage photoFromYCbCr(const QImage& ycbcrImage)
{
    QImage rgb(ycbcrImage.size(), QImage::Format_ARGB32);
    rgb.fill(Qt::black);
    return PXImage(rgb, ycbcrImage, QFileInfo());
}

// Coloured blobs and stripes with a little noise, the same for a given seed.
inline PXImage texturedPhoto(int width, int height, quint32 seed)
{
    QRandomGenerator random(seed);
    QImage rgb(width, height, QImage::Format_RGB32);
    rgb.fill(QColor(90, 140, 60));
    {
        QPainter painter(&rgb);
        painter.setPen(Qt::NoPen);
        for (int i = 0; i < 40; ++i) {
            painter.setBrush(QColor(random.bounded(256), random.bounded(256), random.bounded(256)));
            const QRectF blob(random.bounded(width), random.bounded(height), 5 + random.bounded(width / 3),
                5 + random.bounded(height / 3));
            if (i % 2)
                painter.drawEllipse(blob);
            else
                painter.drawRect(blob);
        }
    }
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<QRgb*>(rgb.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const int noise = random.bounded(9) - 4;
            line[x] = qRgb(qBound(0, qRed(line[x]) + noise, 255), qBound(0, qGreen(line[x]) - noise, 255),
                qBound(0, qBlue(line[x]) + noise, 255));
        }
    }
    return PXImage(rgb, QFileInfo());
}

inline qint32 labelAt(const QImage& labels, int x, int y)
{
    return reinterpret_cast<const qint32*>(labels.constScanLine(y))[x];
}

inline void setLabel(QImage& labels, int x, int y, qint32 label)
{
    reinterpret_cast<qint32*>(labels.scanLine(y))[x] = label;
}

inline void fillLabels(QImage& labels, const QRect& rect, qint32 label)
{
    for (int y = rect.top(); y <= rect.bottom(); ++y)
        for (int x = rect.left(); x <= rect.right(); ++x)
            setLabel(labels, x, y, label);
}

inline QImage labelImage(const QSize& size, qint32 fill)
{
    QImage labels(size, QImage::Format_ARGB32);
    labels.fill(quint32(fill));
    return labels;
}

inline QList<qint32> labelRow(const QImage& labels, int y)
{
    QList<qint32> row;
    for (int x = 0; x < labels.width(); ++x)
        row.append(labelAt(labels, x, y));
    return row;
}

// Records for a hand-made slice, owned by the holder.
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

// Scoped environment override, restored on destruction.
class ScopedEnv
{
public:
    ScopedEnv(const char* name, const QByteArray& value)
        : m_name(name)
        , m_had(qEnvironmentVariableIsSet(name))
        , m_old(qgetenv(name))
    {
        qputenv(name, value);
    }
    ~ScopedEnv()
    {
        if (m_had)
            qputenv(m_name, m_old);
        else
            qunsetenv(m_name);
    }

private:
    const char* m_name;
    bool m_had;
    QByteArray m_old;
};

} // namespace SlicTest
