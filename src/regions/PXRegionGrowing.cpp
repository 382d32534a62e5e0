#include "PXRegionGrowing.h"

#include "PXConcurrent.h"
#include "PXImage.h"
#include "PXIntRange.h"
#include "PXPlatformIndependent.h"
#include "PXRegionBoundaryKernels.h"
#include "PXRegionGrowingEdgeCandidate.h"
#include "PXSlicPixelSums.h"

#include <QRandomGenerator64>

#include <algorithm>
#include <climits>
#include <numeric>
#include <vector>

namespace {

bool byLabelPair(const PXRegionGrowingEdge& a, const PXRegionGrowingEdge& b)
{
    const PXRegionGrowingFromTo first = a.fromTo();
    const PXRegionGrowingFromTo second = b.fromTo();
    return first.from() < second.from() || (first.from() == second.from() && first.to() < second.to());
}

// A total order, so that edges of equal strength merge the same way whatever
// order the hash tables and slices produced them in.
bool byWeightThenLabels(const PXRegionGrowingEdge& a, const PXRegionGrowingEdge& b)
{
    if (a.edgeStrength() != b.edgeStrength())
        return a.edgeStrength() < b.edgeStrength();
    return byLabelPair(a, b);
}

// Rows per band of the passes that build the region records.
constexpr int myClusterBandRows = 64;

const qint32* labelRow(const QImage& labels, int y)
{
    return reinterpret_cast<const qint32*>(labels.constScanLine(y));
}

} // namespace

PXRegionGrowing::PXRegionGrowing()
    : QObject(nullptr)
{
}

PXRegionGrowing::~PXRegionGrowing()
{
    releaseForest();
}

void PXRegionGrowing::releaseForest()
{
    delete[] m_forest;
    m_forest = nullptr;
    m_forestSize = 0;
}

void PXRegionGrowing::setup(
    PXImage* image, const QPainterPath& lasso, const QImage& edgeImage, double threshold)
{
    m_image = image;
    m_lasso = lasso;
    m_edgeImage = edgeImage;
    m_threshold = threshold;
}

void PXRegionGrowing::setClusterData(const QList<PXSuperPixel>& superpixels, const QImage& labels)
{
    m_superPixels = superpixels;
    // Labels are read as 32-bit integers; anything else has none.
    m_labels = labels.depth() == 32 ? labels : QImage();
    m_numberOfClusters = int(superpixels.size());
}

int PXRegionGrowing::totalProgressSteps()
{
    return 5;
}

void PXRegionGrowing::run()
{
    createGraph();
    emit increaseProgress();
    segmentGraph();
    emit increaseProgress();
    reorderLabels();
    emit increaseProgress();
    buildClusters();
    emit increaseProgress();
    findNeighborhood();
    emit increaseProgress();
}

QRect PXRegionGrowing::lassoRect() const
{
    QRectF bounds = m_lasso.boundingRect();
    // Keeps the rounding to int defined for lassos far outside any photo.
    constexpr qreal Limit = 1e9;
    if (bounds.left() < -Limit || bounds.top() < -Limit || bounds.right() > Limit
        || bounds.bottom() > Limit) {
        bounds = QRectF(QPointF(qBound(-Limit, bounds.left(), Limit), qBound(-Limit, bounds.top(), Limit)),
            QPointF(qBound(-Limit, bounds.right(), Limit), qBound(-Limit, bounds.bottom(), Limit)));
    }
    return bounds.toRect();
}

void PXRegionGrowing::createGraph()
{
    const QRect rect = lassoRect();
    const int count = int(m_superPixels.size());
    QList<PXSuperPixelEdgeDetectionSlice> slices;
    if (count >= 2) {
        const int cores = PXPlatformIndependent::instance()->numberOfCores();
        // Never 0, or the slicing would not advance with fewer labels than cores.
        const int step = qMax(1, count / cores);
        for (int first = 1; first < count; first += step) {
            PXSuperPixelEdgeDetectionSlice slice;
            slice.edgeImage = m_edgeImage;
            slice.labelImage = m_labels;
            // The right and bottom corner are exclusive bounds: the last
            // column and row of the rectangle are never visited.
            slice.top = rect.top();
            slice.bottom = rect.bottom();
            slice.left = rect.left();
            slice.right = rect.right();
            slice.superPixels = m_superPixels;
            slice.firstLabel = first;
            slice.lastLabel = qMin(first + step, count) - 1;
            slices.append(std::move(slice));
        }
    }
    const auto perSlice = PXConcurrent::blockingMapped<QList<QList<PXRegionGrowingEdge>>>(
        slices, &PXRegionGrowing::createGraphSlice);
    m_edges.clear();
    qsizetype total = 0;
    for (const auto& edges : perSlice)
        total += edges.size();
    m_edges.reserve(total);
    for (const auto& edges : perSlice)
        m_edges.append(edges);
}

