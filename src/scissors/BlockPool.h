#pragma once

#include "pximagecutter_export.h"

namespace PXScissors {

/**
 * The process-wide recycler of large memory blocks (sparse-matrix tiles and
 * the weight calculator's scratch and result buffers).
 *
 * Sizes are rounded up to a power of two and a returned block waits in a
 * list of its size class until the next get() of that class; blocks go back
 * to the system only in clear() (and at process exit). Large blocks come
 * from lazily committed, already zero memory, so a fresh 128 MiB tile costs
 * only the pages that are actually written.
 *
 * Every block remembers which of its bytes may be non-zero (its dirty
 * extent), so getZeroed() clears only what an earlier user wrote.
 *
 * All operations are static and thread-safe (one internal lock): the search
 * thread and the weight calculator's thread use the pool at the same time.
 */
class PXIMAGECUTTER_EXPORT BlockPool
{
public:
    /** A block of at least @p size bytes; its contents are unspecified. */
    static void* get(unsigned long size);
    /** A block of at least @p size bytes, all zero. */
    static void* getZeroed(unsigned long size);

    /** Takes @p block back; every byte of it may have been written. */
    static void returnBlock(void* block);
    /**
     * Takes @p block back; the caller wrote no byte outside
     * [@p dirtyBegin, @p dirtyEnd) (an empty range: none). For a block from
     * getZeroed() that makes every other byte zero; for one from get() the
     * bytes it held before stay accounted for.
     */
    static void returnBlock(void* block, unsigned long dirtyBegin, unsigned long dirtyEnd);

    /**
     * Resizes @p block to hold at least @p size bytes, keeping its contents
     * up to the smaller size, like realloc. Returns @p block itself when the
     * size class does not change. A null @p block behaves as get().
     */
    static void* resize(void* block, unsigned long size);

    /** The rounded size of @p block in bytes. */
    static unsigned long blockSize(const void* block);

    /** Number of blocks of @p size's class that wait for reuse. */
    static unsigned long availableBlocks(unsigned long size);

    /** Gives every waiting block back to the system. */
    static void clear();

    /** @p size rounded up to a power of two (at least 1). */
    static unsigned long roundedSize(unsigned long size);

private:
    BlockPool() = delete;
};

} // namespace PXScissors
