#include "PXSlic.h"

#include "PXConcurrent.h"
#include "PXCpuFeatures.h"
#include "PXImage.h"
#include "PXPlatformIndependent.h"
#include "PXSlicPixelSums.h"
#include "PXSlicSumKernels.h"
#include "PXSlicStripe.h"
#include "PXSuperPixel.h"

#include <QColor>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// Seeding loops advance by at least one pixel, so that a grid step below one
// (a lasso box under 100 square pixels) still terminates.
int nextGridPosition(int position, double gridStep)
{
    return std::max(int(position + gridStep), position + 1);
}

int coreCount()
{
    return std::max(1, PXPlatformIndependent::instance()->numberOfCores());
}

using AssignmentKernel = void (*)(const PXSlicSlice&);

// Chosen anew in every round, so that PX_CPU_FEATURES takes effect at once.
AssignmentKernel bestAssignmentKernel()
{
    if (pxCpuHasFeature(CPU_FEATURE_AVX))
        return &PXSlic::adjustSuperPixelSliceAVX;
    if (pxCpuHasFeature(CPU_FEATURE_SSE))
        return &PXSlic::adjustSuperPixelSliceSSE;
    return &PXSlic::adjustSuperPixelSlice;
}

// The sums of records firstIndex..lastIndex over the rows of one slice.
std::vector<PXSlicPixelSums> sumSuperPixelSlice(const PXSuperPixelSlice& slice)
{
    const int firstIndex = std::max(slice.firstIndex, 0);
    const int lastIndex = std::min(slice.lastIndex, int(slice.superPixels.size()) - 1);
    if (firstIndex > lastIndex)
        return {};

    const auto span = quint32(lastIndex - firstIndex);
    std::vector<PXSlicPixelSums> sums(std::size_t(span) + 1);
    const QImage& image = slice.image;
    const QImage& labels = slice.labels;
    if (image.depth() == 32 && labels.depth() == 32 && image.size() == labels.size()) {
        const int top = std::max(slice.top, 0);
        const int bottom = std::min(slice.bottom, image.height());
        const int left = std::max(slice.left, 0);
        const int right = std::min(slice.right, image.width());
        const PXSlicSumKernels::RowKernel sumRow = PXSlicSumKernels::bestRowKernel();
        for (int y = top; y < bottom; ++y) {
            sumRow(reinterpret_cast<const PXYCbCrPixel*>(image.constScanLine(y)),
                reinterpret_cast<const quint32*>(labels.constScanLine(y)), left, right, y, quint32(firstIndex),
                span, sums.data());
        }
    }
    return sums;
}

} // namespace

PXSlicStripe::PXSlicStripe(const PXSlicSlice& slice)
{
    const QImage& image = slice.image;
    if (image.isNull() || image.depth() != 32 || !slice.labels || slice.superPixels.size() < 2)
        return;
    m_xStart = std::max(slice.xStart, 0);
    m_yStart = std::max(slice.yStart, 0);
    m_xEnd = int(std::min<qint64>({slice.xEnd, image.width(), qint64(slice.xStart) + slice.lassoWidth}));
    m_yEnd = int(std::min<qint64>({slice.yEnd, image.height(), qint64(slice.yStart) + slice.lassoHeight}));
    if (m_xStart >= m_xEnd || m_yStart >= m_yEnd)
        return;
    m_imageWidth = image.width();
    m_pixels = reinterpret_cast<const PXYCbCrPixel*>(image.constBits());
    m_labels = slice.labels;
    m_width = m_xEnd - m_xStart;
    m_distances.reset(new float[std::size_t(m_width) * std::size_t(std::min(BandRows, m_yEnd - m_yStart))]);
}

PXSlicStripe::~PXSlicStripe() = default;

int PXSlicStripe::startBand(int top)
{
    const int bottom = std::min(top + BandRows, m_yEnd);
    m_bandTop = top;
    // Every byte 0x7F: a float near FLT_MAX, above any distance a record
    // reaches, written at memset speed.
    std::memset(m_distances.get(), 0x7F, std::size_t(m_width) * std::size_t(bottom - top) * sizeof(float));
    return bottom;
}

float* PXSlicStripe::spatialTable(std::size_t count)
{
    m_spatial.resize(count);
    return m_spatial.data();
}

PXSlic::PXSlic() = default;

PXSlic::~PXSlic()
{
    qDeleteAll(m_superPixels);
}

void PXSlic::setup(PXImage* image, const QPainterPath& lasso)
{
    m_image = image;
    m_lasso = lasso;
    setupParameters(countSuperPixels());
}

