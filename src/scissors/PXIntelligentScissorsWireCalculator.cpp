#include "PXIntelligentScissorsWireCalculator.h"

#include "PXIntelligentScissorsWeightCalculator.h"

#include <QPainter>

#include <climits>

namespace {

constexpr unsigned int mySeedMark = 0xFFFFFFFFu;

// The weight calculator's blocks and the matrices' tiles share this grid.
constexpr unsigned int myBlockSize = 4096;
constexpr unsigned int myBlockShift = 12;
constexpr unsigned int myBlockMask = myBlockSize - 1;

// truncate(c x sqrt(2)) for every cost byte.
struct DiagonalCosts
{
    unsigned int cost[256];
    DiagonalCosts()
    {
        for (unsigned int c = 0; c < 256; ++c)
            cost[c] = static_cast<unsigned int>(c * 1.4142135623730951);
    }
};
const DiagonalCosts myDiagonalCosts;

int progressTotal(unsigned int width, unsigned int height)
{
    const unsigned long pixels = static_cast<unsigned long>(width) * height;
    return pixels > static_cast<unsigned long>(INT_MAX) ? INT_MAX : static_cast<int>(pixels);
}

} // namespace

PXIntelligentScissorsWireCalculator::PXIntelligentScissorsWireCalculator(PXIntelligentScissorsWeightCalculator* weights)
    : PXIntelligentScissorsWorker(QStringLiteral("Livewire Calculator"))
    , m_weights(weights)
    , m_width(weights->widthReduced())
    , m_height(weights->heightReduced())
    , m_scale(weights->scale())
    // Readers on other threads read both matrices while the search writes:
    // no tile may go back to the pool before the next search. Predecessors
    // are read for settled pixels only, which have one: their tiles need no
    // zeroing.
    , m_settled(m_width, m_height, PXScissors::SparseMatrix<bool, 4096u>::KeepTilesUntilClear)
    , m_queue(m_width, m_height)
    , m_predecessor(m_width, m_height, PXScissors::SparseMatrix<unsigned int, 4096u>::KeepUnzeroedTilesUntilClear)
{
    setTotalProgress(progressTotal(m_width, m_height));
}

PXIntelligentScissorsWireCalculator::~PXIntelligentScissorsWireCalculator()
{
    stop(true);
}

void PXIntelligentScissorsWireCalculator::forgetResults()
{
    m_settled.clear();
    m_queue.clear();
    m_predecessor.clear();
}

void PXIntelligentScissorsWireCalculator::startThread(unsigned int x, unsigned int y, unsigned int radius)
{
    // The previous search ends before its results are forgotten, and they are
    // forgotten here, on the caller's thread, so that the caller's own
    // calculateTrace() never meets a tile on its way back to the pool.
    stop(true);
    forgetResults();
    m_seedX = m_scale ? x / m_scale : 0;
    m_seedY = m_scale ? y / m_scale : 0;
    m_radius = m_scale ? static_cast<unsigned int>((static_cast<unsigned long>(radius) + m_scale - 1) / m_scale) : 0;
    if (m_seedX >= m_width || m_seedY >= m_height)
        return;
    PXIntelligentScissorsWorker::startThread();
}

