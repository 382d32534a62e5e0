#include "PXIntRange.h"

#include <QImage>
#include <QTest>

class TestPXRanges : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void expandTo_data()
    {
        QTest::addColumn<PXIntRange>("range");
        QTest::addColumn<int>("value");
        QTest::addColumn<PXIntRange>("expected");
        QTest::newRow("fresh (0,0) is empty") << PXIntRange(0, 0) << 5 << PXIntRange(5, 5);
        QTest::newRow("above") << PXIntRange(2, 4) << 9 << PXIntRange(2, 9);
        QTest::newRow("below") << PXIntRange(2, 4) << 1 << PXIntRange(1, 4);
        QTest::newRow("(0,1) is a real range") << PXIntRange(0, 1) << 5 << PXIntRange(0, 5);
    }
    void expandTo()
    {
        QFETCH(PXIntRange, range);
        QFETCH(int, value);
        QFETCH(PXIntRange, expected);
        range.expandTo(value);
        QCOMPARE(range, expected);
    }

    void splitCoversRange_data()
    {
        QTest::addColumn<int>("cores");
        QTest::addColumn<PXIntRange>("range");
        QTest::addColumn<int>("expectedBlocks");
        QTest::newRow("one core") << 1 << PXIntRange(0, 99) << 1;
        QTest::newRow("five cores, remainder") << 5 << PXIntRange(10, 21) << 5;
        QTest::newRow("more cores than rows") << 8 << PXIntRange(0, 2) << 3;
        QTest::newRow("empty range") << 4 << PXIntRange(5, 4) << 0;
        QTest::newRow("rows of a 7 x 3 image") << 2 << PXIntRange::rowsOfImage(QImage(7, 3, QImage::Format_ARGB32)) << 2;
    }
    // Blocks are contiguous, cover the range and differ by at most one element;
    // loops end at lastIndexEvenIfUnvalid(), also for an empty range.
    void splitCoversRange()
    {
        QFETCH(int, cores);
        QFETCH(PXIntRange, range);
        QFETCH(int, expectedBlocks);
        qputenv("PX_CORE_COUNT", QByteArray::number(cores));
        const QList<PXIntRange> blocks = range.splitEvenlyForCpuCores();
        qunsetenv("PX_CORE_COUNT");

        QCOMPARE(blocks.size(), expectedBlocks);
        int next = range.first();
        int shortest = INT_MAX;
        int longest = 0;
        for (const PXIntRange& block : blocks) {
            QCOMPARE(block.first(), next);
            QVERIFY(block.isValid());
            next = block.lastIndexEvenIfUnvalid();
            shortest = qMin(shortest, block.countElements());
            longest = qMax(longest, block.countElements());
        }
        QCOMPARE(next, range.lastIndexEvenIfUnvalid());
        QCOMPARE(next - range.first(), range.countElements());
        QVERIFY(blocks.isEmpty() || longest - shortest <= 1);
    }
};

QTEST_GUILESS_MAIN(TestPXRanges)
#include "tst_pxranges.moc"
