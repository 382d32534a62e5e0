#include "PXEdgeDetectorSobelColor.h"

#include "PXConcurrent.h"
#include "PXImage.h"
#include "PXPlatformIndependent.h"

#include <QMutexLocker>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

constexpr quint32 OpaqueBlack = 0xFF000000u;

// Saturated pixels are counted per slice but left out of the statistics.
constexpr int StatisticsBins = 255;

} // namespace

PXEdgeDetectorSobelColor::PXEdgeDetectorSobelColor()
    : QThread(nullptr)
{
}

PXEdgeDetectorSobelColor::~PXEdgeDetectorSobelColor()
{
    // QThread must not be destroyed while it runs; the image may be ours.
    wait();
    releaseOwnedImage();
}

void PXEdgeDetectorSobelColor::releaseOwnedImage()
{
    delete m_ownedImage;
    m_ownedImage = nullptr;
}

void PXEdgeDetectorSobelColor::setup(PXImage* image)
{
    if (isRunning())
        return;
    if (image != m_ownedImage)
        releaseOwnedImage();
    m_image = image;
}

void PXEdgeDetectorSobelColor::setup(const QImage& image, const QFileInfo& file)
{
    if (isRunning())
        return;
    releaseOwnedImage();
    m_ownedImage = new PXImage(image, file);
    m_image = m_ownedImage;
}

QImage PXEdgeDetectorSobelColor::sobel() const
{
    QMutexLocker locker(&m_resultMutex);
    return m_sobel;
}

double PXEdgeDetectorSobelColor::mean() const
{
    QMutexLocker locker(&m_resultMutex);
    return m_mean;
}

double PXEdgeDetectorSobelColor::average() const
{
    QMutexLocker locker(&m_resultMutex);
    return m_average;
}

void PXEdgeDetectorSobelColor::run()
{
    {
        QMutexLocker locker(&m_resultMutex);
        m_average = 0.0;
        m_mean = 0.0;
        m_sobel = QImage();
    }
    if (!m_image || m_image->size().isEmpty())
        return;

    const QImage source = m_image->imageYCbCr();
    // Filled, so the pixels the pass never writes read as strength 0.
    QImage sobel = createSobelImage(source.size());
    sobel.fill(OpaqueBlack);
    prepareSobelBorder(sobel);

    QList<PXEdgeDetectorSobelSlice*> slices = createSobelSlices(sobel, source);
    PXConcurrent::blockingMap(slices, &PXEdgeDetectorSobelColor::createSobelSlice);
    const QList<int> histogram = accumulateValues(slices);

    calculateMedianAndMean(histogram, detectMeanBorder(source));

    QMutexLocker locker(&m_resultMutex);
    m_sobel = sobel;
}

int PXEdgeDetectorSobelColor::colorDifference(const PXRgbPixel& first, const PXRgbPixel& second)
{
    return std::abs(int(first.blue) - int(second.blue))
        + std::abs(int(first.green) - int(second.green))
        + std::abs(int(first.red) - int(second.red));
}

QImage PXEdgeDetectorSobelColor::createSobelImage(QSize size)
{
    return QImage(size, QImage::Format_ARGB32);
}

void PXEdgeDetectorSobelColor::prepareSobelBorder(QImage& image)
{
    if (image.isNull() || image.depth() != 32)
        return;
    const int width = image.width();
    const int height = image.height();
    auto* first = reinterpret_cast<quint32*>(image.scanLine(0));
    auto* last = reinterpret_cast<quint32*>(image.scanLine(height - 1));
    for (int x = 0; x < width; ++x) {
        first[x] = OpaqueBlack;
        last[x] = OpaqueBlack;
    }
    if (height < 7)
        return;
    for (int y = 1; y <= height - 6; ++y) {
        auto* row = reinterpret_cast<quint32*>(image.scanLine(y));
        row[0] = OpaqueBlack;
        // A diagonal, not the right column: long-standing behaviour the
        // interior pass partly overwrites. Guarded for images wider than tall.
        if (y - 1 < width)
            row[y - 1] = OpaqueBlack;
    }
}

