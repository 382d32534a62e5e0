#include "PXIntelligentScissorsWeightCalculator.h"

#include "BlockPool.h"
#include "PXScissorsKernels.h"

#include <QMutexLocker>

#include <algorithm>
#include <cmath>
#include <cstring>

using PXScissors::BlockPool;

namespace {

constexpr unsigned int myBlockSize = 4096;
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

// Integer mean of the k x k square at (k i, k j) clipped to the source; 0 when
// the square lies outside it.
unsigned char partialMean(const unsigned char* source, unsigned int sourceWidth, unsigned int sourceHeight,
    unsigned int k, unsigned int i, unsigned int j)
{
    const unsigned long x0 = static_cast<unsigned long>(k) * i;
    const unsigned long y0 = static_cast<unsigned long>(k) * j;
    if (x0 >= sourceWidth || y0 >= sourceHeight)
        return 0;
    const unsigned long x1 = std::min<unsigned long>(x0 + k, sourceWidth);
    const unsigned long y1 = std::min<unsigned long>(y0 + k, sourceHeight);
    unsigned int sum = 0;
    for (unsigned long y = y0; y < y1; ++y)
        for (unsigned long x = x0; x < x1; ++x)
            sum += source[y * sourceWidth + x];
    return static_cast<unsigned char>(sum / ((x1 - x0) * (y1 - y0)));
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
    return static_cast<unsigned int>(distance * 4096.0);
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
    const unsigned int sum = static_cast<unsigned int>(gx * gx) + static_cast<unsigned int>(gy * gy);
    return static_cast<unsigned int>(static_cast<int>(std::sqrt(static_cast<double>(sum / 20u)))) ^ 255u;
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

void PXIntelligentScissorsWeightCalculator::setImage(unsigned char const* data, DataFormat format, unsigned int stride)
{
    stop();
    m_image = data;
    m_format = format;
    m_stride = stride;
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
    const PXScissors::_dblpoint point {x * 0.000244140625, y * 0.000244140625};

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
        m_work.wakeAll();
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
        m_blockDone.wait(&m_stateMutex);
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
        wait();
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
    m_blockDone.wakeAll();
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
    m_work.wakeAll();
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
                m_work.wait(&m_queueMutex);
        }
        if (!isExecuting())
            break;
    }
    // Readers waiting for a queued block must learn that it will not come.
    QMutexLocker locker(&m_stateMutex);
    m_blockDone.wakeAll();
}

