#include "PXPointPriorityQueue.h"

#include <QtGlobal>

#include <atomic>
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

PXPointPriorityQueue::Entry* filled(PXPointPriorityQueue::Entry* entry, unsigned int score, unsigned long heapIndex,
    unsigned int x, unsigned int y, unsigned int data)
{
    entry->score = score;
    entry->heapIndex = heapIndex;
    entry->x = x;
    entry->y = y;
    entry->data = data;
    return entry;
}

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
    return filled(entry, score, heapIndex, x, y, data);
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

unsigned int PXPointPriorityQueue::takeNumber(unsigned int x, unsigned int y, unsigned int data)
{
    if (m_spare.isEmpty()) {
        Entry* entry = Entry::get(0, 0, x, y, data);
        const unsigned int number = static_cast<unsigned int>(m_entries.size());
        entry->number = number;
        m_entries.append(entry);
        m_heapIndexOf.append(0);
        m_items.append(Item {x, y, data});
        return number;
    }
    const unsigned int number = m_spare.takeLast();
    m_items[number] = Item {x, y, data};
    return number;
}

void PXPointPriorityQueue::insert(unsigned int x, unsigned int y, unsigned int data, unsigned int score)
{
    if (m_positions.get(x, y) != 0)
        m_shadowed = true;
    insertUnqueued(x, y, data, score);
}

void PXPointPriorityQueue::insertUnqueued(unsigned int x, unsigned int y, unsigned int data, unsigned int score)
{
    const unsigned long key = keyOf(score, takeNumber(x, y, data));
    m_heap.append(key);
    m_positions.set(x, y, key);
    siftUp(m_heap.size() - 1);
}

void PXPointPriorityQueue::insertIntoTile(unsigned int x, unsigned int y, unsigned int data, unsigned int score)
{
    const unsigned long key = keyOf(score, takeNumber(x, y, data));
    m_heap.append(key);
    m_positions.fillEmpty(x, y, key);
    siftUp(m_heap.size() - 1);
}

void PXPointPriorityQueue::enqueue(unsigned int x, unsigned int y, unsigned int data, unsigned int score)
{
    insert(x, y, data, score);
}

bool PXPointPriorityQueue::dequeue(unsigned int& x, unsigned int& y, unsigned int& data, unsigned int& score)
{
    if (m_heap.isEmpty())
        return false;
    const Item& root = m_items[numberOf(m_heap[0])];
    x = root.x;
    y = root.y;
    data = root.data;
    score = scoreOf(m_heap[0]);
    deleteRoot();
    return true;
}

void PXPointPriorityQueue::deleteRoot()
{
    const unsigned int number = numberOf(m_heap[0]);
    const Item& root = m_items[number];
    const unsigned long last = m_heap.takeLast();
    // Unless a pixel was queued twice, the root's index value is its own.
    if (m_shadowed)
        m_positions.set(root.x, root.y, 0);
    else
        m_positions.clearOccupied(root.x, root.y);
    if (numberOf(last) != number) {
        m_heap[0] = last;
        siftDown(0);
    }
    m_spare.append(number);
}

bool PXPointPriorityQueue::descreaseScore(unsigned int x, unsigned int y, unsigned int score)
{
    const unsigned long position = m_positions.get(x, y);
    if (scoreOf(position) <= score)
        return false;
    lowerScore(x, y, position, score);
    return true;
}

unsigned int PXPointPriorityQueue::lowerScore(unsigned int x, unsigned int y, unsigned long position, unsigned int score)
{
    const unsigned int number = numberOf(position);
    const unsigned long key = keyOf(score, number);
    m_positions.replaceOccupied(x, y, key);
    const unsigned long i = m_heapIndexOf[number];
    m_heap[i] = key;
    siftUp(i);
    return number;
}

void PXPointPriorityQueue::updateAllScores(ScoreCallback callback, void const* context)
{
    const unsigned long count = m_heap.size();
    for (unsigned long i = 0; i < count; ++i) {
        const unsigned int number = numberOf(m_heap[i]);
        const Item& item = m_items[number];
        const unsigned long key = keyOf(callback(item.x, item.y, item.data, context), number);
        m_heap[i] = key;
        // A pixel queued twice is indexed by its newer entry only.
        if (numberOf(m_positions.get(item.x, item.y)) == number)
            m_positions.set(item.x, item.y, key);
    }
    if (count < 2)
        return;
    for (unsigned long i = count / 2; i-- > 0;)
        siftDown(i);
}

