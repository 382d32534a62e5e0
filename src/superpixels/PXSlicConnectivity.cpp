// The last two stages of the clustering: clipping the labels to the lasso
// and making every superpixel one connected piece.
#include "PXSlic.h"

#include "PXLassoRaster.h"
#include "PXSlicPixelSums.h"
#include "PXSlicSumKernels.h"
#include "PXSuperPixel.h"

#include <QBrush>
#include <QColor>
#include <QPainter>

#include <algorithm>
#include <utility>
#include <vector>

namespace {

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

// The small pieces (labels -2 and below) of the image, found by a scan in
// row order that starts an 8-connected flood at each one.
struct SmallPieceScan
{
    const PXYCbCrPixel* pixels;
    const qint32* labels;
    int width;
    int height;
    QRect area;
    // Pixels marked by the floods; made when the first small piece turns up.
    std::vector<quint8> marked;

    // The piece at @p start, the scan's current pixel: its points and mean
    // colour, and the labels (>= 0) of the pixels it touches.
    PXSuperPixel flood(const QPoint& start, std::vector<QPoint>& points, std::vector<qint32>& neighbours)
    {
        static const QList<QPoint> myWalker = {QPoint(0, -1), QPoint(0, 1), QPoint(-1, 0),
            QPoint(-1, -1), QPoint(-1, 1), QPoint(1, 0), QPoint(1, -1), QPoint(1, 1)};
        if (marked.empty())
            marked.assign(std::size_t(width) * std::size_t(height), 0);
        const qint32 label = labels[qint64(start.y()) * width + start.x()];
        // The scan visits every pixel it passes, so a pixel counts as
        // visited once the scan has reached it or a flood has marked it.
        const auto visited = [&](const QPoint& q, qint64 index) {
            const bool scanned = q.y() < area.bottom() && q.x() < area.right()
                && (q.y() < start.y() || (q.y() == start.y() && q.x() <= start.x()));
            return scanned || marked[std::size_t(index)] != 0;
        };

        points.assign(1, start);
        neighbours.clear();
        PXSuperPixel piece(pixels[qint64(start.y()) * width + start.x()], start);
        for (std::size_t i = 0; i < points.size(); ++i) {
            const QPoint point = points[i];
            for (const QPoint& offset : myWalker) {
                const QPoint q = point + offset;
                if (q.x() < 0 || q.x() >= width || q.y() < 0 || q.y() >= height)
                    continue;
                const qint64 index = qint64(q.y()) * width + q.x();
                if (visited(q, index))
                    continue;
                // A foreign pixel is marked too, so no later piece enters it;
                // it keeps its label unless the scan starts a piece there.
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
        return piece;
    }
};

// The label among @p neighbours whose record is closest in colour to
// @p piece, -1 if none has a record. Ascending labels, so that a tie goes to
// the lowest one whatever the hash seed.
qint32 closestNeighbour(std::vector<qint32>& neighbours, const QList<PXSuperPixel*>& records, const PXSuperPixel& piece)
{
    std::sort(neighbours.begin(), neighbours.end());
    neighbours.erase(std::unique(neighbours.begin(), neighbours.end()), neighbours.end());
    qint32 target = -1;
    quint32 best = 0;
    for (const qint32 neighbour : neighbours) {
        if (neighbour >= records.size())
            continue;
        const auto distance = quint32(records.at(neighbour)->colorDistanceQuadrat(piece));
        if (target < 0 || distance < best) {
            target = neighbour;
            best = distance;
        }
    }
    return target;
}

} // namespace

void PXSlic::clipLabelsToLasso()
{
    if (!m_labels.isNull() && PXLassoRaster::isIntricate(m_lasso) && m_labels.depth() == 32) {
        // A hand-drawn lasso is filled on a raster instead of subtracted from
        // the rectangle, which could take minutes over a jittery one.
        const QImage inside = PXLassoRaster::fill(m_lasso, m_labels.rect());
        const quint32 outsideLabel = QColor(Qt::color0).rgba(); // what the painter writes below
        const int width = m_labels.width();
        for (int y = 0; y < m_labels.height(); ++y) {
            const auto* mask = reinterpret_cast<const quint32*>(inside.constScanLine(y));
            auto* labels = reinterpret_cast<quint32*>(m_labels.scanLine(y));
            for (int x = 0; x < width; ++x)
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
    const int left = rect.left();
    const int right = rect.right();
    for (int y = rect.top(); y < rect.bottom(); ++y) {
        const qint32* freshRow = labels + qint64(y) * width;
        const qint32* oldRow = old + qint64(y) * width;
        for (int x = left; x < right; ++x) {
            // Most pixels were reached by an earlier piece's flood.
            if (freshRow[x] != 0 || oldRow[x] == 0)
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

    // Moved, not shared: allocateSmallClusters() writes m_labels and would
    // otherwise copy the whole image first. labels still points into it.
    m_labels = std::move(fresh);
    initNewSuperPixels(nextLabel);

    // The records start counting at 1 with zero sums, so these means are
    // pulled toward zero; allocateSmallClusters() compares against them.
    // Labels 1..nextLabel - 1 go to sums[label - 1]; 0 and the small pieces' are skipped.
    std::vector<PXSlicPixelSums> sums(static_cast<std::size_t>(nextLabel));
    if (nextLabel > 1) {
        const PXSlicSumKernels::RowKernel sumRow = PXSlicSumKernels::bestRowKernel();
        for (int y = rect.top(); y < rect.bottom(); ++y) {
            sumRow(reinterpret_cast<const PXYCbCrPixel*>(image.constScanLine(y)),
                reinterpret_cast<const quint32*>(labels + qint64(y) * width), rect.left(), rect.right(), y, 1u,
                quint32(nextLabel - 2), sums.data());
        }
    }
    for (int label = 1; label < nextLabel; ++label) {
        PXSuperPixel* record = m_superPixels.at(label);
        sums[std::size_t(label - 1)].addTo(*record);
        record->normalize();
    }

    allocateSmallClusters();
}

void PXSlic::allocateSmallClusters()
{
    const QImage image = imageYCbCr();
    if (hasLabelsFor(image)) {
        auto* labels = reinterpret_cast<qint32*>(m_labels.bits());
        SmallPieceScan scan {reinterpret_cast<const PXYCbCrPixel*>(image.constBits()), labels, image.width(),
            image.height(), image.rect(), {}};
        std::vector<QPoint> points;
        std::vector<qint32> neighbours;
        // The image's rectangle with its right and bottom edges exclusive, like
        // every other pass: the last row and column start no piece.
        const int left = scan.area.left();
        const int right = scan.area.right();
        for (int y = scan.area.top(); y < scan.area.bottom(); ++y) {
            const qint32* row = labels + qint64(y) * scan.width;
            for (int x = left; x < right; ++x) {
                if (row[x] > -2)
                    continue;
                const PXSuperPixel piece = scan.flood(QPoint(x, y), points, neighbours);
                qint32 target = closestNeighbour(neighbours, m_superPixels, piece);
                if (target < 0) {
                    m_superPixels.append(new PXSuperPixel(0, 0, 0, 0, 0));
                    target = qint32(m_superPixels.size() - 1);
                }
                for (const QPoint& point : points)
                    labels[qint64(point.y()) * scan.width + point.x()] = target;
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