int PXSlic::countSuperPixels() const
{
    const QRect rect = lassoBoundingRect();
    const double area = double(float(qint64(rect.width()) * rect.height()));
    const double count = std::trunc(area / 1800.0 + 66.66666666666667);
    if (count > 1200.0)
        return 1200;
    if (count < 101.0)
        return 100;
    return int(count);
}

void PXSlic::setupParameters(int count)
{
    if (count < 1)
        return;
    const QRectF rect = clippedLassoRect();
    m_superPixelCount = count;
    m_gridStep = std::sqrt(rect.width() * rect.height() / count);
}

void PXSlic::run()
{
    initialize();
    emit increaseProgress();
    adjustSuperPixels();
    emit increaseProgress();
    clipLabelsToLasso();
    emit increaseProgress();
    forceConnectivity();
    emit increaseProgress();
}

int PXSlic::totalProgressSteps()
{
    return 4;
}

QImage PXSlic::superPixelAssignments() const
{
    return m_labels;
}

void PXSlic::setSuperPixelAssignments(const QImage& labels)
{
    if (m_image && labels.format() == QImage::Format_ARGB32 && labels.size() == m_image->size())
        m_labels = labels;
}

QList<PXSuperPixel> PXSlic::clusterInformations() const
{
    QList<PXSuperPixel> records;
    records.reserve(m_superPixels.size());
    for (const PXSuperPixel* record : m_superPixels)
        records.append(*record);
    return records;
}

PXSuperPixel* PXSlic::clusterInformations(int index) const
{
    return index >= 0 && index < m_superPixels.size() ? m_superPixels.at(index) : nullptr;
}

QRectF PXSlic::clippedLassoRect() const
{
    // A lasso reaching beyond the photo is cut to it, so no pass leaves the
    // image; without a photo there is nothing to work on.
    if (!m_image || m_image->rect().isEmpty())
        return QRectF();
    return m_lasso.boundingRect().intersected(QRectF(m_image->rect()));
}

QRect PXSlic::lassoBoundingRect() const
{
    if (!m_image)
        return QRect();
    const QRect rect = clippedLassoRect().toRect();
    return m_image->rect().contains(rect) ? rect : rect.intersected(m_image->rect());
}

qint32 PXSlic::outsideLabel()
{
    // The pixel value QColor(Qt::color0) paints into a Format_ARGB32 image
    // with CompositionMode_Source: opaque white, all bits set.
    return qint32(QColor(Qt::color0).rgba());
}

QImage PXSlic::imageYCbCr() const
{
    if (!m_image)
        return QImage();
    const QImage image = m_image->imageYCbCr();
    return image.depth() == 32 ? image : QImage();
}

bool PXSlic::hasLabelsFor(const QImage& image) const
{
    return !image.isNull() && !m_labels.isNull() && m_labels.size() == image.size();
}

void PXSlic::initialize()
{
    m_superPixels.append(new PXSuperPixel(0, 0, 0, 0, 0));
    const QImage image = imageYCbCr();
    if (image.isNull()) {
        m_labels = QImage();
        return;
    }
    const auto* bits = reinterpret_cast<const PXYCbCrPixel*>(image.constBits());
    const double gridStep = m_gridStep;
    const double halfStep = gridStep * 0.5;

    // A whole step in from the top left, but only half a step from the
    // bottom right: the seeds' layout depends on this asymmetry.
    const QRect rect = lassoBoundingRect();
    const int yStart = int(rect.top() + gridStep);
    const int yEnd = int(rect.bottom() - halfStep);
    const int xStart = int(rect.left() + gridStep);
    const int xEnd = int(rect.right() - halfStep);

    if (gridStep >= 1.0 && xEnd > xStart && yEnd > yStart)
        m_superPixels.reserve(m_superPixels.size()
            + int((xEnd - xStart) / gridStep * (yEnd - yStart) / gridStep) + 1);

    for (int y = yStart; y < yEnd; y = nextGridPosition(y, gridStep)) {
        for (int x = xStart; x < xEnd; x = nextGridPosition(x, gridStep)) {
            const QPoint centre = findLocalGradientMinimum(x, y, bits);
            // The colour of the grid point, not of the moved centre.
            m_superPixels.append(new PXSuperPixel(bits[qint64(y) * image.width() + x], centre));
        }
    }

    m_labels = QImage(image.size(), QImage::Format_ARGB32);
    m_labels.fill(0);
}