void PXPointPriorityQueue::clear()
{
    // The heap and the spare entries are all numbered.
    Entry::release(m_entries.data(), m_entries.size());
    m_entries.clear();
    m_heapIndexOf.clear();
    m_items.clear();
    m_heap.clear();
    m_spare.clear();
    m_view.clear();
    m_positions.clear();
    m_shadowed = false;
}

PXPointPriorityQueue::Entry* PXPointPriorityQueue::viewOf(unsigned long i) const
{
    const unsigned int number = numberOf(m_heap[i]);
    const Item& item = m_items[number];
    return filled(m_entries[number], scoreOf(m_heap[i]), i, item.x, item.y, item.data);
}

const PXScissors::vector<PXPointPriorityQueue::Entry*>& PXPointPriorityQueue::heap() const
{
    m_view.clear();
    m_view.reserve(m_heap.capacity());
    for (unsigned long i = 0; i < m_heap.size(); ++i)
        m_view.append(viewOf(i));
    return m_view;
}

void PXPointPriorityQueue::heapifyFromEndToBeginning(unsigned long i)
{
    siftUp(i);
}

void PXPointPriorityQueue::heapifyFromBeginningToEnd(unsigned long i)
{
    siftDown(i);
}

// Both sifts move a hole instead of swapping, and the moving key is written
// once at the end. The order is that of pairwise exchanges.
void PXPointPriorityQueue::siftUp(unsigned long i)
{
    const unsigned long moving = m_heap[i];
    const unsigned long movingScore = moving & myScoreBits;
    while (i > 0) {
        const unsigned long parent = (i - 1) / 2;
        // Never past an equal parent.
        if ((m_heap[parent] & myScoreBits) <= movingScore)
            break;
        place(i, m_heap[parent]);
        i = parent;
    }
    place(i, moving);
}

// The hole first runs down the path of smaller children to a leaf, one
// comparison per level, and the moving key then climbs back to where the
// exchanges would have stopped. Scores never decrease along that path, so
// the place is the same; but the moving key, the heap's last, mostly belongs
// near the bottom, and the climb is short.
void PXPointPriorityQueue::siftDown(unsigned long i)
{
    unsigned long* heap = m_heap.data();
    unsigned int* heapIndexOf = m_heapIndexOf.data();
    const unsigned long count = m_heap.size();
    const unsigned long start = i;
    const unsigned long moving = heap[i];
    const unsigned long movingScore = moving & myScoreBits;
    // The smaller child, the left one on a tie.
    for (unsigned long child = 2 * i + 1; child + 1 < count; child = 2 * i + 1) {
        const unsigned long left = heap[child];
        const unsigned long right = heap[child + 1];
        const bool rightWins = right < (left & myScoreBits);
        child += rightWins;
        const unsigned long rising = rightWins ? right : left;
        heap[i] = rising;
        heapIndexOf[numberOf(rising)] = static_cast<unsigned int>(i);
        i = child;
    }
    if (2 * i + 1 < count) {
        const unsigned long rising = heap[2 * i + 1];
        heap[i] = rising;
        heapIndexOf[numberOf(rising)] = static_cast<unsigned int>(i);
        i = 2 * i + 1;
    }
    // A key risen from here went up only if strictly smaller than the moving one.
    while (i > start) {
        const unsigned long parent = (i - 1) / 2;
        const unsigned long risen = heap[parent];
        if (risen < movingScore)
            break;
        heap[i] = risen;
        heapIndexOf[numberOf(risen)] = static_cast<unsigned int>(i);
        i = parent;
    }
    heap[i] = moving;
    heapIndexOf[numberOf(moving)] = static_cast<unsigned int>(i);
}

void PXPointPriorityQueue::exchangeElements(unsigned long i, unsigned long j)
{
    const unsigned long a = m_heap[i];
    place(i, m_heap[j]);
    place(j, a);
}
