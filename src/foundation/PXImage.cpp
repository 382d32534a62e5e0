#include "PXImage.h"

#include "PXConcurrent.h"
#include "PXYCbCrConversion.h"

#include <QMutexLocker>

namespace {

// Whether @p format stores 4-byte pixels in the layout PXRgbPixel reads.
bool isSupportedFormat(QImage::Format format)
{
    return format == QImage::Format_RGB32 || format == QImage::Format_ARGB32
        || format == QImage::Format_ARGB32_Premultiplied;
}

QImage asSupportedImage(const QImage& image)
{
    if (image.isNull() || isSupportedFormat(image.format()))
        return image;
    return image.convertToFormat(QImage::Format_ARGB32);
}

// Rows below this count are converted in the calling thread.
constexpr int ParallelRowThreshold = 201;

} // namespace

PXImage::PXImage() = default;

PXImage::PXImage(const QImage& image, const QFileInfo& file)
    : m_imageRGB(asSupportedImage(image))
    , m_fileInfo(file)
{
    buildingColorspaces();
}

PXImage::PXImage(const QImage& rgb, const QImage& ycbcr, const QFileInfo& file)
    : m_imageRGB(asSupportedImage(rgb))
    , m_imageYCbCr(ycbcr)
    , m_fileInfo(file)
{
    if (m_imageYCbCr.size() != m_imageRGB.size() || !isSupportedFormat(m_imageYCbCr.format()))
        buildingColorspaces();
}

PXImage::PXImage(const PXImage& other)
{
    QMutexLocker locker(&other.m_mutex);
    m_imageRGB = other.m_imageRGB;
    m_imageYCbCr = other.m_imageYCbCr;
    m_fileInfo = other.m_fileInfo;
}

PXImage& PXImage::operator=(const PXImage& other)
{
    if (this == &other)
        return *this;
    QMutexLocker locker(&other.m_mutex);
    m_imageRGB = other.m_imageRGB;
    m_imageYCbCr = other.m_imageYCbCr;
    m_fileInfo = other.m_fileInfo;
    return *this;
}

PXImage::~PXImage() = default;

QString PXImage::name() const
{
    return m_fileInfo.baseName();
}

void PXImage::buildingColorspaces()
{
    if (m_imageRGB.isNull()) {
        m_imageYCbCr = QImage();
        return;
    }
    // Plain pages: asking for huge ones made the first touch compact memory
    // synchronously, and single conversions took up to three times a copy.
    QImage ycbcr(m_imageRGB.size(), m_imageRGB.format());
    const QImage rgb = m_imageRGB;
    const PXIntRange rows = PXIntRange::rowsOfImage(rgb);
    if (rows.countElements() < ParallelRowThreshold) {
        mapBlock(rows, rgb, ycbcr);
    } else {
        QList<PXIntRange> blocks = rows.splitEvenlyForCpuCores();
        PXConcurrent::blockingMap(blocks,
            [this, &rgb, &ycbcr](const PXIntRange& block) { mapBlock(block, rgb, ycbcr); });
    }
    m_imageYCbCr = ycbcr;
}

void PXImage::mapBlock(const PXIntRange& rows, const QImage& rgb, QImage& ycbcr) const
{
    if (rgb.size() != ycbcr.size() || !isSupportedFormat(rgb.format())
        || !isSupportedFormat(ycbcr.format()))
        return;
    // Concurrent blocks must not detach (and so write) the shared QImage
    // header; only a shared image is detached here, by its single caller.
    if (!ycbcr.isDetached())
        ycbcr.detach();
    const QImage& target = ycbcr;

    const PXIntRange columns = PXIntRange::columnsOfImage(ycbcr);
    const int count = columns.countElements();
    const PXYCbCrConversion::RowKernel convertRow = PXYCbCrConversion::bestRowKernel();
    const int end = qMin(rows.lastIndexEvenIfUnvalid(), rgb.height());
    for (int y = qMax(rows.first(), 0); y < end; ++y) {
        const auto* source = reinterpret_cast<const quint32*>(rgb.constScanLine(y));
        auto* destination = reinterpret_cast<quint32*>(const_cast<uchar*>(target.constScanLine(y)));
        convertRow(source + columns.first(), destination + columns.first(), count);
    }
}
