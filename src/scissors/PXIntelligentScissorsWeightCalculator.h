#pragma once

#include "PXIntelligentScissorsWorker.h"
#include "PXPointPriorityQueue.h"
#include "pximagecutter_export.h"

#include <QList>
#include <QMetaType>
#include <QMutex>
#include <QPair>
#include <QPoint>

#include <atomic>
#include <climits>
#include <condition_variable>

namespace PXScissors {

/** A point in block units (reduced pixels / 4096). */
struct _dblpoint
{
    double x;
    double y;
};

/**
 * The distance, in reduced pixels and truncated, from @p point to the nearest
 * edge of block (@p bx, @p by); 0 when the point lies in the block. The score
 * callback of the weight calculator's block queue; @p data is unused.
 */
PXIMAGECUTTER_EXPORT unsigned int calculateScoreCB(unsigned int bx, unsigned int by, unsigned int data,
    _dblpoint const* point);

/**
 * The Sobel cost of a pixel on the border of the image, over the window of
 * @p columns x @p rowCount neighbours that exist. rows[r][c] is the window's
 * pixel; the pixel itself is column @p kernelColumn, row @p kernelRow of the
 * window, and missing kernel rows and columns contribute nothing. Returns
 * truncate(sqrt((gx^2 + gy^2) / 20)) XOR 255 (255 for an empty window).
 * @p context is unused.
 */
PXIMAGECUTTER_EXPORT unsigned int SobelFilterCB(unsigned char const** rows, unsigned int columns,
    unsigned int rowCount, unsigned int kernelColumn, unsigned int kernelRow, void* context);

} // namespace PXScissors

/**
 * The cost map of the live wire: one byte per pixel of the reduced image,
 * 0 cheapest, 255 dearest, computed lazily on the thread "Weight Calculator".
 *
 * The reduced image is cut into blocks of 4096 x 4096 pixels. A search asks
 * for the region around its point with calculateRegion(); the blocks meeting
 * it are queued nearest first and computed one after another: grey
 * conversion, reduction (2 x 2 or 3 x 3 mean), optionally Sobel, optionally
 * a sigmoid, optionally inversion. get() reads one cost and waits while the
 * block is still queued or being computed.
 *
 * Block (bx, by) covers reduced x in [4096 bx, 4096 bx + w) and y in
 * [4096 by, 4096 by + h): w is lastBlockWidth() for the right-most column and
 * 4096 otherwise; h is heightReduced() & 4095 for the bottom row (so it is 0
 * when the height is a multiple of 4096; such pixels read as cost 255) and
 * 4096 otherwise.
 *
 * Threads: the owner calls setImage(), changeSettings(), stop() and the
 * destructor; a search thread calls calculateRegion() and get(). A thread
 * that reads many costs while the owner may call stop() brackets its reads
 * with beginReading() / endReading(): its get() then takes no lock, and the
 * blocks stop() discards are recycled only after the bracket ends. get()
 * outside a bracket is safe too, it just locks.
 */
class PXIMAGECUTTER_EXPORT PXIntelligentScissorsWeightCalculator : public PXIntelligentScissorsWorker
{
    Q_OBJECT

public:
    /** Low four bits: the reduction factor (scale). */
    enum PixelReductionMethod : unsigned int {
        Mean2x2 = 34, ///< scale 2, mean of each 2 x 2 square
        Mean3x3 = 35  ///< scale 3, mean of each 3 x 3 square
    };
    /** Bits 1 to 3: the margin a block needs around it. */
    enum EdgeDetectionMethod : unsigned int {
        NoEdgeDetection = 1, ///< the cost is the grey value
        Sobel3x3 = 19        ///< the cost is derived from the Sobel gradient magnitude
    };
    enum PostProcessingtMethod : unsigned int {
        NoPostProcessing = 0,
        Sigmoid = 1 ///< 255 / (exp((128 - c) 0.05) + 1)
    };
    enum DataFormat : unsigned int {
        Gray8 = 0, ///< one byte per pixel
        Xrgb32 = 2 ///< 0xAARRGGBB words, alpha ignored
    };

    /** How costs are made. A plain value. */
    class PXIMAGECUTTER_EXPORT Settings
    {
    public:
        /** The live-wire front end's choice: Mean2x2, no edge detection, no post-processing, inverted. */
        Settings() = default;
        Settings(PixelReductionMethod pixelReduction, EdgeDetectionMethod edgeDetection,
            PostProcessingtMethod postProcessing, bool invert)
            : m_pixelReduction(pixelReduction)
            , m_edgeDetection(edgeDetection)
            , m_postProcessing(postProcessing)
            , m_invert(invert)
        {
        }

        PixelReductionMethod pixelReduction() const { return m_pixelReduction; }
        EdgeDetectionMethod edgeDetection() const { return m_edgeDetection; }
        PostProcessingtMethod postProcessing() const { return m_postProcessing; }
        bool invert() const { return m_invert; }

        bool operator==(const Settings& other) const
        {
            return m_pixelReduction == other.m_pixelReduction && m_edgeDetection == other.m_edgeDetection
                && m_postProcessing == other.m_postProcessing && m_invert == other.m_invert;
        }

    private:
        PixelReductionMethod m_pixelReduction = Mean2x2;
        EdgeDetectionMethod m_edgeDetection = NoEdgeDetection;
        PostProcessingtMethod m_postProcessing = NoPostProcessing;
        bool m_invert = true;
    };

    /** Block states. */
    enum BlockState : unsigned char { NotRequested = 0, Queued = 1, Calculating = 2, Calculated = 3 };

