#pragma once

#include "BlockPool.h"

#include <cstdlib>

namespace PXScissors {

/**
 * A two-dimensional array of T that costs memory only where it holds values.
 *
 * The area is cut into tiles of TileSize x TileSize values; a tile is taken
 * from BlockPool when its first value arrives and, with the ReturnEmptyTiles
 * policy, goes back when its last value is cleared. The empty value is T()
 * (0, null or false); reading an absent tile yields it.
 *
 * Inside a tile the values lie row by row, each row as long as the area is
 * wide there: TileSize, or less in the right-most column of tiles. The rest
 * of a narrow tile's block is never touched, so an area narrower than a tile
 * keeps its values together (fewer pages, and only those it uses).
 *
 * Every cell counts the empty slots of its tile and remembers the range of
 * slots ever written, so a tile handed back to the pool is re-zeroed only
 * there the next time it is used.
 *
 * One thread writes (set(), clear()). Other threads may read with
 * getAcquire() while it writes, as long as no tile they read can be handed
 * back meanwhile: use KeepTilesUntilClear (or its unzeroed variant) for such
 * a matrix and do not call clear() while they read. Coordinates must lie
 * inside the size given to the constructor; they are not checked.
 */
template <typename T, unsigned int TileSize>
class SparseMatrix
{
    static_assert(TileSize >= 2 && (TileSize & (TileSize - 1)) == 0, "tiles are a power of two wide");

    static constexpr unsigned int shiftOf(unsigned int size) { return size <= 1 ? 0 : 1 + shiftOf(size / 2); }
    static constexpr unsigned int myShift = shiftOf(TileSize);
    static constexpr unsigned int myMask = TileSize - 1;
    static constexpr unsigned long mySlots = static_cast<unsigned long>(TileSize) * TileSize;

public:
    /** What set() does with a tile whose last value was cleared. */
    enum TilePolicy {
        ReturnEmptyTiles,   ///< hand it back to BlockPool at once
        KeepTilesUntilClear, ///< keep it until clear(), so concurrent readers never lose it
        /// like KeepTilesUntilClear, but a new tile is not zeroed: a slot
        /// never set in it holds whatever the memory held before
        KeepUnzeroedTilesUntilClear
    };

    SparseMatrix(unsigned int width, unsigned int height, TilePolicy policy = ReturnEmptyTiles)
        : m_columns(static_cast<unsigned int>((static_cast<unsigned long>(width) + TileSize - 1) / TileSize))
        , m_rows(static_cast<unsigned int>((static_cast<unsigned long>(height) + TileSize - 1) / TileSize))
        , m_cellCount(m_columns * m_rows)
        , m_policy(policy)
    {
        m_cells = static_cast<Cell*>(std::calloc(m_cellCount ? m_cellCount : 1, sizeof(Cell)));
        for (unsigned int i = 0; i < m_cellCount; ++i) {
            const unsigned int column = i % m_columns;
            m_cells[i].rowLength = column + 1 < m_columns ? TileSize : width - column * TileSize;
        }
    }

    ~SparseMatrix()
    {
        clear();
        std::free(m_cells);
    }

    SparseMatrix(const SparseMatrix&) = delete;
    SparseMatrix& operator=(const SparseMatrix&) = delete;

    unsigned int columns() const { return m_columns; }
    unsigned int rows() const { return m_rows; }
    unsigned int cellCount() const { return m_cellCount; }

    /** The value at (@p x, @p y); for the writing thread. */
    T get(unsigned int x, unsigned int y) const
    {
        const Cell& cell = cellOf(x, y);
        const T* tile = __atomic_load_n(&cell.tile, __ATOMIC_RELAXED);
        return tile ? __atomic_load_n(&tile[slotOf(cell, x, y)], __ATOMIC_RELAXED) : T();
    }

