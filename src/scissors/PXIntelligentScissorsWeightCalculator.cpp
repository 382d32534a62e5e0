#include "PXIntelligentScissorsWeightCalculator.h"

#include "BlockPool.h"
#include "PXScissorsBlockCosts.h"
#include "PXScissorsKernels.h"

#include <QMutexLocker>

#include <algorithm>
#include <cmath>

using PXScissors::BlockPool;
using namespace PXScissorsBlockCosts;

namespace {

constexpr unsigned int myBlockSize = PXScissorsBlockCosts::blockSize;
// 1/4096: reduced pixels to block units.
constexpr double myBlockUnit = 0.000244140625;
constexpr unsigned int myBlockShift = 12;
constexpr unsigned int myBlockMask = myBlockSize - 1;

// The calculator whose reading bracket the current thread is in.
thread_local const PXIntelligentScissorsWeightCalculator* myBracketedCalculator = nullptr;

double axisDistance(double point, unsigned int block)
{
    const double cell = std::floor(point);
    if (cell == static_cast<double>(block))
        return 0.0;
    if (cell > static_cast<double>(block))
        return point - static_cast<double>(block) - 1.0;
    return static_cast<double>(block) - point;
}

unsigned int scoreOfBlock(unsigned int bx, unsigned int by, unsigned int data, void const* context)
{
    return PXScissors::calculateScoreCB(bx, by, data, static_cast<const PXScissors::_dblpoint*>(context));
}

// The factor the reduction kernel works with. It equals the scale for every
// settings the constructor accepts; after changeSettings() the two may
// differ, and then the kernel's own factor decides which pixels it reads.
unsigned int reductionFactor(PXIntelligentScissorsWeightCalculator::PixelReductionMethod method)
{
    switch (method) {
    case PXIntelligentScissorsWeightCalculator::Mean2x2:
        return 2;
    case PXIntelligentScissorsWeightCalculator::Mean3x3:
        return 3;
    }
    return 1;
}

} // namespace

namespace PXScissors {

unsigned int calculateScoreCB(unsigned int bx, unsigned int by, unsigned int data, _dblpoint const* point)
{
    Q_UNUSED(data);
    const double dx = axisDistance(point->x, bx);
    const double dy = axisDistance(point->y, by);
    double distance;
    if (dx == 0.0 && dy == 0.0)
        distance = 0.0;
    else if (dx == 0.0)
        distance = std::fabs(dy);
    else if (dy == 0.0)
        distance = std::fabs(dx);
    else
        distance = std::sqrt(dx * dx + dy * dy);
    return static_cast<unsigned int>(distance * myBlockSize);
}

unsigned int SobelFilterCB(unsigned char const** rows, unsigned int columns, unsigned int rowCount,
    unsigned int kernelColumn, unsigned int kernelRow, void* context)
{
    Q_UNUSED(context);
    static const int smooth[3] = {1, 2, 1};
    static const int derive[3] = {1, 0, -1};
    if (rowCount == 0)
        return 255;
    int gx = 0;
    int gy = 0;
    for (unsigned int r = 0; r < rowCount; ++r) {
        const unsigned int kr = 1 + r - kernelRow;
        for (unsigned int c = 0; c < columns; ++c) {
            const unsigned int kc = 1 + c - kernelColumn;
            if (kr > 2 || kc > 2)
                continue;
            const int pixel = rows[r][c];
            gx += pixel * derive[kc] * smooth[kr];
            gy += pixel * smooth[kc] * derive[kr];
        }
    }
    // Unlike the block kernels, not kept to 8 bits.
    return static_cast<unsigned int>(PXScissorsKernels::sobelMagnitude(gx, gy)) ^ 255u;
}

} // namespace PXScissors

PXIntelligentScissorsWeightCalculator::PXIntelligentScissorsWeightCalculator(
    unsigned int width, unsigned int height, Settings const& settings)
    : PXIntelligentScissorsWorker(QStringLiteral("Weight Calculator"))
    , m_settings(settings)
    , m_scale(settings.pixelReduction() & 15)
    , m_width(width)
    , m_height(height)
    , m_widthReduced(m_scale ? static_cast<unsigned int>((static_cast<unsigned long>(width) + m_scale - 1) / m_scale) : 0)
    , m_heightReduced(m_scale ? static_cast<unsigned int>((static_cast<unsigned long>(height) + m_scale - 1) / m_scale) : 0)
    , m_blockColumns((m_widthReduced + myBlockMask) >> myBlockShift)
    , m_blockRows((m_heightReduced + myBlockMask) >> myBlockShift)
    , m_lastBlockWidth(m_blockColumns ? m_widthReduced - myBlockSize * (m_blockColumns - 1) : 0)
    , m_margin((settings.edgeDetection() >> 1) & 7)
    , m_queue(m_blockColumns, m_blockRows)
{
    const unsigned int blocks = m_blockColumns * m_blockRows;
    setTotalProgress(static_cast<int>(blocks));
    m_weights = new std::atomic<unsigned char*>[blocks ? blocks : 1]();
    m_blockState = new std::atomic<unsigned char>[blocks ? blocks : 1]();
    m_written = new unsigned long[blocks ? blocks : 1]();
}

