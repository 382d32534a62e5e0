#include "PXSlic.h"

#include "PXConcurrent.h"
#include "PXCpuFeatures.h"
#include "PXImage.h"
#include "PXLassoRaster.h"
#include "PXPlatformIndependent.h"
#include "PXSlicStripe.h"
#include "PXSuperPixel.h"

#include <QBrush>
#include <QColor>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <cstdlib>
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

// The sums of one record's pixels, in the wrapping arithmetic of
// PXSuperPixel::addPixel, kept in plain integers for the hot loops.
struct PixelSums
{
    quint32 luminance = 0;
    quint32 cb = 0;
    quint32 cr = 0;
    quint32 x = 0;
    quint32 y = 0;
    int count = 0;

    // Pixels [begin, end) of one row that share a label, summed in registers:
    // label runs are long, and adding pixel by pixel into memory would make
    // every addition wait for the previous one.
    void addRun(const PXYCbCrPixel* pixels, int begin, int end, int row)
    {
        quint32 runLuminance = 0;
        quint32 runCb = 0;
        quint32 runCr = 0;
        for (int column = begin; column < end; ++column) {
            runLuminance += pixels[column].luminance;
            runCb += pixels[column].cb;
            runCr += pixels[column].cr;
        }
        const qint64 length = end - begin;
        luminance += runLuminance;
        cb += runCb;
        cr += runCr;
        x += quint32((qint64(begin) + end - 1) * length / 2);
        y += quint32(qint64(row) * length);
        count += int(length);
    }

    void addTo(PXSuperPixel& record) const
    {
        if (count > 0)
            record.addPixels(PXYCbCr(luminance, cb, cr), int(x), int(y), count);
    }
};

// One run [left, right) of row y.
struct Span
{
    int y;
    int left;
    int right;
};

// Writes @p mark into @p fresh over the 4-connected piece of pixels that
// carry the label of @p start in @p old and are still 0 in @p fresh, bounded
// by the image only. The piece is the same whichever way it is walked; this
// walks it run by run, which keeps memory access mostly sequential. Leaves
// the piece's runs in @p spans and returns its size; @p seeds is scratch.
qint64 floodPiece(const qint32* old, qint32* fresh, int width, int height, const QPoint& start,
    qint32 mark, std::vector<Span>& spans, std::vector<QPoint>& seeds)
{
    const qint32 label = old[qint64(start.y()) * width + start.x()];
    const auto open = [&](qint64 index) { return fresh[index] == 0 && old[index] == label; };
    spans.clear();
    seeds.assign(1, start);
    qint64 size = 0;
    while (!seeds.empty()) {
        const QPoint seed = seeds.back();
        seeds.pop_back();
        const qint64 row = qint64(seed.y()) * width;
        if (!open(row + seed.x()))
            continue;
        int left = seed.x();
        int right = seed.x() + 1;
        while (left > 0 && open(row + left - 1))
            --left;
        while (right < width && open(row + right))
            ++right;
        std::fill(fresh + row + left, fresh + row + right, mark);
        spans.push_back(Span{seed.y(), left, right});
        size += right - left;
        for (const int y : {seed.y() - 1, seed.y() + 1}) {
            if (y < 0 || y >= height)
                continue;
            const qint64 next = qint64(y) * width;
            for (int x = left; x < right; ++x) {
                if (!open(next + x))
                    continue;
                seeds.push_back(QPoint(x, y));
                while (x + 1 < right && open(next + x + 1))
                    ++x;
            }
        }
    }
    return size;
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

} // namespace

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
    for (int k = 1; k < slice.superPixels.size(); ++k) {
        const PXSuperPixel& record = *slice.superPixels.at(k);
        int xLo, xHi, yLo, yHi;
        if (!stripe.window(record, slice.gridStep, xLo, xHi, yLo, yHi))
            continue;
        for (int y = yLo; y < yHi; ++y)
            stripe.assignRange(record, quint32(k), xLo, xHi, y, gridStep);
    }
}

void PXSlic::updateSuperPixelInformations()
{
    if (m_superPixels.isEmpty())
        return;
    m_superPixels.first()->reset();
    const QImage image = imageYCbCr();
    if (!hasLabelsFor(image))
        return;

    const QRect rect = lassoBoundingRect();
    const int count = m_superPixels.size();
    // At least one record per item: with fewer records than cores the
    // items' start would never advance.
    const int perItem = std::max(1, count / coreCount());
    QList<PXSuperPixelSlice> slices;
    for (int first = 1; first < count; first += perItem) {
        slices.append(PXSuperPixelSlice{image, m_labels, rect.top(), rect.bottom(), rect.left(),
            rect.right(), m_superPixels, first, std::min(first + perItem, count) - 1});
    }
    PXConcurrent::blockingMap(slices, &PXSlic::updateSuperPixelSlice);
}

