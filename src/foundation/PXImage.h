#pragma once

#include "PXIntRange.h"
#include "pximagecutter_export.h"

#include <QFileInfo>
#include <QImage>
#include <QMetaType>
#include <QMutex>

/**
 * The photo as the segmentation works on it: the RGB image, its YCbCr twin of
 * the same size and format (Y in the red byte, Cb in green, Cr in blue, alpha
 * 255; see PXYCbCrPixel) and where the photo came from.
 *
 * The constructor keeps 32-bit photos (RGB32, ARGB32, ARGB32_Premultiplied)
 * as given and converts any other format to ARGB32, so every pixel loop may
 * read 4-byte pixels. The YCbCr image is built once, in parallel row blocks
 * from 201 rows up (see PXConcurrent), before the constructor returns.
 *
 * Immutable after construction. Copies share the pixel data; a copy is taken
 * under the source's lock, so its three members always belong together.
 * Readers do not lock.
 */
class PXIMAGECUTTER_EXPORT PXImage
{
public:
    /** A null image. */
    PXImage();
    /** Takes @p image and builds its YCbCr twin. */
    PXImage(const QImage& image, const QFileInfo& file);
    /**
     * Takes both images as given, for callers that already hold the YCbCr
     * twin. A @p ycbcr that does not match @p rgb in size and 32-bit format is
     * rebuilt, so readers never leave its bounds.
     */
    PXImage(const QImage& rgb, const QImage& ycbcr, const QFileInfo& file);
    PXImage(const PXImage& other);
    PXImage& operator=(const PXImage& other);
    virtual ~PXImage();

    QImage imageRGB() const { return m_imageRGB; }
    QImage imageYCbCr() const { return m_imageYCbCr; }
    /** The base name of the photo's file. */
    QString name() const;
    QSize size() const { return m_imageRGB.size(); }
    int width() const { return m_imageRGB.width(); }
    int height() const { return m_imageRGB.height(); }
    QRect rect() const { return m_imageRGB.rect(); }

    /** (Re)computes the YCbCr image from the RGB image. */
    void buildingColorspaces();
    /**
     * Converts @p rows of @p rgb into @p ycbcr. Both must be 32-bit images of
     * the same size; rows outside them are skipped. Blocks of disjoint rows
     * may run concurrently on one detached @p ycbcr.
     */
    void mapBlock(const PXIntRange& rows, const QImage& rgb, QImage& ycbcr) const;

private:
    mutable QMutex m_mutex;
    QImage m_imageRGB;
    QImage m_imageYCbCr;
    QFileInfo m_fileInfo;
};

Q_DECLARE_METATYPE(PXImage)