// One function on purpose: the search loop keeps its block cache in registers.
void PXIntelligentScissorsWireCalculator::runningThread()
{
    forgetResults();
    if (m_seedX >= m_width || m_seedY >= m_height)
        return;
    m_weights->beginReading();
    m_weights->calculateRegion(m_seedX, m_seedY, m_radius);
    // The queue carries with every pixel the pixel it is best reached from;
    // it becomes the predecessor when the pixel settles. Readers only follow
    // the predecessors of settled pixels, so they see the same paths as if
    // every improvement were written at once, with far fewer writes.
    m_queue.enqueue(m_seedX, m_seedY, mySeedMark, 0);

    const unsigned int width = m_width;
    const unsigned int height = m_height;
    // The block of the last pixel settled, with its size.
    unsigned int blockX = UINT_MAX;
    unsigned int blockY = UINT_MAX;
    unsigned int blockWidth = 0;
    unsigned int blockHeight = 0;
    bool sameRows = false;
    const unsigned char* cachedBlock = nullptr;
    unsigned int x, y, from, score;
    while (isExecuting() && m_queue.dequeue(x, y, from, score)) {
        // Release order: a reader that sees the pixel settled sees its whole path.
        m_predecessor.set(x, y, from);
        m_settled.set(x, y, true);
        const unsigned int index = x + y * width;
        // The rows two away are read when the wave comes past again, a whole
        // front later: fetched now, they are near by then.
        m_queue.prefetchColumn(x, y, 2);
        // The pixel now at the top of the queue usually settles next: its
        // neighbourhood is fetched while this pixel's is worked on.
        unsigned int nextX, nextY;
        if (m_queue.topPixel(nextX, nextY)) {
            m_settled.prefetchColumn(nextX, nextY);
            m_queue.prefetchColumn(nextX, nextY);
            const unsigned int nly = nextY & myBlockMask;
            if ((nextX >> myBlockShift) == blockX && (nextY >> myBlockShift) == blockY && nly > 0
                && nly + 1 < blockHeight && cachedBlock) {
                const unsigned char* c = cachedBlock + static_cast<unsigned long>(nly) * blockWidth + (nextX & myBlockMask);
                __builtin_prefetch(c - blockWidth);
                __builtin_prefetch(c);
                __builtin_prefetch(c + blockWidth);
            }
        }

        // Most pixels have their whole 3 x 3 square inside one computed
        // block (and so inside one tile of every matrix, whose grid is the
        // blocks'): their neighbours are read straight from the block.
        const unsigned int bx = x >> myBlockShift;
        const unsigned int by = y >> myBlockShift;
        if (bx != blockX || by != blockY) {
            blockX = bx;
            blockY = by;
            blockWidth = m_weights->blockWidth(bx);
            blockHeight = m_weights->blockHeight(by);
            sameRows = blockWidth == m_settled.rowLength(x);
        }
        const unsigned int lx = x & myBlockMask;
        const unsigned int ly = y & myBlockMask;
        const unsigned char* block = nullptr;
        if (sameRows && lx > 0 && ly > 0 && lx + 1 < blockWidth && ly + 1 < blockHeight)
            block = m_weights->calculatedBlock(bx, by);
        cachedBlock = block;

        if (block) {
            relaxInsideBlock(x, y, index, score, block + static_cast<unsigned long>(ly) * blockWidth + lx);
        } else if (x > 0 && x + 1 < width && y > 0 && y + 1 < height) {
            calculatePoint(x - 1, y - 1, index - width - 1, true, index, score);
            calculatePoint(x, y - 1, index - width, false, index, score);
            calculatePoint(x + 1, y - 1, index - width + 1, true, index, score);
            calculatePoint(x - 1, y, index - 1, false, index, score);
            calculatePoint(x + 1, y, index + 1, false, index, score);
            calculatePoint(x - 1, y + 1, index + width - 1, true, index, score);
            calculatePoint(x, y + 1, index + width, false, index, score);
            calculatePoint(x + 1, y + 1, index + width + 1, true, index, score);
        } else {
            const unsigned int x0 = x > 0 ? x - 1 : x;
            const unsigned int y0 = y > 0 ? y - 1 : y;
            const unsigned int x1 = x + 1 < width ? x + 1 : x;
            const unsigned int y1 = y + 1 < height ? y + 1 : y;
            for (unsigned int ny = y0; ny <= y1; ++ny) {
                for (unsigned int nx = x0; nx <= x1; ++nx) {
                    const bool diagonal = ((nx - x) + (ny - y)) % 2 == 0;
                    calculatePoint(nx, ny, nx + ny * width, diagonal, index, score);
                }
            }
        }
        incrementProgress();
    }
    m_weights->endReading();
}