QList<PXRegionGrowingEdge> PXRegionGrowing::createGraphSlice(const PXSuperPixelEdgeDetectionSlice& slice)
{
    QList<PXRegionGrowingEdge> result;
    const QImage& edgeImage = slice.edgeImage;
    const QImage& labelImage = slice.labelImage;
    const int width = edgeImage.width();
    const int height = edgeImage.height();
    if (edgeImage.depth() != 32 || labelImage.depth() != 32 || labelImage.size() != edgeImage.size())
        return result;
    const int labelCount = int(slice.superPixels.size());
    const int top = qMax(0, slice.top);
    const int bottom = qMin(slice.bottom, height);
    const int left = qMax(0, slice.left);
    const int right = qMin(slice.right, width);

    QHash<PXRegionGrowingFromTo, PXRegionGrowingEdgeCandidate*> candidates;
    candidates.reserve(100000);
    // Consecutive pixels mostly see the same boundary.
    PXRegionGrowingFromTo cachedKey;
    PXRegionGrowingEdgeCandidate* cached = nullptr;

    const PXRegionBoundaryKernels::Kernel nextBoundary = PXRegionBoundaryKernels::bestKernel();
    const int lastRow = height - 1;
    for (int y = top; y < bottom; ++y) {
        // Neighbour rows in the order below, above; null outside the image.
        const qint32* rows[3] = {labelRow(labelImage, y), y < lastRow ? labelRow(labelImage, y + 1) : nullptr,
            y > 0 ? labelRow(labelImage, y - 1) : nullptr};
        const uchar* edges = edgeImage.constScanLine(y);
        // Outside the image the pixel's own label stands in: skipped like no superpixel.
        const qint32* below = rows[1] ? rows[1] : rows[0];
        const qint32* above = rows[2] ? rows[2] : rows[0];
        // Most pixels lie inside their superpixel and add no edge.
        for (int x = nextBoundary(rows[0], above, below, left, right, width); x < right;
             x = nextBoundary(rows[0], above, below, x + 1, right, width)) {
            const int label = rows[0][x];
            if (label < slice.firstLabel || label > slice.lastLabel)
                continue;
            const int leftLabel = x > 0 ? rows[0][x - 1] : label;
            const int rightLabel = x + 1 < width ? rows[0][x + 1] : label;
            // The strength of the visited pixel, not of its neighbour.
            const int strength = edges[4 * x + 2];
            // Left, below, right, above.
            const int neighbours[4] = {leftLabel, below[x], rightLabel, above[x]};
            for (const int neighbour : neighbours) {
                // Outside the image, outside the lasso and labels without a
                // record count as no superpixel.
                if (neighbour < 1 || neighbour == label || neighbour >= labelCount)
                    continue;
                const PXRegionGrowingFromTo key(label, neighbour);
                if (!cached || key != cachedKey) {
                    PXRegionGrowingEdgeCandidate*& candidate = candidates[key];
                    if (!candidate)
                        candidate = new PXRegionGrowingEdgeCandidate;
                    cachedKey = key;
                    cached = candidate;
                }
                cached->addEdge(strength);
            }
        }
    }

    result.reserve(candidates.size());
    for (auto it = candidates.cbegin(); it != candidates.cend(); ++it) {
        result.append(PXRegionGrowingEdge(it.key(), slice.superPixels, it.value()->normalizedAverageEdgeStrength()));
        delete it.value();
    }
    // Independent of the hash seed, for anybody reading edges().
    std::sort(result.begin(), result.end(), byLabelPair);
    return result;
}