PXIntelligentScissorsWeightCalculator::~PXIntelligentScissorsWeightCalculator()
{
    stop();
    {
        QMutexLocker locker(&m_stateMutex);
        recycleRetired();
    }
    delete[] m_weights;
    delete[] m_blockState;
    delete[] m_written;
}

unsigned int PXIntelligentScissorsWeightCalculator::blockWidth(unsigned int bx) const
{
    return bx + 1 == m_blockColumns ? m_lastBlockWidth : myBlockSize;
}

unsigned int PXIntelligentScissorsWeightCalculator::blockHeight(unsigned int by) const
{
    // The remainder, not a last-block height: a height that is a multiple of
    // 4096 leaves the bottom row empty. Its pixels read as the dearest cost.
    return by + 1 == m_blockRows ? (m_heightReduced & myBlockMask) : myBlockSize;
}

PXIntelligentScissorsWeightCalculator::BlockState PXIntelligentScissorsWeightCalculator::blockState(
    unsigned int bx, unsigned int by) const
{
    if (bx >= m_blockColumns || by >= m_blockRows)
        return NotRequested;
    return static_cast<BlockState>(m_blockState[by * m_blockColumns + bx].load(std::memory_order_acquire));
}

void PXIntelligentScissorsWeightCalculator::setImage(unsigned char const* data, DataFormat format, unsigned int stride,
    unsigned int contentWidth, unsigned int contentHeight)
{
    stop();
    m_image = data;
    m_format = format;
    m_stride = stride;
    m_contentWidth = contentWidth;
    m_contentHeight = contentHeight;
    if (data)
        startThread();
}

void PXIntelligentScissorsWeightCalculator::changeSettings(Settings const& settings)
{
    unsigned char const* image = m_image;
    stop();
    m_settings = settings;
    m_margin = (settings.edgeDetection() >> 1) & 7;
    if (image) {
        m_image = image;
        startThread();
    }
}

void PXIntelligentScissorsWeightCalculator::calculateRegion(unsigned int x, unsigned int y, unsigned int radius)
{
    if (m_blockColumns == 0 || m_blockRows == 0)
        return;
    const unsigned long right = static_cast<unsigned long>(x) + radius;
    const unsigned long bottom = static_cast<unsigned long>(y) + radius;
    const unsigned int lastColumn = right < m_widthReduced ? static_cast<unsigned int>(right >> myBlockShift) : m_blockColumns - 1;
    const unsigned int lastRow = bottom < m_heightReduced ? static_cast<unsigned int>(bottom >> myBlockShift) : m_blockRows - 1;
    const unsigned int firstColumn = x > radius ? (x - radius) >> myBlockShift : 0;
    const unsigned int firstRow = y > radius ? (y - radius) >> myBlockShift : 0;
    const PXScissors::_dblpoint point {x * myBlockUnit, y * myBlockUnit};

    QMutexLocker stateLocker(&m_stateMutex);
    QMutexLocker queueLocker(&m_queueMutex);
    m_queue.updateAllScores(scoreOfBlock, &point);
    bool enqueued = false;
    for (unsigned int by = firstRow; by <= lastRow; ++by) {
        for (unsigned int bx = firstColumn; bx <= lastColumn; ++bx) {
            const unsigned int index = by * m_blockColumns + bx;
            if (m_blockState[index].load(std::memory_order_relaxed) != NotRequested)
                continue;
            m_queue.enqueue(bx, by, index, PXScissors::calculateScoreCB(bx, by, index, &point));
            m_blockState[index].store(Queued, std::memory_order_relaxed);
            enqueued = true;
        }
    }
    if (enqueued)
        m_work.notify_all();
}

bool PXIntelligentScissorsWeightCalculator::get(unsigned int x, unsigned int y, unsigned char* cost)
{
    if (x >= m_widthReduced || y >= m_heightReduced)
        return false;
    const unsigned int bx = x >> myBlockShift;
    const unsigned int by = y >> myBlockShift;
    const unsigned int index = by * m_blockColumns + bx;
    const unsigned int w = blockWidth(bx);
    const bool filled = (y & myBlockMask) < blockHeight(by);
    const unsigned long offset = static_cast<unsigned long>(y & myBlockMask) * w + (x & myBlockMask);

    if (myBracketedCalculator == this && m_blockState[index].load(std::memory_order_acquire) == Calculated) {
        // The bracket keeps the block's buffer from being recycled meanwhile.
        const unsigned char* block = m_weights[index].load(std::memory_order_relaxed);
        *cost = block && filled ? block[offset] : 255;
        return true;
    }

    QMutexLocker locker(&m_stateMutex);
    for (;;) {
        const unsigned char state = m_blockState[index].load(std::memory_order_relaxed);
        if (state == Calculated)
            break;
        if (state == NotRequested)
            return false;
        // A queued block that no thread will compute never arrives.
        if (state == Queued && !isExecuting())
            return false;
        m_blockDone.wait(m_stateMutex);
    }
    const unsigned char* block = m_weights[index].load(std::memory_order_relaxed);
    *cost = block && filled ? block[offset] : 255;
    return true;
}