    /**
     * The value at (@p x, @p y) for a thread other than the writer; everything
     * the writer did before storing this value is visible afterwards.
     */
    T getAcquire(unsigned int x, unsigned int y) const
    {
        const Cell& cell = cellOf(x, y);
        const T* tile = __atomic_load_n(&cell.tile, __ATOMIC_ACQUIRE);
        return tile ? __atomic_load_n(&tile[slotOf(cell, x, y)], __ATOMIC_ACQUIRE) : T();
    }

    /**
     * The address of (@p x, @p y)'s slot, or null while its tile is absent.
     * Inside a tile, the slot of (x + dx, y + dy) lies dx + dy rowLength(x)
     * slots further on. For the writing thread.
     */
    const T* slotAddress(unsigned int x, unsigned int y) const
    {
        const Cell& cell = cellOf(x, y);
        return cell.tile ? cell.tile + slotOf(cell, x, y) : nullptr;
    }

    /**
     * Asks the processor to fetch the slots of (@p x, @p y) and of the pixels
     * @p distance rows above and below it, which are about to be read. Only
     * a hint.
     */
    void prefetchColumn(unsigned int x, unsigned int y, unsigned int distance = 1) const
    {
        const Cell& cell = cellOf(x, y);
        if (!cell.tile)
            return;
        const T* slot = cell.tile + slotOf(cell, x, y);
        const unsigned long rows = static_cast<unsigned long>(distance) * cell.rowLength;
        __builtin_prefetch(slot);
        if ((y & myMask) >= distance)
            __builtin_prefetch(slot - rows);
        if ((y & myMask) + distance <= myMask)
            __builtin_prefetch(slot + rows);
    }

    /** The length of the rows of the tiles holding column @p x. */
    unsigned int rowLength(unsigned int x) const { return m_cells[x >> myShift].rowLength; }

    /** Whether the tile holding (@p x, @p y) is present. */
    bool hasTile(unsigned int x, unsigned int y) const
    {
        return __atomic_load_n(&cellOf(x, y).tile, __ATOMIC_RELAXED) != nullptr;
    }

    /**
     * Number of empty slots of the tile holding (@p x, @p y); meaningful
     * while the tile is present, and only with ReturnEmptyTiles.
     */
    unsigned int freeCount(unsigned int x, unsigned int y) const { return cellOf(x, y).freeCount; }

    /** Stores @p value (release order), creating or handing back the tile as needed. */
    void set(unsigned int x, unsigned int y, const T& value)
    {
        Cell& cell = cellOf(x, y);
        T* tile = cell.tile;
        if (tile && m_policy != ReturnEmptyTiles) {
            // Such a tile goes back only in clear(), so its count is not kept
            // up and the old value need not be read.
            const unsigned int slot = slotOf(cell, x, y);
            if (!(value == T()))
                extendDirty(cell, slot);
            __atomic_store_n(&tile[slot], value, __ATOMIC_RELEASE);
            return;
        }
        setCounted(cell, slotOf(cell, x, y), value);
    }

    /**
     * The same as set(@p x, @p y, @p value) for a non-empty @p value and a
     * slot the caller knows to be empty in a present tile.
     */
    void fillEmpty(unsigned int x, unsigned int y, const T& value)
    {
        Cell& cell = cellOf(x, y);
        const unsigned int slot = slotOf(cell, x, y);
        --cell.freeCount;
        extendDirty(cell, slot);
        __atomic_store_n(&cell.tile[slot], value, __ATOMIC_RELEASE);
    }

    /**
     * The same as set(@p x, @p y, @p value) for a non-empty @p value and a
     * slot the caller knows to hold one already.
     */
    void replaceOccupied(unsigned int x, unsigned int y, const T& value)
    {
        const Cell& cell = cellOf(x, y);
        __atomic_store_n(&cell.tile[slotOf(cell, x, y)], value, __ATOMIC_RELEASE);
    }

