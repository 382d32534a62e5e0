#include "PXIntRange.h"

#include <QImage>
#include <QTest>

namespace {
// Contains only its first element: shows that the composite operations
// dispatch through the virtual contains().
class FirstOnlyRange : public PXRange<int>
{
public:
    using PXRange<int>::PXRange;
    using PXRange<int>::contains;
    bool contains(const int& value) const override { return value == first(); }
};

class NeverValidRange : public PXRange<int>
{
public:
    using PXRange<int>::PXRange;
    bool isValid() const override { return false; }
};
} // namespace

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
        QTest::newRow("fresh (0,0), negative value") << PXIntRange(0, 0) << -3 << PXIntRange(-3, -3);
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

    void orderingAndVirtualComposites()
    {
        QCOMPARE(PXRange<int>(-3, 0).center(), -1); // truncated toward zero
        QVERIFY(PXRange<int>(1, 5) < PXRange<int>(2, 3));
        QVERIFY(PXRange<int>(1, 3) < PXRange<int>(1, 4));
        QVERIFY(PXRange<int>(100, 200) < PXRange<int>(5, 1)); // valid before invalid
        QVERIFY(!(PXRange<int>(5, 1) < PXRange<int>(6, 2)));
        QVERIFY(!PXRange<int>(4, 2).contains(3));
        QVERIFY(PXRange<int>(3, 4).intersects(PXRange<int>(0, 10)));
        QVERIFY(!PXRange<int>(0, 2).intersects(PXRange<int>(3, 4)));

        const FirstOnlyRange firstOnly(0, 10);
        QVERIFY(!firstOnly.contains(PXRange<int>(0, 5)));
        // contains(r.first) and contains(r.last) fail, r.contains(first) holds.
        QVERIFY(firstOnly.intersects(PXRange<int>(-5, 5)));
        QVERIFY(!firstOnly.intersects(PXRange<int>(3, 4)));
        const NeverValidRange invalid(1, 2);
        QVERIFY(!(invalid < PXRange<int>(3, 4)));
        QVERIFY(PXRange<int>(3, 4) < invalid);
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
        QTest::newRow("columns of a null image") << 2 << PXIntRange::columnsOfImage(QImage()) << 0;
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
