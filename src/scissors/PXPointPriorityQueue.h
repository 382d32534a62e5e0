#pragma once

#include "SparseMatrix.h"
#include "pximagecutter_export.h"
#include "vector.h"

/**
 * A binary min-heap of pixels keyed by a 32-bit unsigned score, with a
 * constant-time lookup of where a given pixel waits.
 *
 * The heap is 0-based (children of i are 2i+1 and 2i+2). Ties are part of the
 * behaviour: an entry never climbs past a parent with an equal score, and on
 * the way down the left child wins between equal children and children equal
 * to the moving entry stay where they are.
 *
 * Entries come from a process-wide pool in blocks of 4096; a queue numbers
 * the entries it takes, keeps them for its next inserts and gives them back
 * to the pool in clear(), so that a long search takes the pool's lock only
 * now and then.
 *
 * The heap array itself holds keys, a score above an entry number, and the
 * queue keeps every entry's heap position and pixel in arrays by number:
 * sifting moves eight bytes and writes four per level, and taking the root
 * reads its pixel, all in compact arrays instead of entries scattered over
 * the pool. The entries' fields are brought up to date only by heap() and
 * top(), for inspection.
 *
 * Every queued pixel has a position-index slot (a tiled sparse matrix over
 * the image) holding its entry's key: a search that finds a queued pixel
 * already reached as cheaply, the common case, reads nothing else.
 *
 * A queue belongs to one thread at a time; it does not lock. Coordinates must
 * lie inside the size given to the constructor.
 */
class PXIMAGECUTTER_EXPORT PXPointPriorityQueue
{
public:
    /** One queued pixel. Handed out by get(), never freed individually. */
    struct PXIMAGECUTTER_EXPORT Entry
    {
        unsigned int score;      ///< the heap key, smaller is better
        unsigned int number;     ///< the queue's own number for the entry (in what would be padding)
        unsigned long heapIndex; ///< position in the heap array, as of the last heap() or top()
        unsigned int x;
        unsigned int y;
        unsigned int data;       ///< carried unchanged for the caller

        /** Takes an entry from the pool and fills it. Thread-safe. */
        static Entry* get(unsigned int score, unsigned long heapIndex, unsigned int x, unsigned int y,
            unsigned int data);
        /** Gives @p count entries back to the pool under one lock. Thread-safe. */
        static void release(Entry* const* entries, unsigned long count);

        /** The free list; guarded by the pool's lock. */
        static PXScissors::vector<Entry*> myAvailable;
        /** Every block of 4096 entries allocated so far; freed at process exit. */
        static PXScissors::vector<void*> myBlocks;
    };

    /** Computes a new score for an entry (see updateAllScores()). */
    using ScoreCallback = unsigned int (*)(unsigned int x, unsigned int y, unsigned int data, void const* context);

    /**
     * An empty queue for pixels of a @p width x @p height area. The heap array
     * is pre-allocated for min(2 (width + height), 16384) entries, rounded up
     * to a power of two of at least 8 (nothing when that is 0).
     */
    PXPointPriorityQueue(unsigned int width, unsigned int height);
    ~PXPointPriorityQueue();

    PXPointPriorityQueue(const PXPointPriorityQueue&) = delete;
    PXPointPriorityQueue& operator=(const PXPointPriorityQueue&) = delete;

    /**
     * Queues (@p x, @p y). Does not look for a duplicate: a pixel already
     * queued keeps its old entry in the heap while the position index moves
     * to the new one; use contains() and descreaseScore() instead.
     */
    void insert(unsigned int x, unsigned int y, unsigned int data, unsigned int score);
    /** Same as insert(). */
    void enqueue(unsigned int x, unsigned int y, unsigned int data, unsigned int score);

    /** Takes out the entry with the smallest score; false (outputs untouched) when empty. */
    bool dequeue(unsigned int& x, unsigned int& y, unsigned int& data, unsigned int& score);
    /** Removes the smallest entry. Precondition: not empty. */
    void deleteRoot();

    /** Whether (@p x, @p y) is queued. */
    bool contains(unsigned int x, unsigned int y) const { return m_positions.get(x, y) != 0; }

    /**
     * Lowers the score of the queued pixel (@p x, @p y) to @p score and moves
     * it up. Returns false and changes nothing when its score is already
     * less than or equal to @p score. Precondition: the pixel is queued.
     */
    bool descreaseScore(unsigned int x, unsigned int y, unsigned int score);

    /**
     * Queues (@p x, @p y) with @p data and @p score when it is not queued.
     * When it is queued with a higher score, lowers that to @p score like
     * descreaseScore() and, unlike it, replaces its data with @p data (a
     * search keeps there where the pixel is best reached from). Returns
     * whether the pixel was queued or lowered.
     */
    bool enqueueOrDescrease(unsigned int x, unsigned int y, unsigned int data, unsigned int score)
    {
        return enqueueOrDescrease(m_positions.get(x, y), x, y, data, score);
    }


    /** The position index over the 3 x 3 square around one pixel; see square(). */
    struct Square
    {
        const unsigned long* centre; ///< the centre's value; null while no pixel of its tile is queued
        long rowLength;              ///< values from one row to the next
    };

    /**
     * The position index around (@p x, @p y), for a search that relaxes the
     * neighbours of one pixel without looking each up: the whole square must
     * lie in one tile of the index. Valid until the next deleteRoot(),
     * dequeue() or clear().
     */
    Square square(unsigned int x, unsigned int y) const
    {
        return Square {m_positions.slotAddress(x, y), static_cast<long>(m_positions.rowLength(x))};
    }

