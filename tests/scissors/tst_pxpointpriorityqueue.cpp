#include "BlockPool.h"
#include "PXPointPriorityQueue.h"
#include "SparseMatrix.h"

#include <QtTest>

#include <algorithm>

using PXScissors::BlockPool;
using PXScissors::SparseMatrix;

class TestPXPointPriorityQueue : public QObject
{
    Q_OBJECT

private:
    // Heap order, exact indices and an index slot for every entry.
    static bool isConsistent(const PXPointPriorityQueue& queue)
    {
        const auto& heap = queue.heap();
        for (unsigned long i = 0; i < heap.size(); ++i) {
            if (heap[i]->heapIndex != i)
                return false;
            if (i > 0 && heap[(i - 1) / 2]->score > heap[i]->score)
                return false;
            if (!queue.contains(heap[i]->x, heap[i]->y))
                return false;
        }
        return true;
    }

private slots:
    // Ties: the root is never displaced by an equal score, and on equal
    // children the left one rises.
    void dequeueOrder_data()
    {
        QTest::addColumn<QList<unsigned int>>("scores");
        QTest::addColumn<QList<unsigned int>>("order");
        // Heap [1, 2, 3, 4]: each former last entry stays at the root.
        QTest::newRow("all equal") << QList<unsigned int> {5, 5, 5, 5} << QList<unsigned int> {1, 4, 3, 2};
        // 9 sinks after the first dequeue: both children score 3, the left one (2) rises.
        QTest::newRow("equal children") << QList<unsigned int> {1, 3, 3, 9} << QList<unsigned int> {1, 2, 3, 4};
    }
    void dequeueOrder()
    {
        QFETCH(QList<unsigned int>, scores);
        QFETCH(QList<unsigned int>, order);
        PXPointPriorityQueue queue(10, 10);
        for (int i = 0; i < scores.size(); ++i)
            queue.insert(unsigned(i), 0, unsigned(i + 1), scores[i]);
        QList<unsigned int> dequeued;
        unsigned int x, y, data, score;
        while (queue.dequeue(x, y, data, score)) {
            dequeued << data;
            QVERIFY(isConsistent(queue));
        }
        QCOMPARE(dequeued, order);
    }

    // Inserting a queued pixel again leaves its older entry in the heap, no
    // longer indexed: both come out, and the index tile still goes back to
    // the pool when the last indexed pixel leaves.
    void pixelQueuedTwice()
    {
        const unsigned long tileBytes = 4096ul * 4096ul * sizeof(unsigned long);
        PXPointPriorityQueue queue(10, 10);
        queue.insert(1, 1, 1, 5);
        queue.insert(2, 2, 2, 4);
        queue.insert(1, 1, 3, 3);
        QVERIFY(isConsistent(queue));
        QVERIFY(!queue.descreaseScore(1, 1, 3));
        QVERIFY(queue.descreaseScore(1, 1, 2));
        unsigned int x, y, data, score;
        QVERIFY(queue.dequeue(x, y, data, score));
        QCOMPARE(data, 3u);
        QCOMPARE(score, 2u);
        QVERIFY(!queue.contains(1, 1));
        const unsigned long pooled = BlockPool::availableBlocks(tileBytes);
        QVERIFY(queue.dequeue(x, y, data, score));
        QCOMPARE(data, 2u);
        QCOMPARE(BlockPool::availableBlocks(tileBytes), pooled + 1);
        QVERIFY(queue.dequeue(x, y, data, score));
        QCOMPARE(data, 1u);
        QVERIFY(queue.isEmpty());
        QCOMPARE(BlockPool::availableBlocks(tileBytes), pooled + 1);
    }