void PXRegionGrowing::segmentGraph()
{
    std::sort(m_edges.begin(), m_edges.end(), byWeightThenLabels);

    // A forest of an earlier call is released, not leaked.
    releaseForest();
    const int nodes = qMax(0, m_numberOfClusters);
    if (nodes > 0) {
        m_forest = new ForestNode[nodes];
        m_forestSize = nodes;
        for (int i = 0; i < nodes; ++i)
            m_forest[i] = {0, i, i < m_superPixels.size() ? m_superPixels.at(i).pixelCount() : 0};
    }

    const QSize imageSize = m_image ? m_image->size() : QSize(0, 0);
    const double area = double(imageSize.width()) * double(imageSize.height());
    const int minSize = int(qBound(25.0, area * 0.0002, 400.0));
    const double kLow = qMax(1.0, m_threshold);
    const double kHigh = qMax(5.0, kLow);

    const auto inForest = [this](const PXRegionGrowingFromTo& pair) {
        return pair.from() >= 0 && pair.from() < m_forestSize && pair.to() >= 0
            && pair.to() < m_forestSize;
    };

    QList<PXRegionGrowingEdge> deferred;
    for (const PXRegionGrowingEdge& edge : std::as_const(m_edges)) {
        const PXRegionGrowingFromTo pair = edge.fromTo();
        if (!inForest(pair))
            continue;
        const int a = findParent(pair.from());
        const int b = findParent(pair.to());
        if (a == b)
            continue;
        const PXYCbCr difference = edge.colorDifference();
        const unsigned int chroma = qMax(difference.cb(), difference.cr());
        const unsigned int luminance = difference.luminance();
        const double strength = edge.edgeStrength();
        if (kHigh > strength && chroma <= 7 && luminance <= 4) {
            join(a, b);
            continue;
        }
        if (size(a) < minSize || size(b) < minSize) {
            if (kLow > strength) {
                deferred.append(edge);
            } else if (size(a) >= 25 && size(b) > 24) {
                // The same bound twice, as the thresholds were tuned with it.
                continue;
            } else {
                deferred.append(edge);
            }
        }
    }

    std::sort(deferred.begin(), deferred.end(), byWeightThenLabels);
    for (const PXRegionGrowingEdge& edge : std::as_const(deferred)) {
        const int a = findParent(edge.fromTo().from());
        const int b = findParent(edge.fromTo().to());
        if (a != b && (size(a) < minSize || size(b) < minSize))
            join(a, b);
    }
}

void PXRegionGrowing::join(int a, int b)
{
    if (!m_forest || a < 0 || a >= m_forestSize || b < 0 || b >= m_forestSize)
        return;
    ForestNode& first = m_forest[a];
    ForestNode& second = m_forest[b];
    if (first.rank <= second.rank) {
        first.parent = b;
        second.size += first.size;
        if (first.rank == second.rank)
            second.rank = first.rank + 1;
    } else {
        second.parent = a;
        first.size += second.size;
    }
    --m_numberOfClusters;
}

int PXRegionGrowing::findParent(int label) const
{
    if (!m_forest || label < 0 || label >= m_forestSize)
        return label;
    int root = label;
    while (m_forest[root].parent != root)
        root = m_forest[root].parent;
    // Only the node asked for is pointed at the root, not those passed.
    m_forest[label].parent = root;
    return root;
}

int PXRegionGrowing::size(int label) const
{
    if (!m_forest || label < 0 || label >= m_forestSize)
        return 0;
    return m_forest[label].size;
}

void PXRegionGrowing::reorderLabels()
{
    const QSize imageSize = m_image ? m_image->size() : QSize();
    QImage relabeled(imageSize, QImage::Format_ARGB32);
    // Labels without a node (or a record, before any forest) count as outside.
    const int known = m_forest ? m_forestSize : int(m_superPixels.size());
    std::vector<int> newLabels(size_t(qMax(0, known)), 0);
    int next = 1;
    int lastLabel = 0;
    int lastMapped = 0;
    const int labelWidth = m_labels.width();
    const int labelHeight = m_labels.height();
    const int width = relabeled.width();
    const int height = relabeled.height();
    for (int y = 0; y < height; ++y) {
        auto* out = reinterpret_cast<qint32*>(relabeled.scanLine(y));
        const qint32* in = y < labelHeight ? labelRow(m_labels, y) : nullptr;
        const int columns = in ? qMin(width, labelWidth) : 0;
        for (int x = 0; x < columns; ++x) {
            const int label = in[x];
            // Runs of one label share their root; the forest is not changed
            // by asking again. Label 0 before any other maps to 0 as well.
            if (label == lastLabel) {
                out[x] = lastMapped;
                continue;
            }
            if (label < 1 || label >= known) {
                out[x] = 0;
                continue;
            }
            int& mapped = newLabels[size_t(findParent(label))];
            if (mapped == 0)
                mapped = next++;
            lastLabel = label;
            lastMapped = mapped;
            out[x] = lastMapped;
        }
        std::fill(out + columns, out + width, 0);
    }
    m_numberOfClusters = next;
    m_labels = relabeled;
}

