#include "BlockPool.h"

#include "vector.h"

#include <QtGlobal>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#ifdef Q_OS_UNIX
#include <sys/mman.h>
#endif

namespace PXScissors {

namespace {

// Hidden in front of every block. 32 bytes keep the block 16-byte aligned.
struct BlockHeader
{
    unsigned long size;       // rounded size in bytes, header not included
    unsigned long dirtyBegin; // bytes outside [dirtyBegin, dirtyEnd) are zero
    unsigned long dirtyEnd;
    unsigned long mapped;     // 1 when the memory came from mmap
};
static_assert(sizeof(BlockHeader) == 32, "blocks must stay 16-byte aligned");

// From this size on blocks are mapped pages: they are zero and cost nothing
// until touched, whatever the allocator did with freed memory before.
constexpr unsigned long myMappedThreshold = 1ul << 20;

BlockHeader* headerOf(const void* block)
{
    return reinterpret_cast<BlockHeader*>(const_cast<char*>(static_cast<const char*>(block)) - sizeof(BlockHeader));
}

void* blockOf(BlockHeader* header)
{
    return reinterpret_cast<char*>(header) + sizeof(BlockHeader);
}

BlockHeader* allocateZeroed(unsigned long size)
{
    BlockHeader* header = nullptr;
#ifdef Q_OS_UNIX
    if (size >= myMappedThreshold) {
        void* memory = mmap(nullptr, size + sizeof(BlockHeader), PROT_READ | PROT_WRITE,
            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            qFatal("BlockPool: out of memory (%lu bytes)", size);
        header = static_cast<BlockHeader*>(memory);
        header->mapped = 1;
#ifdef MADV_HUGEPAGE
        // The search reads three rows of several tiles per pixel; with 4 KiB
        // pages that misses the TLB constantly. Huge pages cost at most 2 MiB
        // of the untouched tile per 2 MiB touched.
        madvise(memory, size + sizeof(BlockHeader), MADV_HUGEPAGE);
#endif
    }
#endif
    if (!header) {
        header = static_cast<BlockHeader*>(std::calloc(1, size + sizeof(BlockHeader)));
        if (!header)
            qFatal("BlockPool: out of memory (%lu bytes)", size);
        header->mapped = 0;
    }
    header->size = size;
    header->dirtyBegin = 0;
    header->dirtyEnd = 0;
    return header;
}

void release(BlockHeader* header)
{
#ifdef Q_OS_UNIX
    if (header->mapped) {
        munmap(header, header->size + sizeof(BlockHeader));
        return;
    }
#endif
    std::free(header);
}

// The free blocks by size class. The lists hold header addresses.
struct AvailableBlocks
{
    std::mutex mutex;
    std::map<unsigned long, vector<void*>> lists;

    void releaseAll()
    {
        for (auto& entry : lists) {
            vector<void*>& list = entry.second;
            for (unsigned long i = 0; i < list.size(); ++i)
                release(static_cast<BlockHeader*>(list[i]));
            list.release();
        }
        lists.clear();
    }

    // Pooled memory goes back at exit, so leak checkers see nothing. Blocks
    // returned after that (by objects destroyed later) are freed at once.
    ~AvailableBlocks()
    {
        releaseAll();
        myGone = true;
    }

    static bool myGone;
};
bool AvailableBlocks::myGone = false;

AvailableBlocks& myAvailableBlockPool()
{
    static AvailableBlocks pool;
    return pool;
}

BlockHeader* takeAvailable(unsigned long size)
{
    if (AvailableBlocks::myGone)
        return nullptr;
    AvailableBlocks& pool = myAvailableBlockPool();
    std::lock_guard<std::mutex> locker(pool.mutex);
    auto it = pool.lists.find(size);
    if (it == pool.lists.end() || it->second.isEmpty())
        return nullptr;
    return static_cast<BlockHeader*>(it->second.takeLast());
}

} // namespace

unsigned long BlockPool::roundedSize(unsigned long size)
{
    if (size <= 1)
        return 1;
    unsigned long s = size - 1;
    s |= s >> 1;
    s |= s >> 2;
    s |= s >> 4;
    s |= s >> 8;
    s |= s >> 16;
    s |= s >> 32;
    return s + 1;
}

void* BlockPool::get(unsigned long size)
{
    const unsigned long rounded = roundedSize(size);
    BlockHeader* header = takeAvailable(rounded);
    if (!header)
        header = allocateZeroed(rounded);
    // The header keeps the stale extent: it is merged with what this user
    // writes when the block comes back.
    return blockOf(header);
}

void* BlockPool::getZeroed(unsigned long size)
{
    const unsigned long rounded = roundedSize(size);
    BlockHeader* header = takeAvailable(rounded);
    if (!header)
        header = allocateZeroed(rounded);
    else if (header->dirtyEnd > header->dirtyBegin)
        std::memset(static_cast<char*>(blockOf(header)) + header->dirtyBegin, 0,
            header->dirtyEnd - header->dirtyBegin);
    header->dirtyBegin = 0;
    header->dirtyEnd = 0;
    return blockOf(header);
}

void BlockPool::returnBlock(void* block)
{
    if (block)
        returnBlock(block, 0, headerOf(block)->size);
}

void BlockPool::returnBlock(void* block, unsigned long dirtyBegin, unsigned long dirtyEnd)
{
    if (!block)
        return;
    BlockHeader* header = headerOf(block);
    dirtyEnd = std::min(dirtyEnd, header->size);
    // Bytes left over from before get() handed the block out stay dirty too.
    if (dirtyBegin < dirtyEnd) {
        if (header->dirtyBegin < header->dirtyEnd) {
            header->dirtyBegin = std::min(header->dirtyBegin, dirtyBegin);
            header->dirtyEnd = std::max(header->dirtyEnd, dirtyEnd);
        } else {
            header->dirtyBegin = dirtyBegin;
            header->dirtyEnd = dirtyEnd;
        }
    }
    if (AvailableBlocks::myGone) {
        release(header);
        return;
    }
    AvailableBlocks& pool = myAvailableBlockPool();
    std::lock_guard<std::mutex> locker(pool.mutex);
    pool.lists[header->size].append(header);
}

void* BlockPool::resize(void* block, unsigned long size)
{
    if (!block)
        return get(size);
    const unsigned long rounded = roundedSize(size);
    BlockHeader* header = headerOf(block);
    if (rounded == header->size)
        return block;
    BlockHeader* resized = allocateZeroed(rounded);
    const unsigned long kept = std::min(rounded, header->size);
    std::memcpy(blockOf(resized), block, kept);
    resized->dirtyEnd = kept;
    release(header);
    return blockOf(resized);
}

unsigned long BlockPool::blockSize(const void* block)
{
    return block ? headerOf(block)->size : 0;
}

unsigned long BlockPool::availableBlocks(unsigned long size)
{
    if (AvailableBlocks::myGone)
        return 0;
    AvailableBlocks& pool = myAvailableBlockPool();
    std::lock_guard<std::mutex> locker(pool.mutex);
    auto it = pool.lists.find(roundedSize(size));
    return it == pool.lists.end() ? 0 : it->second.size();
}

void BlockPool::clear()
{
    if (AvailableBlocks::myGone)
        return;
    AvailableBlocks& pool = myAvailableBlockPool();
    std::lock_guard<std::mutex> locker(pool.mutex);
    pool.releaseAll();
}

} // namespace PXScissors