void PXSlic::updateSuperPixelSlice(const PXSuperPixelSlice& slice)
{
    const int firstIndex = std::max(slice.firstIndex, 0);
    const int lastIndex = std::min(slice.lastIndex, int(slice.superPixels.size()) - 1);
    if (firstIndex > lastIndex)
        return;

    const auto span = quint32(lastIndex - firstIndex);
    std::vector<PixelSums> sums(std::size_t(span) + 1);
    const QImage& image = slice.image;
    const QImage& labels = slice.labels;
    if (image.depth() == 32 && labels.depth() == 32 && image.size() == labels.size()) {
        const int top = std::max(slice.top, 0);
        const int bottom = std::min(slice.bottom, image.height());
        const int left = std::max(slice.left, 0);
        const int right = std::min(slice.right, image.width());
        for (int y = top; y < bottom; ++y) {
            const auto* pixels = reinterpret_cast<const PXYCbCrPixel*>(image.constScanLine(y));
            const auto* labelRow = reinterpret_cast<const quint32*>(labels.constScanLine(y));
            for (int x = left; x < right;) {
                const quint32 label = labelRow[x];
                int end = x + 1;
                while (end < right && labelRow[end] == label)
                    ++end;
                // One unsigned comparison tests firstIndex <= label <= lastIndex.
                const quint32 offset = label - quint32(firstIndex);
                if (offset <= span)
                    sums[offset].addRun(pixels, x, end, y);
                x = end;
            }
        }
    }

    for (int index = firstIndex; index <= lastIndex; ++index) {
        PXSuperPixel* record = slice.superPixels.at(index);
        record->reset();
        sums[std::size_t(index - firstIndex)].addTo(*record);
        record->normalize();
    }
}

void PXSlic::clipLabelsToLasso()
{
    if (!m_labels.isNull() && PXLassoRaster::isIntricate(m_lasso) && m_labels.depth() == 32) {
        // A hand-drawn lasso is filled on a raster instead of subtracted from
        // the rectangle, which could take minutes over a jittery one.
        const QImage inside = PXLassoRaster::fill(m_lasso, m_labels.rect());
        const quint32 outsideLabel = QColor(Qt::color0).rgba(); // what the painter writes below
        for (int y = 0; y < m_labels.height(); ++y) {
            const auto* mask = reinterpret_cast<const quint32*>(inside.constScanLine(y));
            auto* labels = reinterpret_cast<quint32*>(m_labels.scanLine(y));
            for (int x = 0; x < m_labels.width(); ++x)
                if (mask[x] != 0xFFFFFFFFu)
                    labels[x] = outsideLabel;
        }
    } else if (!m_labels.isNull()) {
        QPainterPath outside;
        outside.addRect(QRectF(m_labels.rect()));
        outside = outside.subtracted(m_lasso);
        // No anti-aliasing: whether an edge pixel is outside is the fill rule's decision.
        QPainter painter(&m_labels);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillPath(outside, QBrush(QColor(Qt::color0)));
        painter.end();
    }
    updateSuperPixelInformations();
}

void PXSlic::forceConnectivity()
{
    const QImage image = imageYCbCr();
    const QRect rect = lassoBoundingRect();
    if (!hasLabelsFor(image) || rect.height() <= 1) {
        // Nothing to relabel: only the dummy record remains.
        if (!m_labels.isNull()) {
            m_labels = QImage(m_labels.size(), m_labels.format());
            m_labels.fill(0);
        }
        initNewSuperPixels(1);
        allocateSmallClusters();
        return;
    }

    const int width = image.width();
    const int height = image.height();
    const int recordCount = std::max(1, int(m_superPixels.size()));
    const int averageArea = int(qint64(rect.width()) * rect.height() / recordCount);
    const int minSize = (averageArea >> 2) / 100;

    const QImage oldLabels = m_labels;
    const auto* old = reinterpret_cast<const qint32*>(oldLabels.constBits());
    QImage fresh(m_labels.size(), m_labels.format());
    fresh.fill(0);
    auto* labels = reinterpret_cast<qint32*>(fresh.bits());

    qint32 nextLabel = 1;
    qint32 smallLabel = -2;
    std::vector<Span> spans;
    std::vector<QPoint> seeds;
    for (int y = rect.top(); y < rect.bottom(); ++y) {
        for (int x = rect.left(); x < rect.right(); ++x) {
            const qint64 start = qint64(y) * width + x;
            if (labels[start] != 0 || old[start] == 0)
                continue;
            const qint64 size = floodPiece(old, labels, width, height, QPoint(x, y), nextLabel, spans, seeds);
            if (size <= minSize) {
                for (const Span& span : spans)
                    std::fill(labels + qint64(span.y) * width + span.left, labels + qint64(span.y) * width + span.right,
                        smallLabel);
                --smallLabel;
            } else {
                ++nextLabel;
            }
        }
    }

    m_labels = fresh;
    initNewSuperPixels(nextLabel);

    // The records start counting at 1 with zero sums, so these means are
    // pulled toward zero; allocateSmallClusters() compares against them.
    std::vector<PixelSums> sums(static_cast<std::size_t>(nextLabel));
    for (int y = rect.top(); y < rect.bottom(); ++y) {
        const auto* pixels = reinterpret_cast<const PXYCbCrPixel*>(image.constScanLine(y));
        const qint32* labelRow = labels + qint64(y) * width;
        for (int x = rect.left(); x < rect.right();) {
            const qint32 label = labelRow[x];
            int end = x + 1;
            while (end < rect.right() && labelRow[end] == label)
                ++end;
            if (label > 0)
                sums[std::size_t(label)].addRun(pixels, x, end, y);
            x = end;
        }
    }
    for (int label = 0; label < nextLabel; ++label) {
        PXSuperPixel* record = m_superPixels.at(label);
        sums[std::size_t(label)].addTo(*record);
        record->normalize();
    }

    allocateSmallClusters();
}