QPoint PXSlic::findLocalGradientMinimum(int x, int y, const PXYCbCrPixel* bits) const
{
    const QImage image = imageYCbCr();
    if (image.isNull() || !bits)
        return QPoint(x, y);
    const qint64 width = image.width();
    const qint64 count = width * image.height();

    double best = 100000.0;
    QPoint result(x, y);
    for (int i = x - 1; i <= x + 1; ++i) {
        for (int j = y - 1; j <= y + 1; ++j) {
            const qint64 here = qint64(j) * width + i;
            // The second step compares with the first pixel of the next row,
            // not with the pixel below; the seeds have always moved this way.
            const qint64 nextRow = (qint64(j) + 1) * width;
            if (here < 0 || here + 1 >= count || nextRow >= count)
                continue;
            const int luminance = bits[here].luminance;
            const double gradient = double(std::abs(bits[here + 1].luminance - luminance))
                + double(std::abs(bits[nextRow].luminance - luminance));
            if (gradient < best) {
                best = gradient;
                result = QPoint(i, j);
            }
        }
    }
    return result;
}

void PXSlic::adjustSuperPixels()
{
    for (int round = 0; round < m_iterations; ++round) {
        const QImage image = imageYCbCr();
        if (!hasLabelsFor(image))
            return;
        auto* labels = reinterpret_cast<quint32*>(m_labels.bits());
        const QRect rect = lassoBoundingRect();
        const int gridStep = int(m_gridStep);
        const int stripe = (rect.width() / coreCount()) / 8;

        // Stripe edges after the first are multiples of 8 and stripes are at
        // least 24 wide, so the vector kernels run on whole blocks. The last
        // stripe ends at the rectangle's right edge, exclusive, as every pass
        // does; ending it at the image width would make labels depend on the
        // core count.
        QList<PXSlicSlice> slices;
        for (int x0 = rect.left(); x0 < rect.right();) {
            const int next = (x0 / 8) * 8 + std::max(stripe * 8, 24);
            slices.append(PXSlicSlice{image, labels, m_superPixels, rect.width(), rect.height(), x0,
                std::max(0, std::min(next, rect.right())), rect.top(), rect.bottom(), gridStep});
            x0 = next;
        }
        PXConcurrent::blockingMap(slices, bestAssignmentKernel());
        updateSuperPixelInformations();
    }
}

void PXSlic::adjustSuperPixelSlice(const PXSlicSlice& slice)
{
    PXSlicStripe stripe(slice);
    if (stripe.isEmpty())
        return;
    const float gridStep = float(slice.gridStep);
    stripe.forEachWindowInBands(slice, [&](const PXSuperPixel& record, int k, int xLo, int xHi, int yLo, int yHi) {
        for (int y = yLo; y < yHi; ++y)
            stripe.assignRange(record, quint32(k), xLo, xHi, y, gridStep);
    });
}

void PXSlic::updateSuperPixelInformations()
{
    if (m_superPixels.isEmpty())
        return;
    m_superPixels.first()->reset();
    const QImage image = imageYCbCr();
    if (!hasLabelsFor(image))
        return;
    const int count = m_superPixels.size();
    if (count < 2)
        return;

    // Bands of rows, each summing every record: every pixel is read once.
    // The sums wrap like the records' own, so adding the bands up in any
    // order gives the same records.
    const QRect rect = lassoBoundingRect();
    const int rows = std::max(0, rect.bottom() - rect.top());
    const int bands = std::max(1, std::min(coreCount(), rows));
    QList<PXSuperPixelSlice> slices;
    for (int band = 0; band < bands; ++band) {
        slices.append(PXSuperPixelSlice{image, m_labels, rect.top() + int(qint64(rows) * band / bands),
            rect.top() + int(qint64(rows) * (band + 1) / bands), rect.left(), rect.right(), m_superPixels, 1,
            count - 1});
    }
    const QList<std::vector<PXSlicPixelSums>> bandSums
        = PXConcurrent::blockingMapped<QList<std::vector<PXSlicPixelSums>>>(slices, &sumSuperPixelSlice);

    for (int index = 1; index < count; ++index) {
        PXSlicPixelSums sums;
        for (const std::vector<PXSlicPixelSums>& band : bandSums) {
            if (std::size_t(index - 1) < band.size())
                sums.add(band[std::size_t(index - 1)]);
        }
        PXSuperPixel* record = m_superPixels.at(index);
        record->reset();
        sums.addTo(*record);
        record->normalize();
    }
}