void PXRegionGrowing::buildClusters()
{
    const int count = qMax(0, m_numberOfClusters);
    m_superPixels.clear();
    m_superPixelPoints.clear();
    m_superPixels.reserve(count);
    m_superPixelPoints.reserve(count);
    for (int i = 0; i < count; ++i) {
        // Starts at a count of 1: the means and counts downstream carry it.
        m_superPixels.append(PXSuperPixel(0, 0, 0, 0, 0));
        m_superPixelPoints.append(QList<QPoint>());
    }

    const QImage ycbcr = m_image ? m_image->imageYCbCr() : QImage();
    if (ycbcr.depth() != 32)
        return;
    const PXIntRange rows = PXIntRange::rowsOfImage(m_labels);
    const PXIntRange columns = PXIntRange::columnsOfImage(m_labels);
    const int rowEnd = qMin(rows.lastIndexEvenIfUnvalid(), ycbcr.height());
    const int columnEnd = qMin(columns.lastIndexEvenIfUnvalid(), ycbcr.width());

    // Bands of rows run in parallel: each counts its labels' pixels, then
    // writes its points at its own offset in every label's list (so each list
    // stays in row order) and sums its part of every record. The parts are
    // added in band order; the records' sums wrap, so this gives the same
    // records as adding pixel by pixel.
    const QList<PXConcurrent::Range> bands = PXConcurrent::ranges(rows.first(), rowEnd, myClusterBandRows);
    const int firstColumn = columns.first();
    // Calls @p run(label, x, end, y) for every run of one label in @p band.
    const auto forEachRun = [&](const PXConcurrent::Range& band, const auto& run) {
        for (int y = int(band.first); y < band.second; ++y) {
            const qint32* labels = labelRow(m_labels, y);
            for (int x = firstColumn; x < columnEnd;) {
                const int label = labels[x];
                int end = x + 1;
                while (end < columnEnd && labels[end] == label)
                    ++end;
                if (label >= 1 && label < count)
                    run(label, x, end, y);
                x = end;
            }
        }
    };
    const QList<std::vector<int>> bandCounts = PXConcurrent::blockingMapped<QList<std::vector<int>>>(bands,
        [&](const PXConcurrent::Range& band) {
            std::vector<int> counts(static_cast<size_t>(count), 0);
            forEachRun(band, [&](int label, int x, int end, int) { counts[size_t(label)] += end - x; });
            return counts;
        });
    // Each list is sized once; every band writes from its own offset on.
    QList<QPoint>* points = m_superPixelPoints.data();
    std::vector<int> pixelCounts(size_t(count), 0);
    // Read by the bands in parallel: a vector, which never detaches.
    std::vector<std::vector<QPoint*>> cursors(size_t(bands.size()));
    for (qsizetype band = 0; band < bands.size(); ++band) {
        for (int i = 1; i < count; ++i)
            pixelCounts[size_t(i)] += bandCounts[band][size_t(i)];
    }
    for (int i = 1; i < count; ++i)
        points[i].resize(pixelCounts[size_t(i)]);
    std::vector<QPoint*> next(size_t(count), nullptr);
    for (int i = 1; i < count; ++i)
        next[size_t(i)] = points[i].data();
    for (qsizetype band = 0; band < bands.size(); ++band) {
        cursors[size_t(band)] = next;
        for (int i = 1; i < count; ++i)
            next[size_t(i)] += bandCounts[band][size_t(i)];
    }

    QList<int> bandIndices(bands.size());
    std::iota(bandIndices.begin(), bandIndices.end(), 0);
    using Sums = std::vector<PXSlicPixelSums>;
    const QList<Sums> bandSums = PXConcurrent::blockingMapped<QList<Sums>>(bandIndices, [&](const int& band) {
        Sums sums(static_cast<size_t>(count));
        std::vector<QPoint*>& cursor = cursors[size_t(band)];
        forEachRun(bands[band], [&](int label, int x, int end, int y) {
            sums[size_t(label)].addRun(reinterpret_cast<const PXYCbCrPixel*>(ycbcr.constScanLine(y)), x, end, y);
            QPoint* out = cursor[size_t(label)];
            for (int column = x; column < end; ++column)
                *out++ = QPoint(column, y);
            cursor[size_t(label)] = out;
        });
        return sums;
    });
    PXSuperPixel* records = m_superPixels.data();
    for (const Sums& sums : bandSums) {
        for (int i = 1; i < count; ++i)
            sums[size_t(i)].addTo(records[i]);
    }
    for (int i = 1; i < count; ++i)
        records[i].normalize();
}