void PXIntelligentScissorsWeightCalculator::blocksCalculated(
    QList<QPoint>& calculated, QList<QPoint>& pending, QList<QPoint>& notRequested) const
{
    const int step = static_cast<int>(myBlockSize * m_scale);
    QMutexLocker locker(&m_stateMutex);
    for (unsigned int by = 0; by < m_blockRows; ++by) {
        for (unsigned int bx = 0; bx < m_blockColumns; ++bx) {
            const QPoint corner(step * static_cast<int>(bx), step * static_cast<int>(by));
            switch (m_blockState[by * m_blockColumns + bx].load(std::memory_order_relaxed)) {
            case Calculated:
                calculated.append(corner);
                break;
            case Queued:
            case Calculating:
                pending.append(corner);
                break;
            default:
                notRequested.append(corner);
                break;
            }
        }
    }
}

void PXIntelligentScissorsWeightCalculator::stop()
{
    {
        QMutexLocker locker(&m_queueMutex);
        m_queue.clear();
    }
    PXIntelligentScissorsWorker::stop(false);
    if (QThread::currentThread() != this)
        join();
    m_image = nullptr;

    QMutexLocker stateLocker(&m_stateMutex);
    {
        // calculateRegion() may have queued more meanwhile.
        QMutexLocker queueLocker(&m_queueMutex);
        m_queue.clear();
    }
    discardBlocks();
}

void PXIntelligentScissorsWeightCalculator::discardBlocks()
{
    const unsigned int blocks = m_blockColumns * m_blockRows;
    for (unsigned int i = 0; i < blocks; ++i) {
        unsigned char* block = m_weights[i].exchange(nullptr, std::memory_order_relaxed);
        m_blockState[i].store(NotRequested, std::memory_order_release);
        if (!block)
            continue;
        // A bracketed reader may still hold the buffer; recycle it afterwards.
        if (m_readers > 0)
            m_retired.append(qMakePair(static_cast<void*>(block), m_written[i]));
        else
            BlockPool::returnBlock(block, 0, m_written[i]);
        m_written[i] = 0;
    }
    m_blockDone.notify_all();
}

void PXIntelligentScissorsWeightCalculator::recycleRetired()
{
    for (const auto& retired : std::as_const(m_retired))
        BlockPool::returnBlock(retired.first, 0, retired.second);
    m_retired.clear();
}

void PXIntelligentScissorsWeightCalculator::beginReading()
{
    QMutexLocker locker(&m_stateMutex);
    ++m_readers;
    myBracketedCalculator = this;
}

void PXIntelligentScissorsWeightCalculator::endReading()
{
    QMutexLocker locker(&m_stateMutex);
    if (myBracketedCalculator != this)
        return;
    myBracketedCalculator = nullptr;
    if (--m_readers == 0)
        recycleRetired();
}

void PXIntelligentScissorsWeightCalculator::interruptWait()
{
    QMutexLocker locker(&m_queueMutex);
    m_work.notify_all();
}

void PXIntelligentScissorsWeightCalculator::runningThread()
{
    for (;;) {
        unsigned int bx = 0;
        unsigned int by = 0;
        unsigned int index = 0;
        unsigned int score = 0;
        bool dequeued;
        {
            QMutexLocker locker(&m_queueMutex);
            dequeued = m_queue.dequeue(bx, by, index, score);
        }
        if (!isExecuting())
            break;
        if (dequeued) {
            calculateBlock(bx, by, index);
            incrementProgress();
            continue;
        }
        {
            QMutexLocker locker(&m_queueMutex);
            // The queue is checked again so that blocks queued since the
            // dequeue above are not slept through.
            if (isExecuting() && m_queue.isEmpty())
                m_work.wait(m_queueMutex);
        }
        if (!isExecuting())
            break;
    }
    // Readers waiting for a queued block must learn that it will not come.
    QMutexLocker locker(&m_stateMutex);
    m_blockDone.notify_all();
}

void PXIntelligentScissorsWeightCalculator::calculateBlock(unsigned int bx, unsigned int by, unsigned int index)
{
    {
        QMutexLocker locker(&m_stateMutex);
        m_blockState[index].store(Calculating, std::memory_order_relaxed);
    }
    const unsigned int w = blockWidth(bx);
    const unsigned int h = blockHeight(by);
    Scratch result;
    if (w != 0 && h != 0 && m_image) {
        const Grid grid {m_width, m_height, m_widthReduced, m_heightReduced};
        const SourceImage source {m_image, m_stride, m_format, m_contentWidth, m_contentHeight};
        result = blockCosts(source, grid, m_settings, m_margin, BlockArea(grid, bx, by, w, h, m_margin,
            reductionFactor(m_settings.pixelReduction())));
    }

    QMutexLocker locker(&m_stateMutex);
    m_weights[index].store(result.data, std::memory_order_relaxed);
    m_written[index] = result.written;
    m_blockState[index].store(Calculated, std::memory_order_release);
    m_blockDone.notify_all();
}