// calculatePoint() for the eight neighbours of (x, y), in its order, when
// all of them lie in the computed block whose cost of (x, y) is at @p cost.
// The block's rows and the tiles' rows have the same length.
void PXIntelligentScissorsWireCalculator::relaxInsideBlock(
    unsigned int x, unsigned int y, unsigned int index, unsigned int score, const unsigned char* cost)
{
    const bool* settled = m_settled.slotAddress(x, y);
    const PXPointPriorityQueue::Square queued = m_queue.square(x, y);
    const long down = m_settled.rowLength(x);
    const long up = -down;
    auto relax = [&](int dx, long row, int dy, bool diagonal) __attribute__((always_inline)) {
        if (settled[row + dx])
            return;
        const unsigned char c = cost[row + dx];
        const unsigned int total = score + (diagonal ? myDiagonalCosts.cost[c] : c);
        m_queue.enqueueOrDescrease(queued, dx, dy, x + dx, y + dy, index, total);
    };
    relax(-1, up, -1, true);
    relax(0, up, -1, false);
    relax(1, up, -1, true);
    relax(-1, 0, 0, false);
    relax(1, 0, 0, false);
    relax(-1, down, 1, true);
    relax(0, down, 1, false);
    relax(1, down, 1, true);
}

void PXIntelligentScissorsWireCalculator::calculatePoint(
    unsigned int x, unsigned int y, unsigned int index, bool diagonal, unsigned int from, unsigned int score)
{
    // The queue carries the predecessor, so the neighbour's own index is not needed.
    Q_UNUSED(index);
    if (m_settled.get(x, y))
        return;
    unsigned char cost;
    if (!m_weights->get(x, y, &cost))
        return;
    const unsigned int total = score + (diagonal ? myDiagonalCosts.cost[cost] : cost);
    m_queue.enqueueOrDescrease(x, y, from, total);
}

QList<QPoint> PXIntelligentScissorsWireCalculator::calculateTrace(unsigned int x, unsigned int y) const
{
    QList<QPoint> trace;
    if (!isReachable(x, y))
        return trace;
    const unsigned int half = m_scale >> 1;
    const unsigned long pixels = static_cast<unsigned long>(m_width) * m_height;
    unsigned long i = static_cast<unsigned long>(x / m_scale) + static_cast<unsigned long>(y / m_scale) * m_width;
    // A settled pixel's predecessor was settled before it, so the chain ends
    // at the seed; the bound only guards against a broken chain.
    for (unsigned long steps = 0; steps < pixels; ++steps) {
        const unsigned int px = static_cast<unsigned int>(i % m_width);
        const unsigned int py = static_cast<unsigned int>(i / m_width);
        trace.append(QPoint(static_cast<int>(half + px * m_scale), static_cast<int>(half + py * m_scale)));
        // 0 doubles as "none" and as pixel (0, 0); a settled pixel always has one.
        const unsigned int next = m_predecessor.getAcquire(px, py);
        if (next == mySeedMark || next >= pixels)
            break;
        i = next;
    }
    return trace;
}

void PXIntelligentScissorsWireCalculator::drawTrace(unsigned int x, unsigned int y, QPainter& painter) const
{
    const QList<QPoint> trace = calculateTrace(x, y);
    QList<QPoint> pairs;
    pairs.reserve(2 * trace.size());
    for (const QPoint& point : trace) {
        pairs.append(point);
        pairs.append(point);
    }
    if (pairs.size() < 4)
        return;
    pairs.removeFirst();
    pairs.removeLast();
    painter.drawLines(pairs);
}

bool PXIntelligentScissorsWireCalculator::isReachable(unsigned int x, unsigned int y) const
{
    if (m_scale == 0)
        return false;
    const unsigned int rx = x / m_scale;
    const unsigned int ry = y / m_scale;
    if (rx >= m_width || ry >= m_height)
        return false;
    return m_settled.getAcquire(rx, ry);
}
