#include "PXEdgeDetectorSobelColor.h"

#include "PXConcurrent.h"
#include "PXCpuFeatures.h"
#include "PXImage.h"
#include "PXPlatformIndependent.h"
#include "PXSimd.h"
#include "PXSobelRowKernels.h"

#include <QMutexLocker>
#include <QScopeGuard>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

constexpr quint32 OpaqueBlack = 0xFF000000u;

// Saturated pixels are counted per slice but left out of the statistics.
constexpr int StatisticsBins = 255;

// One channel of a 3 x 3 window, taken at bit @p shift of the 32-bit pixels.
// The diagonals count in both directions; each channel adds absolute
// differences, so opposite gradients in different channels do not cancel.
inline void addChannel(int shift, quint32 topLeft, quint32 topMiddle, quint32 topRight, quint32 middleLeft,
    quint32 middleRight, quint32 bottomLeft, quint32 bottomMiddle, quint32 bottomRight, int& gx, int& gy)
{
    const auto channel = [shift](quint32 pixel) { return int((pixel >> shift) & 0xFFu); };
    const int diagonals = std::abs(channel(topRight) - channel(bottomLeft))
        + std::abs(channel(bottomRight) - channel(topLeft));
    gx += diagonals + 2 * std::abs(channel(middleRight) - channel(middleLeft));
    gy += diagonals + 2 * std::abs(channel(bottomMiddle) - channel(topMiddle));
}

// sqrt(gx^2 + gy^2) / 16 rounded half away from zero, clamped to 255.
// floor((sqrt(q) + 8) / 16) equals that rounding exactly: the square root of
// an integer is either exact or further than 1e-4 from any half, far more
// than the error of the sum, and it needs no branch on the fraction.
inline int strength(int gx, int gy)
{
    const int rounded = int((std::sqrt(double(gx * gx + gy * gy)) + 8.0) * 0.0625);
    return rounded < 255 ? rounded : 255;
}

} // namespace

PXEdgeDetectorSobelColor::PXEdgeDetectorSobelColor()
    : QThread(nullptr)
{
}

PXEdgeDetectorSobelColor::~PXEdgeDetectorSobelColor()
{
    // QThread must not be destroyed while it runs; the image may be ours.
    join();
    releaseOwnedImage();
}

void PXEdgeDetectorSobelColor::join()
{
    wait();
    m_handOver.observe();
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
    // Whoever join()s takes over the results, on every way out.
    const auto handOn = qScopeGuard([this] { m_handOver.publish(); });
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
    // Counted locally: the slice's counters could alias the pixels for the
    // compiler and force reloads.
    int histogram[256] = {};
#ifdef PX_X86_64
    const bool vector = pxCpuHasFeature(CPU_FEATURE_AVX);
#endif
    for (int y = firstRow; y < endRow; ++y) {
        const auto* top = reinterpret_cast<const quint32*>(source.constScanLine(y - 1));
        const auto* middle = reinterpret_cast<const quint32*>(source.constScanLine(y));
        const auto* bottom = reinterpret_cast<const quint32*>(source.constScanLine(y + 1));
        quint32* out = sobelRows + qsizetype(y) * width;
        int start = 0;
#ifdef PX_X86_64
        if (vector)
            start = PXSobelRowKernels::rowAvx2(top, middle, bottom, out, width, histogram);
#endif
        // A sliding 3 x 3 window: each step reads only its right column.
        quint32 topLeft = top[start], topMiddle = top[start + 1];
        quint32 middleLeft = middle[start], middleMiddle = middle[start + 1];
        quint32 bottomLeft = bottom[start], bottomMiddle = bottom[start + 1];
        for (int x = start; x <= width - 4; ++x) {
            const quint32 topRight = top[x + 2];
            const quint32 middleRight = middle[x + 2];
            const quint32 bottomRight = bottom[x + 2];
            int gx = 0;
            int gy = 0;
            addChannel(0, topLeft, topMiddle, topRight, middleLeft, middleRight, bottomLeft, bottomMiddle,
                bottomRight, gx, gy);
            addChannel(8, topLeft, topMiddle, topRight, middleLeft, middleRight, bottomLeft, bottomMiddle,
                bottomRight, gx, gy);
            addChannel(16, topLeft, topMiddle, topRight, middleLeft, middleRight, bottomLeft, bottomMiddle,
                bottomRight, gx, gy);
            const int value = strength(gx, gy);
            out[x + 1] = OpaqueBlack | quint32(value) << 16 | quint32(value) << 8 | quint32(value);
            ++histogram[value];
            topLeft = topMiddle;
            topMiddle = topRight;
            middleLeft = middleMiddle;
            middleMiddle = middleRight;
            bottomLeft = bottomMiddle;
            bottomMiddle = bottomRight;
        }
    }
    std::copy(std::begin(histogram), std::end(histogram), std::begin(slice->histogram));
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
