#pragma once

#include <QFileInfo>
#include <QImage>
#include <QPointF>
#include <QString>

/**
 * A photo as a host hands it to the library: the picture as loaded, and a
 * working copy whose longer side is at most the library's maximalImageLength()
 * setting. The library analyses the working copy; results come back to the
 * photo's size through toPhoto() and maskToPhoto().
 */
class PXHostPhoto
{
public:
    /** A null photo. */
    PXHostPhoto() = default;

    /**
     * Reads @p path (EXIF orientation applied) and scales it so that the longer
     * side is at most @p maximalLength; a length below 1 keeps the size. On
     * failure the result is null and @p error says why; a photo whose
     * myCopiesHeld full-size copies do not fit into availableMemory() is
     * refused as too large, naming its size.
     */
    static PXHostPhoto load(const QString& path, int maximalLength, QString* error);

    /** Full-size 32-bit copies a host holds at once (photo, mask, cut-out, overlay, encoder). */
    static constexpr int myCopiesHeld = 6;
    /** Bytes of memory this machine can still give (MemAvailable), or 4 GB when unknown. */
    static qint64 availableMemory();

    /** Wraps an image that is already in memory. */
    static PXHostPhoto fromImage(const QImage& image, const QFileInfo& fileInfo, int maximalLength);

    bool isNull() const { return m_photo.isNull(); }
    /** The photo as loaded, in QImage::Format_ARGB32. */
    const QImage& photo() const { return m_photo; }
    /** The scaled copy the library works on, in QImage::Format_ARGB32. */
    const QImage& working() const { return m_working; }
    const QFileInfo& fileInfo() const { return m_fileInfo; }

    /** Working width / photo width (1 when no scaling was needed). */
    qreal scaleX() const;
    qreal scaleY() const;
    bool isScaled() const { return m_photo.size() != m_working.size(); }

    QPointF toWorking(const QPointF& photoPoint) const;
    QPointF toPhoto(const QPointF& workingPoint) const;

    /**
     * A mask or overlay of the working size brought to the photo's size
     * (smoothly, so the scaled edge is soft); returned unchanged when the
     * sizes already match.
     */
    QImage toPhotoSize(const QImage& workingImage) const;

private:
    QImage m_photo;
    QImage m_working;
    QFileInfo m_fileInfo;
};