    /**
     * enqueueOrDescrease() for (@p x, @p y), which lies (@p dx, @p dy) from the
     * centre of @p square.
     */
    bool enqueueOrDescrease(const Square& square, int dx, int dy, unsigned int x, unsigned int y, unsigned int data,
        unsigned int score)
    {
        if (!square.centre)
            return enqueueOrDescrease(m_positions.get(x, y), x, y, data, score);
        const unsigned long position = square.centre[dx + dy * square.rowLength];
        if (position == 0) {
            insertIntoTile(x, y, data, score);
            return true;
        }
        if (scoreOf(position) <= score)
            return false;
        m_items[lowerScore(x, y, position, score)].data = data;
        return true;
    }

    /**
     * The entry at the top of the heap, the next to come out unless a cheaper
     * one comes first, with its fields brought up to date; null when empty.
     */
    const Entry* top() const { return m_heap.isEmpty() ? nullptr : viewOf(0); }

    /** The pixel at the top of the heap into @p x and @p y; false (outputs untouched) when empty. */
    bool topPixel(unsigned int& x, unsigned int& y) const
    {
        if (m_heap.isEmpty())
            return false;
        const Item& item = m_items[numberOf(m_heap[0])];
        x = item.x;
        y = item.y;
        return true;
    }

    /** Hints that (@p x, @p y) and the pixels @p distance rows above and below it are about to be looked up. */
    void prefetchColumn(unsigned int x, unsigned int y, unsigned int distance = 1) const
    {
        m_positions.prefetchColumn(x, y, distance);
    }

    /** Recomputes every score with @p callback(x, y, data, @p context) and rebuilds the heap. */
    void updateAllScores(ScoreCallback callback, void const* context);

    /** Empties the queue; keeps the heap array, hands the index tiles and the kept entries back. */
    void clear();

    /** Sift-up from @p i. */
    void heapifyFromEndToBeginning(unsigned long i);
    /** Sift-down from @p i. */
    void heapifyFromBeginningToEnd(unsigned long i);
    /** Swaps two heap slots and stores their new heap indices. */
    void exchangeElements(unsigned long i, unsigned long j);

    unsigned long size() const { return m_heap.size(); }
    bool isEmpty() const { return m_heap.isEmpty(); }
    /**
     * The entries in heap order, for inspection, with their heapIndex fields
     * brought up to date; its capacity is the heap array's. Valid until the
     * queue changes.
     */
    const PXScissors::vector<Entry*>& heap() const;

private:
    // A heap key and position-index value: the score above the entry's
    // number + 1 (so a queued pixel's value is never 0). Keys compare by
    // score with key < (other & myScoreBits).
    static constexpr unsigned long myScoreBits = 0xFFFFFFFF00000000ul;
    static unsigned long keyOf(unsigned int score, unsigned int number)
    {
        return (static_cast<unsigned long>(score) << 32) | (static_cast<unsigned long>(number) + 1);
    }
    static unsigned int scoreOf(unsigned long key) { return static_cast<unsigned int>(key >> 32); }
    static unsigned int numberOf(unsigned long key) { return static_cast<unsigned int>(key) - 1; }

    bool enqueueOrDescrease(unsigned long position, unsigned int x, unsigned int y, unsigned int data,
        unsigned int score)
    {
        if (position == 0) {
            insertUnqueued(x, y, data, score);
            return true;
        }
        if (scoreOf(position) <= score)
            return false;
        m_items[lowerScore(x, y, position, score)].data = data;
        return true;
    }
    void insertUnqueued(unsigned int x, unsigned int y, unsigned int data, unsigned int score);
    // insertUnqueued() where the index tile of (x, y) is known to be present.
    void insertIntoTile(unsigned int x, unsigned int y, unsigned int data, unsigned int score);
    PXIMAGECUTTER_NO_EXPORT unsigned int takeNumber(unsigned int x, unsigned int y, unsigned int data);
    // Returns the entry's number.
    unsigned int lowerScore(unsigned int x, unsigned int y, unsigned long position, unsigned int score);
    // The entry at heap position i with its fields brought up to date.
    PXIMAGECUTTER_NO_EXPORT Entry* viewOf(unsigned long i) const;
    void place(unsigned long i, unsigned long key)
    {
        m_heap[i] = key;
        m_heapIndexOf[numberOf(key)] = static_cast<unsigned int>(i);
    }
    PXIMAGECUTTER_NO_EXPORT void siftUp(unsigned long i);
    PXIMAGECUTTER_NO_EXPORT void siftDown(unsigned long i);

    // The keys; the score in each is always equal to its entry's.
    PXScissors::vector<unsigned long> m_heap;
    PXScissors::SparseMatrix<unsigned long, 4096u> m_positions;
    // Every entry this queue took from the pool, and its heap position and
    // pixel while queued, by its number.
    struct Item
    {
        unsigned int x;
        unsigned int y;
        unsigned int data;
    };
    PXScissors::vector<Entry*> m_entries;
    PXScissors::vector<unsigned int> m_heapIndexOf;
    PXScissors::vector<Item> m_items;
    // What heap() hands out.
    mutable PXScissors::vector<Entry*> m_view;
    // Numbers of the entries dequeued from this queue, reused before the pool's.
    PXScissors::vector<unsigned int> m_spare;
    // Whether a pixel was inserted while queued; its older entry is then no
    // longer named by the index (see insert()).
    bool m_shadowed = false;
};