void PXIntelligentScissorsWeightCalculator::calculateBlock(unsigned int bx, unsigned int by, unsigned int index)
{
    {
        QMutexLocker locker(&m_stateMutex);
        m_blockState[index].store(Calculating, std::memory_order_relaxed);
    }
    const unsigned int w = blockWidth(bx);
    const unsigned int h = blockHeight(by);
    unsigned char* result = nullptr;
    unsigned long resultWritten = 0;

    if (w != 0 && h != 0 && m_image) {
        const PXScissorsKernels::Kernels kernels = PXScissorsKernels::bestKernels();
        const unsigned int m = m_margin;
        const unsigned int k = reductionFactor(m_settings.pixelReduction());

        // The block in reduced pixels, grown by the margin where the image goes on.
        const unsigned long x0 = static_cast<unsigned long>(bx) * myBlockSize;
        const unsigned long y0 = static_cast<unsigned long>(by) * myBlockSize;
        const unsigned long rx0 = x0 >= m ? x0 - m : 0;
        const unsigned long ry0 = y0 >= m ? y0 - m : 0;
        const unsigned long rx1 = std::min<unsigned long>(m_widthReduced, x0 + w + m);
        const unsigned long ry1 = std::min<unsigned long>(m_heightReduced, y0 + h + m);
        const unsigned int rw = static_cast<unsigned int>(rx1 - rx0);
        const unsigned int rh = static_cast<unsigned int>(ry1 - ry0);
        // ... and in full-resolution pixels, clipped to the image.
        const unsigned long sx0 = std::min<unsigned long>(rx0 * k, m_width);
        const unsigned long sy0 = std::min<unsigned long>(ry0 * k, m_height);
        const unsigned int sw = static_cast<unsigned int>(std::min<unsigned long>(rx1 * k, m_width) - sx0);
        const unsigned int sh = static_cast<unsigned int>(std::min<unsigned long>(ry1 * k, m_height) - sy0);

        const unsigned long side = myBlockSize + 2ul * m;
        // With a reduction the grey source is made k rows at a time, right
        // before they are reduced, so it never exists as a whole (for a 2 x 2
        // reduction that would be four times the block's bytes to write and
        // read again). The Sobel filter then needs a block-sized buffer of
        // its own.
        const bool stripwise = k >= 2;
        const bool sobel = m_settings.edgeDetection() == Sobel3x3;
        auto* grey = static_cast<unsigned char*>(BlockPool::get(
            stripwise ? (sobel ? side * side : static_cast<unsigned long>(k) * sw) : side * k * side * k));
        auto* reduced = static_cast<unsigned char*>(BlockPool::get(side * side));
        unsigned long greyWritten = 0;
        unsigned long reducedWritten = 0;

        // Grey source row r (of sh) into target, sw bytes.
        auto greyRow = [&](unsigned int r, unsigned char* target) {
            const unsigned char* source = m_image + (sy0 + r) * m_stride;
            if (m_format == Gray8)
                std::memcpy(target, source + sx0, sw);
            else if (m_format == Xrgb32)
                kernels.grey(source + 4 * sx0, target, sw);
            else
                std::memset(target, 0, sw); // formats without a conversion read as black
        };

        unsigned char* current = grey;
        unsigned int currentStride = sw;
        if (stripwise) {
            // Reduced image, rw x rh; grey rows of each strip at the start of grey.
            for (unsigned int j = 0; j < rh; ++j) {
                const unsigned long top = static_cast<unsigned long>(k) * j;
                const unsigned int rows = top < sh ? static_cast<unsigned int>(std::min<unsigned long>(k, sh - top)) : 0;
                for (unsigned int r = 0; r < rows; ++r)
                    greyRow(static_cast<unsigned int>(top) + r, grey + static_cast<unsigned long>(r) * sw);
                greyWritten = std::max(greyWritten, static_cast<unsigned long>(rows) * sw);

                unsigned char* target = reduced + static_cast<unsigned long>(j) * rw;
                const unsigned int fullColumns = rows == k ? std::min(rw, sw / k) : 0;
                if (fullColumns > 0) {
                    const unsigned char* strip[3] = {grey, grey + sw, grey + (k == 3 ? 2ul : 1ul) * sw};
                    if (k == 2)
                        kernels.reduce2x2(strip[0], strip[1], target, fullColumns);
                    else if (k == 3)
                        kernels.reduce3x3(strip, target, fullColumns);
                }
                for (unsigned int i = fullColumns; i < rw; ++i)
                    target[i] = partialMean(grey, sw, rows, k, i, 0);
            }
            reducedWritten = static_cast<unsigned long>(rw) * rh;
            current = reduced;
            currentStride = rw;
        } else {
            // Grey source, sw x sh, used as it is.
            for (unsigned int r = 0; r < sh; ++r)
                greyRow(r, grey + static_cast<unsigned long>(r) * sw);
            greyWritten = static_cast<unsigned long>(sw) * sh;
        }
        unsigned long offset = (y0 - ry0) * currentStride + (x0 - rx0);

        // Sobel into the other buffer, w x h.
        if (sobel) {
            unsigned char* target = current == grey ? reduced : grey;
            for (unsigned int j = 0; j < h; ++j) {
                const unsigned long y = y0 + j;
                unsigned char* row = target + static_cast<unsigned long>(j) * w;
                // A border pixel: the window of the neighbours that exist.
                auto border = [&](unsigned int i) {
                    const unsigned long x = x0 + i;
                    const unsigned long c0 = x > 0 ? x - 1 : x;
                    const unsigned long c1 = std::min<unsigned long>(x + 1, m_widthReduced - 1);
                    const unsigned long r0 = y > 0 ? y - 1 : y;
                    const unsigned long r1 = std::min<unsigned long>(y + 1, m_heightReduced - 1);
                    const unsigned char* rows[3];
                    for (unsigned long r = r0; r <= r1; ++r)
                        rows[r - r0] = current + (r - ry0) * currentStride + (c0 - rx0);
                    row[i] = static_cast<unsigned char>(PXScissors::SobelFilterCB(rows,
                        static_cast<unsigned int>(c1 - c0 + 1), static_cast<unsigned int>(r1 - r0 + 1),
                        static_cast<unsigned int>(x - c0), static_cast<unsigned int>(y - r0), nullptr));
                };
                const bool interiorRow = y > 0 && y + 1 < m_heightReduced;
                const unsigned int begin = x0 == 0 ? 1 : 0;
                const unsigned int end = x0 + w == m_widthReduced ? w - 1 : w;
                if (!interiorRow || begin >= end) {
                    for (unsigned int i = 0; i < w; ++i)
                        border(i);
                    continue;
                }
                for (unsigned int i = 0; i < begin; ++i)
                    border(i);
                const unsigned char* rows[3];
                for (int r = 0; r < 3; ++r)
                    rows[r] = current + (y - 1 + r - ry0) * currentStride + (x0 + begin - 1 - rx0);
                kernels.sobel(rows, row + begin, end - begin);
                for (unsigned int i = end; i < w; ++i)
                    border(i);
            }
            const unsigned long written = static_cast<unsigned long>(w) * h;
            if (target == grey)
                greyWritten = std::max(greyWritten, written);
            else
                reducedWritten = std::max(reducedWritten, written);
            current = target;
            currentStride = w;
            offset = 0;
        }

        // Post-processing and inversion as one byte table.
        unsigned char table[256];
        bool identity = true;
        bool inversion = true;
        for (int c = 0; c < 256; ++c) {
            unsigned int value = static_cast<unsigned int>(c);
            if (m_settings.postProcessing() == Sigmoid)
                value = static_cast<unsigned int>(255.0 / (std::exp((128 - static_cast<int>(value)) * 0.05) + 1.0));
            if (m_settings.invert())
                value = 255 - value;
            table[c] = static_cast<unsigned char>(value);
            identity = identity && value == static_cast<unsigned int>(c);
            inversion = inversion && value == static_cast<unsigned int>(255 - c);
        }

        // Without a reduction the result may still lie in the grey source;
        // it moves to the other buffer, which is kept.
        result = current == grey && k < 2 ? reduced : current;
        if (result != current || offset != 0 || currentStride != w || !identity) {
            for (unsigned int j = 0; j < h; ++j) {
                const unsigned char* source = current + offset + static_cast<unsigned long>(j) * currentStride;
                unsigned char* target = result + static_cast<unsigned long>(j) * w;
                if (identity)
                    std::memmove(target, source, w);
                else if (inversion)
                    kernels.invert(source, target, w);
                else
                    kernels.map(source, target, w, table);
            }
            const unsigned long written = static_cast<unsigned long>(w) * h;
            if (result == grey)
                greyWritten = std::max(greyWritten, written);
            else
                reducedWritten = std::max(reducedWritten, written);
        }
        if (result == grey) {
            resultWritten = greyWritten;
            BlockPool::returnBlock(reduced, 0, reducedWritten);
        } else {
            resultWritten = reducedWritten;
            BlockPool::returnBlock(grey, 0, greyWritten);
        }
    }

    QMutexLocker locker(&m_stateMutex);
    m_weights[index].store(result, std::memory_order_relaxed);
    m_written[index] = resultWritten;
    m_blockState[index].store(Calculated, std::memory_order_release);
    m_blockDone.wakeAll();
}
