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
    void expandTo_data();
    void expandTo();
    void center_data();
    void center();
    void containsAndIntersects();
    void ordering();
    void compositesDispatchVirtually();
    void intRangeLoopBounds();
    void splitCoversRange_data();
    void splitCoversRange();
    void imageRanges();
};

void TestPXRanges::expandTo_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("last");
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("expectedFirst");
    QTest::addColumn<int>("expectedLast");
    QTest::newRow("fresh (0,0) is empty") << 0 << 0 << 5 << 5 << 5;
    QTest::newRow("fresh (0,0), negative value") << 0 << 0 << -3 << -3 << -3;
    QTest::newRow("above") << 2 << 4 << 9 << 2 << 9;
    QTest::newRow("below") << 2 << 4 << 1 << 1 << 4;
    QTest::newRow("inside") << 2 << 4 << 3 << 2 << 4;
    QTest::newRow("(0,1) is a real range") << 0 << 1 << 5 << 0 << 5;
}

void TestPXRanges::expandTo()
{
    QFETCH(int, first);
    QFETCH(int, last);
    QFETCH(int, value);
    QFETCH(int, expectedFirst);
    QFETCH(int, expectedLast);
    PXRange<int> range(first, last);
    range.expandTo(value);
    QCOMPARE(range.first(), expectedFirst);
    QCOMPARE(range.last(), expectedLast);
}

void TestPXRanges::center_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("last");
    QTest::addColumn<int>("expected");
    QTest::newRow("truncates toward zero") << -3 << 0 << -1;
    QTest::newRow("positive half") << 2 << 5 << 3;
    QTest::newRow("single") << 7 << 7 << 7;
}

void TestPXRanges::center()
{
    QFETCH(int, first);
    QFETCH(int, last);
    QFETCH(int, expected);
    QCOMPARE(PXRange<int>(first, last).center(), expected);
}

void TestPXRanges::containsAndIntersects()
{
    const PXRange<int> range(2, 4);
    QVERIFY(range.contains(2));
    QVERIFY(range.contains(4));
    QVERIFY(!range.contains(1));
    QVERIFY(!range.contains(5));
    QVERIFY(!PXRange<int>(4, 2).contains(3));
    QVERIFY(range.contains(PXRange<int>(3, 4)));
    QVERIFY(!range.contains(PXRange<int>(3, 5)));

    QVERIFY(PXRange<int>(0, 10).intersects(PXRange<int>(3, 4)));
    QVERIFY(PXRange<int>(3, 4).intersects(PXRange<int>(0, 10)));
    QVERIFY(!PXRange<int>(0, 2).intersects(PXRange<int>(3, 4)));
    QVERIFY(PXRange<int>(0, 3).intersects(PXRange<int>(3, 4)));
}

void TestPXRanges::ordering()
{
    QVERIFY(PXRange<int>(1, 5) < PXRange<int>(2, 3));
    QVERIFY(PXRange<int>(1, 3) < PXRange<int>(1, 4));
    QVERIFY(!(PXRange<int>(1, 4) < PXRange<int>(1, 4)));
    QVERIFY(PXRange<int>(100, 200) < PXRange<int>(5, 1));
    QVERIFY(!(PXRange<int>(5, 1) < PXRange<int>(100, 200)));
    QVERIFY(!(PXRange<int>(5, 1) < PXRange<int>(6, 2)));
    QVERIFY(PXRange<int>(1, 2) != PXRange<int>(1, 3));
    QVERIFY(PXRange<int>(1, 2) == PXRange<int>(1, 2));
}

void TestPXRanges::compositesDispatchVirtually()
{
    const FirstOnlyRange firstOnly(0, 10);
    QVERIFY(!firstOnly.contains(PXRange<int>(0, 5)));
    QVERIFY(firstOnly.contains(PXRange<int>(0, 0)));
    // contains(r.first) and contains(r.last) fail, r.contains(first) holds.
    QVERIFY(firstOnly.intersects(PXRange<int>(-5, 5)));
    QVERIFY(!firstOnly.intersects(PXRange<int>(3, 4)));

    const NeverValidRange invalid(1, 2);
    QVERIFY(!(invalid < PXRange<int>(3, 4)));
    QVERIFY(PXRange<int>(3, 4) < invalid);
}

void TestPXRanges::intRangeLoopBounds()
{
    QCOMPARE(PXIntRange(3, 7).countElements(), 5);
    QCOMPARE(PXIntRange(3, 7).lastIndexEvenIfUnvalid(), 8);
    QCOMPARE(PXIntRange(7, 3).countElements(), 0);
    QCOMPARE(PXIntRange(7, 3).lastIndexEvenIfUnvalid(), 7);
    QCOMPARE(PXIntRange(0, -1).countElements(), 0);
}

void TestPXRanges::splitCoversRange_data()
{
    QTest::addColumn<int>("cores");
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("last");
    QTest::addColumn<int>("expectedBlocks");
    QTest::newRow("one core") << 1 << 0 << 99 << 1;
    QTest::newRow("two cores") << 2 << 0 << 99 << 2;
    QTest::newRow("five cores, remainder") << 5 << 10 << 21 << 5;
    QTest::newRow("more cores than rows") << 8 << 0 << 2 << 3;
    QTest::newRow("empty range") << 4 << 5 << 4 << 0;
}

void TestPXRanges::splitCoversRange()
{
    QFETCH(int, cores);
    QFETCH(int, first);
    QFETCH(int, last);
    QFETCH(int, expectedBlocks);
    qputenv("PX_CORE_COUNT", QByteArray::number(cores));
    const QList<PXIntRange> blocks = PXIntRange(first, last).splitEvenlyForCpuCores();
    qunsetenv("PX_CORE_COUNT");

    QCOMPARE(blocks.size(), expectedBlocks);
    int next = first;
    int shortest = INT_MAX;
    int longest = 0;
    for (const PXIntRange& block : blocks) {
        QCOMPARE(block.first(), next);
        QVERIFY(block.isValid());
        next = block.lastIndexEvenIfUnvalid();
        shortest = qMin(shortest, block.countElements());
        longest = qMax(longest, block.countElements());
    }
    if (expectedBlocks > 0) {
        QCOMPARE(next, last + 1);
        QVERIFY(longest - shortest <= 1);
    }
}

void TestPXRanges::imageRanges()
{
    const QImage image(7, 3, QImage::Format_ARGB32);
    QCOMPARE(PXIntRange::rowsOfImage(image), PXIntRange(0, 2));
    QCOMPARE(PXIntRange::columnsOfImage(image), PXIntRange(0, 6));
    QCOMPARE(PXIntRange::rowsOfImage(QImage()).countElements(), 0);
}

QTEST_GUILESS_MAIN(TestPXRanges)
#include "tst_pxranges.moc"
