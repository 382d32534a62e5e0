#include "PXHostPhoto.h"

#include <QFile>
#include <QImageReader>

#include <algorithm>
#include <cmath>
#include <limits>

PXHostPhoto PXHostPhoto::load(const QString& path, int maximalLength, QString* error)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        *error = QStringLiteral("%1: no such file").arg(path);
        return {};
    }
    if (!info.isFile()) {
        *error = QStringLiteral("%1: not a file").arg(path);
        return {};
    }
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (size.isValid()) {
        // Qt refuses any image above 128 MB (an 8000x6000 photo); the limit
        // that matters is what this machine can hold.
        const qint64 bytes = qint64(size.width()) * size.height() * 4;
        const qint64 available = availableMemory();
        if (bytes * myCopiesHeld > available) {
            *error = QStringLiteral("%1: %2x%3 is too large: holding it needs about %4 MB, %5 MB are free")
                         .arg(path)
                         .arg(size.width())
                         .arg(size.height())
                         .arg(bytes * myCopiesHeld >> 20)
                         .arg(available >> 20);
            return {};
        }
        QImageReader::setAllocationLimit(int(std::min<qint64>((bytes >> 20) + 64, std::numeric_limits<int>::max())));
    }
    const QImage image = reader.read();
    if (image.isNull()) {
        *error = QStringLiteral("%1: %2").arg(path, reader.errorString());
        return {};
    }
    return fromImage(image, info, maximalLength);
}

qint64 PXHostPhoto::availableMemory()
{
    QFile meminfo(QStringLiteral("/proc/meminfo"));
    if (meminfo.open(QIODevice::ReadOnly | QIODevice::Text)) {
        while (!meminfo.atEnd()) {
            const QByteArray line = meminfo.readLine();
            if (line.startsWith("MemAvailable:"))
                return line.mid(13).trimmed().split(' ').value(0).toLongLong() << 10;
        }
    }
    // Without the figure, assume a modest machine.
    return qint64(4) << 30;
}

PXHostPhoto PXHostPhoto::fromImage(const QImage& image, const QFileInfo& fileInfo, int maximalLength)
{
    PXHostPhoto result;
    if (image.isNull())
        return result;
    result.m_photo = image.convertToFormat(QImage::Format_ARGB32);
    result.m_fileInfo = fileInfo;
    const int longer = std::max(image.width(), image.height());
    if (maximalLength < 1 || longer <= maximalLength) {
        result.m_working = result.m_photo;
        return result;
    }
    const double factor = double(maximalLength) / longer;
    const int width = std::max(1, int(std::lround(image.width() * factor)));
    const int height = std::max(1, int(std::lround(image.height() * factor)));
    result.m_working = result.m_photo.scaled(width, height, Qt::IgnoreAspectRatio,
        Qt::SmoothTransformation).convertToFormat(QImage::Format_ARGB32);
    return result;
}

qreal PXHostPhoto::scaleX() const
{
    return m_photo.width() > 0 ? qreal(m_working.width()) / m_photo.width() : 1;
}

qreal PXHostPhoto::scaleY() const
{
    return m_photo.height() > 0 ? qreal(m_working.height()) / m_photo.height() : 1;
}

QPointF PXHostPhoto::toWorking(const QPointF& photoPoint) const
{
    return QPointF(photoPoint.x() * scaleX(), photoPoint.y() * scaleY());
}

QPointF PXHostPhoto::toPhoto(const QPointF& workingPoint) const
{
    return QPointF(workingPoint.x() / scaleX(), workingPoint.y() / scaleY());
}

QImage PXHostPhoto::toPhotoSize(const QImage& workingImage) const
{
    if (workingImage.isNull() || workingImage.size() == m_photo.size())
        return workingImage;
    return workingImage.scaled(m_photo.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}
