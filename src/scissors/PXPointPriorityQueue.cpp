#include "PXPointPriorityQueue.h"

#include <QtGlobal>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <thread>

using PXScissors::vector;

vector<PXPointPriorityQueue::Entry*> PXPointPriorityQueue::Entry::myAvailable;
vector<void*> PXPointPriorityQueue::Entry::myBlocks;

namespace {

constexpr unsigned long myEntriesPerBlock = 4096;

// Guards the two Entry statics. The search thread and the weight calculator's
// thread both take entries; the critical sections are a handful of
// instructions, so a spin lock is cheaper than a mutex here.
std::atomic_flag myEntryLock = ATOMIC_FLAG_INIT;

class EntryLocker
{
public:
    EntryLocker()
    {
        while (myEntryLock.test_and_set(std::memory_order_acquire))
            std::this_thread::yield();
    }
    ~EntryLocker() { myEntryLock.clear(std::memory_order_release); }
};

// Entry blocks live as long as the process; at exit they go back to the
// system so that leak checkers stay quiet.
struct EntryBlocksReleaser
{
    ~EntryBlocksReleaser()
    {
        EntryLocker locker;
        for (unsigned long i = 0; i < PXPointPriorityQueue::Entry::myBlocks.size(); ++i)
            std::free(PXPointPriorityQueue::Entry::myBlocks[i]);
        PXPointPriorityQueue::Entry::myBlocks.release();
        PXPointPriorityQueue::Entry::myAvailable.release();
    }
};
EntryBlocksReleaser myEntryBlocksReleaser;

} // namespace

PXPointPriorityQueue::Entry* PXPointPriorityQueue::Entry::get(
    unsigned int score, unsigned long heapIndex, unsigned int x, unsigned int y, unsigned int data)
{
    Entry* entry;
    {
        EntryLocker locker;
        if (myAvailable.isEmpty()) {
            auto* block = static_cast<Entry*>(std::malloc(myEntriesPerBlock * sizeof(Entry)));
            if (!block)
                qFatal("PXPointPriorityQueue: out of memory");
            myBlocks.append(block);
            unsigned long capacity = myAvailable.capacity();
            while (capacity < myEntriesPerBlock)
                capacity = capacity == 0 ? 8 : 2 * capacity;
            myAvailable.reserve(capacity);
            for (unsigned long i = 0; i < myEntriesPerBlock; ++i)
                myAvailable.append(block + i);
        }
        entry = myAvailable.takeLast();
    }
    entry->score = score;
    entry->heapIndex = heapIndex;
    entry->x = x;
    entry->y = y;
    entry->data = data;
    return entry;
}

void PXPointPriorityQueue::Entry::release(Entry* entry)
{
    EntryLocker locker;
    myAvailable.append(entry);
}

void PXPointPriorityQueue::Entry::release(Entry* const* entries, unsigned long count)
{
    EntryLocker locker;
    myAvailable.reserve(myAvailable.size() + count);
    for (unsigned long i = 0; i < count; ++i)
        myAvailable.append(entries[i]);
}

PXPointPriorityQueue::PXPointPriorityQueue(unsigned int width, unsigned int height)
    : m_positions(width, height)
{
    // Computed in 32 bits on purpose, like the sizes it comes from.
    unsigned int n = 2u * (width + height);
    if (n > 16384u)
        n = 16384u;
    if (n != 0) {
        unsigned long capacity = 8;
        while (capacity < n)
            capacity *= 2;
        m_heap.reserve(capacity);
    }
}

PXPointPriorityQueue::~PXPointPriorityQueue()
{
    clear();
}

PXPointPriorityQueue::Entry* PXPointPriorityQueue::entryOf(unsigned long* heapIndex)
{
    return reinterpret_cast<Entry*>(reinterpret_cast<char*>(heapIndex) - offsetof(Entry, heapIndex));
}

void PXPointPriorityQueue::insert(unsigned int x, unsigned int y, unsigned int data, unsigned int score)
{
    Entry* entry = Entry::get(score, m_heap.size(), x, y, data);
    m_heap.append(entry);
    m_positions.set(x, y, &entry->heapIndex);
    heapifyFromEndToBeginning(m_heap.size() - 1);
}

void PXPointPriorityQueue::enqueue(unsigned int x, unsigned int y, unsigned int data, unsigned int score)
{
    insert(x, y, data, score);
}

bool PXPointPriorityQueue::dequeue(unsigned int& x, unsigned int& y, unsigned int& data, unsigned int& score)
{
    if (m_heap.isEmpty())
        return false;
    const Entry* root = m_heap[0];
    x = root->x;
    y = root->y;
    data = root->data;
    score = root->score;
    deleteRoot();
    return true;
}

void PXPointPriorityQueue::deleteRoot()
{
    Entry* root = m_heap[0];
    Entry* last = m_heap.takeLast();
    m_positions.set(root->x, root->y, nullptr);
    if (root != last) {
        m_heap[0] = last;
        last->heapIndex = 0;
        heapifyFromBeginningToEnd(0);
    }
    Entry::release(root);
}

bool PXPointPriorityQueue::descreaseScore(unsigned int x, unsigned int y, unsigned int score)
{
    Entry* entry = entryOf(m_positions.get(x, y));
    if (entry->score <= score)
        return false;
    entry->score = score;
    heapifyFromEndToBeginning(entry->heapIndex);
    return true;
}

void PXPointPriorityQueue::updateAllScores(ScoreCallback callback, void const* context)
{
    const unsigned long count = m_heap.size();
    for (unsigned long i = 0; i < count; ++i) {
        Entry* entry = m_heap[i];
        entry->score = callback(entry->x, entry->y, entry->data, context);
    }
    if (count < 2)
        return;
    for (unsigned long i = count / 2; i-- > 0;)
        heapifyFromBeginningToEnd(i);
}

void PXPointPriorityQueue::clear()
{
    Entry::release(m_heap.data(), m_heap.size());
    m_heap.clear();
    m_positions.clear();
}

void PXPointPriorityQueue::heapifyFromEndToBeginning(unsigned long i)
{
    while (i > 0) {
        const unsigned long parent = (i - 1) / 2;
        if (m_heap[parent]->score <= m_heap[i]->score)
            return;
        exchangeElements(parent, i);
        i = parent;
    }
}

void PXPointPriorityQueue::heapifyFromBeginningToEnd(unsigned long i)
{
    const unsigned long count = m_heap.size();
    for (;;) {
        const unsigned int score = m_heap[i]->score;
        const unsigned long left = 2 * i + 1;
        const unsigned long right = left + 1;
        unsigned long candidate = i;
        unsigned int candidateScore = score;
        if (left < count && m_heap[left]->score < score) {
            candidate = left;
            candidateScore = m_heap[left]->score;
        }
        if (right < count && m_heap[right]->score < candidateScore)
            candidate = right;
        if (candidate == i)
            return;
        exchangeElements(i, candidate);
        i = candidate;
    }
}

void PXPointPriorityQueue::exchangeElements(unsigned long i, unsigned long j)
{
    Entry* a = m_heap[i];
    Entry* b = m_heap[j];
    m_heap[i] = b;
    m_heap[j] = a;
    b->heapIndex = i;
    a->heapIndex = j;
}