QList<PXEdgeDetectorSobelSlice*> PXEdgeDetectorSobelColor::createSobelSlices(
    QImage& sobel, const QImage& source) const
{
    QList<PXEdgeDetectorSobelSlice*> slices;
    const int height = source.height();
    if (height < 4 || sobel.size() != source.size() || sobel.depth() != 32
        || source.depth() != 32)
        return slices;
    const int cores = PXPlatformIndependent::instance()->numberOfCores();
    // At least one row per slice, for photos with fewer rows than cores.
    const int step = qMax(1, height / cores);
    uchar* bits = sobel.bits();
    for (int first = 1; first < height - 2; first += step) {
        auto* slice = new PXEdgeDetectorSobelSlice;
        slice->source = source;
        slice->sobel = bits;
        slice->firstRow = first;
        slice->endRow = qMin(first + step, height - 2);
        slices.append(slice);
    }
    return slices;
}

void PXEdgeDetectorSobelColor::createSobelSlice(PXEdgeDetectorSobelSlice* slice)
{
    if (!slice)
        return;
    std::fill(std::begin(slice->histogram), std::end(slice->histogram), 0);
    const QImage& source = slice->source;
    const int width = source.width();
    if (width < 4 || !slice->sobel || source.depth() != 32)
        return;
    auto* sobelRows = reinterpret_cast<quint32*>(slice->sobel);
    // Rows outside 1 .. height - 3 have no full neighbourhood.
    const int firstRow = qMax(1, slice->firstRow);
    const int endRow = qMin(slice->endRow, source.height() - 2);
    for (int y = firstRow; y < endRow; ++y) {
        const uchar* top = source.constScanLine(y - 1);
        const uchar* middle = source.constScanLine(y);
        const uchar* bottom = source.constScanLine(y + 1);
        quint32* out = sobelRows + qsizetype(y) * width;
        for (int x = 0; x <= width - 4; ++x) {
            const uchar* tl = top + 4 * x;
            const uchar* ml = middle + 4 * x;
            const uchar* bl = bottom + 4 * x;
            int gx = 0;
            int gy = 0;
            for (int c = 0; c < 3; ++c) {
                // The diagonals count in both directions.
                const int diagonals = std::abs(tl[8 + c] - bl[c]) + std::abs(bl[8 + c] - tl[c]);
                gx += diagonals + 2 * std::abs(ml[8 + c] - ml[c]);
                gy += diagonals + 2 * std::abs(bl[4 + c] - tl[4 + c]);
            }
            const double magnitude = std::sqrt(double(gx * gx + gy * gy)) * 0.0625;
            const int strength = int(qBound(0.0, std::round(magnitude), 255.0));
            out[x + 1] = OpaqueBlack | quint32(strength) << 16 | quint32(strength) << 8
                | quint32(strength);
            ++slice->histogram[strength];
        }
    }
}

QList<int> PXEdgeDetectorSobelColor::accumulateValues(
    const QList<PXEdgeDetectorSobelSlice*>& slices) const
{
    QList<int> histogram(256, 0);
    for (PXEdgeDetectorSobelSlice* slice : slices) {
        for (int i = 0; i < 256; ++i)
            histogram[i] += slice->histogram[i];
        delete slice;
    }
    return histogram;
}

void PXEdgeDetectorSobelColor::calculateMedianAndMean(const QList<int>& histogram, int half)
{
    // 64-bit sums: a 12-megapixel photo overflows int in the weighted sum.
    qint64 count = 0;
    qint64 weighted = 0;
    int median = 0;
    const int bins = qMin(StatisticsBins, int(histogram.size()));
    for (int i = 0; i < bins; ++i) {
        count += histogram.at(i);
        weighted += qint64(i) * histogram.at(i);
        if (count < half)
            median = i;
    }
    QMutexLocker locker(&m_resultMutex);
    if (count > 0)
        m_average = double(weighted / count);
    m_mean = median;
}

int PXEdgeDetectorSobelColor::detectMeanBorder(QImage image)
{
    return ((image.height() - 2) * (image.width() - 2)) / 2;
}