void PXRegionGrowing::findNeighborhood()
{
    for (int i = 1; i < m_superPixels.size(); ++i)
        m_neighbors[i] = QSet<int>();

    const PXIntRange rows = PXIntRange::rowsOfImage(m_labels);
    const PXIntRange columns = PXIntRange::columnsOfImage(m_labels);
    const int width = m_labels.width();
    const int height = m_labels.height();
    // Boundaries run along rows, so the same pair repeats; skip re-inserting it.
    QSet<int>* current = nullptr;
    int currentLabel = INT_MIN;
    int lastNeighbour = INT_MIN;
    const int rowEnd = rows.lastIndexEvenIfUnvalid();
    const int columnEnd = columns.lastIndexEvenIfUnvalid();
    const PXRegionBoundaryKernels::Kernel nextBoundary = PXRegionBoundaryKernels::bestKernel();
    for (int y = rows.first(); y != rowEnd; ++y) {
        const qint32* row = labelRow(m_labels, y);
        const qint32* below = y + 1 < height ? labelRow(m_labels, y + 1) : nullptr;
        const qint32* above = y > 0 ? labelRow(m_labels, y - 1) : nullptr;
        // Outside the image counts as the pixel's own label, never inserted:
        // a missing row is stood in for by the pixel's own.
        const qint32* belowRow = below ? below : row;
        const qint32* aboveRow = above ? above : row;
        // Most pixels lie inside their region and insert nothing.
        for (int x = nextBoundary(row, aboveRow, belowRow, columns.first(), columnEnd, width); x < columnEnd;
             x = nextBoundary(row, aboveRow, belowRow, x + 1, columnEnd, width)) {
            const int label = row[x];
            const int left = x > 0 ? row[x - 1] : label;
            const int right = x + 1 < width ? row[x + 1] : label;
            // Left, below, right, above.
            const int neighbours[4] = {left, belowRow[x], right, aboveRow[x]};
            for (const int neighbour : neighbours) {
                if (neighbour == label)
                    continue;
                if (!current || label != currentLabel) {
                    // Fetched only here: the hash may grow and move its sets.
                    current = &m_neighbors[label];
                    currentLabel = label;
                    lastNeighbour = INT_MIN;
                }
                if (neighbour != lastNeighbour) {
                    current->insert(neighbour);
                    lastNeighbour = neighbour;
                }
            }
        }
    }
}

QImage PXRegionGrowing::drawClusters() const
{
    const QSize imageSize = m_image ? m_image->size() : QSize();
    QImage image(imageSize, QImage::Format_ARGB32);
    image.fill(0);
    QList<QRgb> colours;
    colours.reserve(m_superPixels.size());
    for (int i = 0; i < m_superPixels.size(); ++i)
        colours.append(0xFF000000u | QRgb(QRandomGenerator64::system()->generate() & 0xFFFFFFu));
    const int width = qMin(image.width(), m_labels.width());
    const int height = qMin(image.height(), m_labels.height());
    for (int y = 0; y < height; ++y) {
        const qint32* labels = labelRow(m_labels, y);
        auto* out = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            if (labels[x] < 0)
                continue;
            const int root = findParent(labels[x]);
            if (root < colours.size())
                out[x] = colours.at(root);
        }
    }
    return image;
}