    /**
     * A calculator for an image of @p width x @p height pixels. Fixes the
     * scale, the reduced size and the block grid. Does not start the thread.
     */
    PXIntelligentScissorsWeightCalculator(unsigned int width, unsigned int height, Settings const& settings);
    /** Stops the thread and releases every block. */
    ~PXIntelligentScissorsWeightCalculator() override;

    /**
     * Stops, then reads the image from @p data (@p stride bytes per row; not
     * copied, the caller keeps it alive and unchanged until the next
     * setImage(), stop() or the destructor) and starts the thread. Blocks
     * computed before are discarded. A null @p data only stops. Pixels at
     * or right of column @p contentWidth, or at or below row
     * @p contentHeight, must be zero; they are then taken as zero without
     * being read.
     */
    void setImage(unsigned char const* data, DataFormat format, unsigned int stride,
        unsigned int contentWidth = UINT_MAX, unsigned int contentHeight = UINT_MAX);

    /**
     * Stops, takes @p settings (the margin follows them) and restarts on the
     * same image. The scale, the reduced size and the block grid stay as the
     * constructor computed them.
     */
    void changeSettings(Settings const& settings);

    /**
     * Queues every block not yet requested that meets the square of
     * @p radius around (@p x, @p y) (reduced pixels), nearest first, and
     * re-scores the blocks already queued against the new point.
     */
    void calculateRegion(unsigned int x, unsigned int y, unsigned int radius);

    /**
     * Writes the cost of reduced pixel (@p x, @p y) to @p cost. Waits while
     * its block is queued or being computed (unless no thread will compute
     * it). Returns false for a block never requested or discarded by stop(),
     * and for pixels outside the reduced image.
     */
    bool get(unsigned int x, unsigned int y, unsigned char* cost);

    /**
     * The cost bytes of block (@p bx, @p by), row-major with blockWidth(@p bx)
     * bytes per row and blockHeight(@p by) rows, once the block is computed;
     * null before (or when it holds no pixels), and then get() decides. Only
     * for a thread between beginReading() and endReading(): the bracket keeps
     * the bytes alive if stop() discards the block meanwhile.
     */
    const unsigned char* calculatedBlock(unsigned int bx, unsigned int by) const
    {
        const unsigned int index = by * m_blockColumns + bx;
        if (m_blockState[index].load(std::memory_order_acquire) != Calculated)
            return nullptr;
        return m_weights[index].load(std::memory_order_relaxed);
    }

    /**
     * Appends the top-left corner, in full-resolution pixels, of every block
     * (rows outer) to the list for its state: computed, queued or being
     * computed, not requested.
     */
    void blocksCalculated(QList<QPoint>& calculated, QList<QPoint>& pending, QList<QPoint>& notRequested) const;

    /**
     * Clears the queue, stops the thread and waits for it (a block being
     * computed still finishes), forgets the image and discards every block.
     * Readers waiting in get() are woken and get false.
     */
    void stop() override;
    using PXIntelligentScissorsWorker::stop;

    /** Marks the calling thread as a reader; see the class description. */
    void beginReading();
    /** Ends the calling thread's bracket. */
    void endReading();

    Settings settings() const { return m_settings; }
    unsigned int scale() const { return m_scale; }
    unsigned int width() const { return m_width; }
    unsigned int height() const { return m_height; }
    unsigned int widthReduced() const { return m_widthReduced; }
    unsigned int heightReduced() const { return m_heightReduced; }
    unsigned int blockColumns() const { return m_blockColumns; }
    unsigned int blockRows() const { return m_blockRows; }
    unsigned int lastBlockWidth() const { return m_lastBlockWidth; }
    unsigned int margin() const { return m_margin; }
    /** Width of the blocks of column @p bx. */
    PXIMAGECUTTER_NO_EXPORT unsigned int blockWidth(unsigned int bx) const;
    /** Height of the blocks of row @p by (heightReduced() & 4095 for the bottom row). */
    unsigned int blockHeight(unsigned int by) const;
    BlockState blockState(unsigned int bx, unsigned int by) const;

    /** The thread body: computes queued blocks, nearest first, until stopped. */
    void runningThread() override;

protected:
    void interruptWait() override;

private:
    void calculateBlock(unsigned int bx, unsigned int by, unsigned int index);
    PXIMAGECUTTER_NO_EXPORT void discardBlocks();
    PXIMAGECUTTER_NO_EXPORT void recycleRetired();

    unsigned char const* m_image = nullptr;
    unsigned int m_stride = 0;
    unsigned int m_contentWidth = UINT_MAX;
    unsigned int m_contentHeight = UINT_MAX;
    DataFormat m_format = Xrgb32;
    Settings m_settings;
    unsigned int m_scale;
    unsigned int m_width;
    unsigned int m_height;
    unsigned int m_widthReduced;
    unsigned int m_heightReduced;
    std::atomic<unsigned char*>* m_weights;
    unsigned int m_blockColumns;
    unsigned int m_blockRows;
    unsigned int m_lastBlockWidth;
    unsigned int m_margin;
    std::atomic<unsigned char>* m_blockState;
    PXPointPriorityQueue m_queue;
    mutable QMutex m_queueMutex;
    mutable QMutex m_stateMutex;
    // These unlock and relock the QMutex through its inline lock() and
    // unlock(), which ThreadSanitizer follows; QWaitCondition does it inside
    // Qt, so the detector would think the sleeper still held the lock.
    std::condition_variable_any m_work;
    std::condition_variable_any m_blockDone;

    // Bytes written of each block's buffer, so a recycled one is re-zeroed only there.
    unsigned long* m_written;
    // Blocks discarded while readers were bracketed, with their written bytes.
    QList<QPair<void*, unsigned long>> m_retired;
    int m_readers = 0;
};

Q_DECLARE_METATYPE(PXIntelligentScissorsWeightCalculator::Settings)