    void updateAllScores()
    {
        PXPointPriorityQueue queue(100, 100);
        auto negate = [](unsigned int x, unsigned int, unsigned int, void const* context) -> unsigned int {
            return *static_cast<const unsigned int*>(context) - x;
        };
        const unsigned int top = 1000;
        queue.insert(7, 0, 0, 3);
        queue.updateAllScores(negate, &top);
        QCOMPARE(queue.heap()[0]->score, 993u);
        for (unsigned int x = 0; x < 50; ++x)
            if (x != 7)
                queue.insert(x, 1, x, x);
        queue.updateAllScores(negate, &top);
        QVERIFY(isConsistent(queue));
        unsigned int x, y, data, score;
        QVERIFY(queue.dequeue(x, y, data, score));
        QCOMPARE(x, 49u);
        QCOMPARE(score, 951u);
    }

    void tileGoesBackAndComesBackZeroed()
    {
        const unsigned long tileBytes = 4096ul * 4096ul * sizeof(unsigned int);
        SparseMatrix<unsigned int, 4096u> matrix(5000, 100);
        matrix.set(4500, 50, 7);
        QCOMPARE(matrix.freeCount(4500, 50), 0xFFFFFFu);
        matrix.set(4501, 50, 8);
        QCOMPARE(matrix.freeCount(4500, 50), 0xFFFFFEu);
        matrix.set(4500, 50, 0);
        QVERIFY(matrix.hasTile(4500, 50));
        const unsigned long pooled = BlockPool::availableBlocks(tileBytes);
        matrix.set(4501, 50, 0);
        QVERIFY(!matrix.hasTile(4501, 50));
        QCOMPARE(BlockPool::availableBlocks(tileBytes), pooled + 1);
        matrix.set(4099, 0, 3);
        QCOMPARE(BlockPool::availableBlocks(tileBytes), pooled);
        QCOMPARE(matrix.get(4501, 50), 0u);

        // A tile handed back with values in it is zeroed where it was written.
        matrix.set(4200, 99, 11);
        matrix.clear();
        QVERIFY(!matrix.hasTile(4099, 0));
        matrix.set(4100, 1, 1);
        QCOMPARE(matrix.get(4099, 0), 0u);
        QCOMPARE(matrix.get(4200, 99), 0u);
    }

    void blockPool()
    {
        auto* block = static_cast<unsigned char*>(BlockPool::get(3000));
        QCOMPARE(BlockPool::blockSize(block), 4096ul);
        std::fill(block, block + 4096, 0xAB);
        block = static_cast<unsigned char*>(BlockPool::resize(block, 5000));
        QCOMPARE(BlockPool::blockSize(block), 8192ul);
        QCOMPARE(block[4095], 0xAB);
        BlockPool::returnBlock(block, 100, 200);
        const unsigned long waiting = BlockPool::availableBlocks(8192);
        QVERIFY(waiting >= 1);
        auto* zeroed = static_cast<unsigned char*>(BlockPool::getZeroed(8192));
        QCOMPARE(BlockPool::availableBlocks(8192), waiting - 1);
        QVERIFY(std::all_of(zeroed + 100, zeroed + 200, [](unsigned char c) { return c == 0; }));
        std::fill(zeroed, zeroed + 8192, 0x5A);
        BlockPool::returnBlock(zeroed);

        // Regression: a stale block reused by a user that writes little must
        // still come back zero where the earlier user wrote.
        auto* stale = static_cast<unsigned char*>(BlockPool::get(8192));
        QCOMPARE(stale, zeroed);
        stale[0] = 1;
        BlockPool::returnBlock(stale, 0, 1);
        auto* clean = static_cast<unsigned char*>(BlockPool::getZeroed(8192));
        QVERIFY(std::all_of(clean, clean + 8192, [](unsigned char c) { return c == 0; }));
        BlockPool::returnBlock(clean, 0, 0);
        BlockPool::clear();
        QCOMPARE(BlockPool::availableBlocks(8192), 0ul);
    }
};

QTEST_GUILESS_MAIN(TestPXPointPriorityQueue)
#include "tst_pxpointpriorityqueue.moc"