    /**
     * The same as set(@p x, @p y, T()) for a slot the caller knows to hold a
     * value, without reading it first (a cache miss a hot loop can do
     * without: the store does not wait for the line).
     */
    void clearOccupied(unsigned int x, unsigned int y)
    {
        Cell& cell = cellOf(x, y);
        T* tile = cell.tile;
        __atomic_store_n(&tile[slotOf(cell, x, y)], T(), __ATOMIC_RELEASE);
        if (m_policy == ReturnEmptyTiles && ++cell.freeCount == mySlots) {
            __atomic_store_n(&cell.tile, static_cast<T*>(nullptr), __ATOMIC_RELEASE);
            BlockPool::returnBlock(tile, 0, 0);
        }
    }

    /** Hands every tile back to BlockPool and zeroes every cell. */
    void clear()
    {
        for (unsigned int i = 0; i < m_cellCount; ++i) {
            Cell& cell = m_cells[i];
            if (cell.tile) {
                T* tile = cell.tile;
                __atomic_store_n(&cell.tile, static_cast<T*>(nullptr), __ATOMIC_RELEASE);
                BlockPool::returnBlock(tile, cell.dirtyBegin * sizeof(T), cell.dirtyEnd * sizeof(T));
            }
            cell.freeCount = 0;
            cell.dirtyBegin = 0;
            cell.dirtyEnd = 0;
        }
    }

private:
    struct Cell
    {
        T* tile;                 // null while absent
        unsigned int freeCount;  // empty slots of the tile
        unsigned int dirtyBegin; // slots outside [dirtyBegin, dirtyEnd) were never written
        unsigned int dirtyEnd;
        unsigned int rowLength;  // values per row of the tile, fixed
    };

    // set() where the empty slots are counted, or where the tile is absent.
    void setCounted(Cell& cell, unsigned int slot, const T& value)
    {
        T* tile = cell.tile;
        const bool empty = value == T();
        if (tile) {
            const bool wasEmpty = tile[slot] == T();
            if (!empty) {
                if (wasEmpty)
                    --cell.freeCount;
                extendDirty(cell, slot);
                __atomic_store_n(&tile[slot], value, __ATOMIC_RELEASE);
                return;
            }
            if (!wasEmpty)
                ++cell.freeCount;
            __atomic_store_n(&tile[slot], value, __ATOMIC_RELEASE);
            if (cell.freeCount == mySlots && m_policy == ReturnEmptyTiles) {
                // Every slot is empty again, so the whole tile is zero.
                __atomic_store_n(&cell.tile, static_cast<T*>(nullptr), __ATOMIC_RELEASE);
                BlockPool::returnBlock(tile, 0, 0);
            }
            return;
        }
        // An unzeroed tile needs even an empty value stored.
        if (empty && m_policy != KeepUnzeroedTilesUntilClear)
            return;
        tile = static_cast<T*>(m_policy == KeepUnzeroedTilesUntilClear ? BlockPool::get(mySlots * sizeof(T))
                                                                     : BlockPool::getZeroed(mySlots * sizeof(T)));
        cell.freeCount = static_cast<unsigned int>(mySlots - 1);
        cell.dirtyBegin = slot;
        cell.dirtyEnd = slot + 1;
        tile[slot] = value;
        // Publishes the tile together with its first value.
        __atomic_store_n(&cell.tile, tile, __ATOMIC_RELEASE);
    }

    Cell& cellOf(unsigned int x, unsigned int y) const
    {
        return m_cells[(y >> myShift) * m_columns + (x >> myShift)];
    }
    static void extendDirty(Cell& cell, unsigned int slot)
    {
        if (slot < cell.dirtyBegin)
            cell.dirtyBegin = slot;
        if (slot >= cell.dirtyEnd)
            cell.dirtyEnd = slot + 1;
    }
    static unsigned int slotOf(const Cell& cell, unsigned int x, unsigned int y)
    {
        return (x & myMask) + (y & myMask) * cell.rowLength;
    }

    Cell* m_cells = nullptr;
    unsigned int m_columns;
    unsigned int m_rows;
    unsigned int m_cellCount;
    TilePolicy m_policy;
};

} // namespace PXScissors