void PXSlic::allocateSmallClusters()
{
    static const QList<QPoint> myWalker = {QPoint(0, -1), QPoint(0, 1), QPoint(-1, 0),
        QPoint(-1, -1), QPoint(-1, 1), QPoint(1, 0), QPoint(1, -1), QPoint(1, 1)};

    const QImage image = imageYCbCr();
    if (hasLabelsFor(image)) {
        const int width = image.width();
        const int height = image.height();
        const auto* pixels = reinterpret_cast<const PXYCbCrPixel*>(image.constBits());
        auto* labels = reinterpret_cast<qint32*>(m_labels.bits());
        // Pixels marked by the floods; made when the first small piece turns up.
        std::vector<quint8> marked;

        // The image's rectangle with its right and bottom edges exclusive, like
        // every other pass: the last row and column start no piece.
        const QRect area = image.rect();
        std::vector<QPoint> points;
        std::vector<qint32> neighbours;
        for (int y = area.top(); y < area.bottom(); ++y) {
            for (int x = area.left(); x < area.right(); ++x) {
                const qint64 start = qint64(y) * width + x;
                const qint32 label = labels[start];
                if (label > -2)
                    continue;
                if (marked.empty())
                    marked.assign(std::size_t(width) * std::size_t(height), 0);
                // The scan visits every pixel it passes, so a pixel counts as
                // visited once the scan has reached it or a flood has marked it.
                const auto visited = [&](const QPoint& q, qint64 index) {
                    const bool scanned = q.y() < area.bottom() && q.x() < area.right()
                        && (q.y() < y || (q.y() == y && q.x() <= x));
                    return scanned || marked[std::size_t(index)] != 0;
                };

                points.clear();
                points.push_back(QPoint(x, y));
                neighbours.clear();
                PXSuperPixel piece(pixels[start], QPoint(x, y));
                for (std::size_t i = 0; i < points.size(); ++i) {
                    const QPoint point = points[i];
                    for (const QPoint& offset : myWalker) {
                        const QPoint q = point + offset;
                        if (q.x() < 0 || q.x() >= width || q.y() < 0 || q.y() >= height)
                            continue;
                        const qint64 index = qint64(q.y()) * width + q.x();
                        if (visited(q, index))
                            continue;
                        // A foreign pixel is marked too, so no later piece
                        // enters it; it keeps its label unless the scan
                        // starts a piece there.
                        marked[std::size_t(index)] = 1;
                        const qint32 neighbour = labels[index];
                        if (neighbour == label) {
                            piece.addPixel(pixels[index], q.x(), q.y());
                            points.push_back(q);
                        } else if (neighbour >= 0) {
                            neighbours.push_back(neighbour);
                        }
                    }
                }
                piece.normalize();

                // Ascending labels, so that a tie goes to the lowest one whatever the hash seed.
                std::sort(neighbours.begin(), neighbours.end());
                neighbours.erase(std::unique(neighbours.begin(), neighbours.end()), neighbours.end());
                qint32 target = -1;
                quint32 best = 0;
                for (const qint32 neighbour : neighbours) {
                    if (neighbour >= m_superPixels.size())
                        continue;
                    const auto distance = quint32(m_superPixels.at(neighbour)->colorDistanceQuadrat(piece));
                    if (target < 0 || distance < best) {
                        target = neighbour;
                        best = distance;
                    }
                }
                if (target < 0) {
                    m_superPixels.append(new PXSuperPixel(0, 0, 0, 0, 0));
                    target = qint32(m_superPixels.size() - 1);
                }
                for (const QPoint& point : points)
                    labels[qint64(point.y()) * width + point.x()] = target;
            }
        }
    }
    updateSuperPixelInformations();
}

void PXSlic::initNewSuperPixels(int count)
{
    qDeleteAll(m_superPixels);
    m_superPixels.clear();
    m_superPixels.reserve(std::max(count, 0));
    for (int i = 0; i < count; ++i)
        m_superPixels.append(new PXSuperPixel(0, 0, 0, 0, 0));
}
