#include "PXIntelligentScissorsWeightCalculator.h"
#include "PXIntelligentScissorsWireCalculator.h"

#include <QImage>
#include <QPainter>
#include <QtTest>

using WC = PXIntelligentScissorsWeightCalculator;
using Trace = QList<QPoint>;

namespace {

// A search over a cost map given directly as grey bytes (no reduction, no
// inversion), so every pixel costs what the map says.
struct Search
{
    Search(const QByteArray& costs, unsigned int width, unsigned int height,
        WC::PixelReductionMethod reduction = static_cast<WC::PixelReductionMethod>(1))
        : pixels(costs)
        , weights(width, height, WC::Settings(reduction, WC::NoEdgeDetection, WC::NoPostProcessing, false))
        , wire(&weights)
    {
        weights.setImage(reinterpret_cast<const unsigned char*>(pixels.constData()), WC::Gray8, width);
    }
    ~Search() { wire.stoppingThread(); }

    // Runs the search from (x, y) to its end.
    void run(unsigned int x, unsigned int y, unsigned int radius = 1u << 20)
    {
        wire.startThread(x, y, radius);
        QVERIFY(wire.wait(30000));
    }

    QByteArray pixels;
    WC weights;
    PXIntelligentScissorsWireCalculator wire;
};

QByteArray rows(std::initializer_list<std::initializer_list<int>> values)
{
    QByteArray bytes;
    for (const auto& row : values)
        for (int value : row)
            bytes.append(static_cast<char>(value));
    return bytes;
}

Trace points(std::initializer_list<std::pair<int, int>> list)
{
    Trace trace;
    for (const auto& point : list)
        trace.append(QPoint(point.first, point.second));
    return trace;
}

} // namespace

class TestPXIntelligentScissorsWireCalculator : public QObject
{
    Q_OBJECT

private slots:
    void cheapestPaths_data()
    {
        QTest::addColumn<QByteArray>("costs");
        QTest::addColumn<unsigned int>("width");
        QTest::addColumn<unsigned int>("height");
        QTest::addColumn<QPoint>("seed");
        QTest::addColumn<QPoint>("target");
        QTest::addColumn<Trace>("trace");

        // The detour over the cheap top row beats the dear straight line;
        // diagonal steps onto cost 1 cost truncate(1.41) = 1.
        QTest::newRow("detour") << rows({{1, 1, 1, 1, 1, 1, 1}, {1, 255, 255, 255, 255, 255, 1},
                                       {0, 255, 255, 255, 255, 255, 1}})
                                << 7u << 3u << QPoint(0, 2) << QPoint(6, 2)
                                << points({{6, 2}, {6, 1}, {5, 0}, {4, 0}, {3, 0}, {2, 0}, {1, 0}, {0, 1}, {0, 2}});
        // Two diagonal steps onto 255 cost 2 x 360, less than any path with a straight step.
        QTest::newRow("diagonal") << QByteArray(9, char(255)) << 3u << 3u << QPoint(0, 0) << QPoint(2, 2)
                                  << points({{2, 2}, {1, 1}, {0, 0}});
        // All costs 0: the heap's tie order decides. From the corner seed its
        // neighbours (1,0), (0,1), (1,1) are queued in that order; (1,0) goes
        // first, then (1,1) rises to the root and reaches (2,2) first.
        QTest::newRow("ties") << QByteArray(9, char(0)) << 3u << 3u << QPoint(0, 0) << QPoint(2, 2)
                              << points({{2, 2}, {1, 1}, {0, 0}});
        // Equal totals never replace a known path: (2,0) keeps (1,0) as its
        // predecessor although (1,1) offers the same total.
        QTest::newRow("equal totals keep the first") << rows({{0, 5, 5}, {5, 5, 5}}) << 3u << 2u << QPoint(0, 0)
                                                     << QPoint(2, 0) << points({{2, 0}, {1, 0}, {0, 0}});
        QTest::newRow("seed on the right border") << QByteArray(8, char(3)) << 4u << 2u << QPoint(3, 1)
                                                  << QPoint(1, 1) << points({{1, 1}, {2, 1}, {3, 1}});
        QTest::newRow("outside the image") << QByteArray(4, char(3)) << 2u << 2u << QPoint(0, 0) << QPoint(2, 0)
                                           << Trace();
    }
    void cheapestPaths()
    {
        QFETCH(QByteArray, costs);
        QFETCH(unsigned int, width);
        QFETCH(unsigned int, height);
        QFETCH(QPoint, seed);
        QFETCH(QPoint, target);
        QFETCH(Trace, trace);
        Search search(costs, width, height);
        search.run(seed.x(), seed.y());
        QCOMPARE(search.wire.calculateTrace(target.x(), target.y()), trace);
        QCOMPARE(search.wire.isReachable(target.x(), target.y()), !trace.isEmpty());
        QCOMPARE(search.wire.progress(), int(width * height));
    }

    // Pixels of blocks the weight calculator was not asked for are walls.
    void unrequestedBlocksAreWalls()
    {
        Search search(QByteArray(4100, char(1)), 4100, 1);
        search.run(0, 0, 0);
        QVERIFY(search.wire.isReachable(4095, 0));
        QVERIFY(!search.wire.isReachable(4096, 0));
        QVERIFY(search.wire.calculateTrace(4099, 0).isEmpty());
        QCOMPARE(search.wire.calculateTrace(4095, 0).size(), 4096);
    }

    // With scale 2 the trace runs through reduced pixel centres 2i + 1.
    void scaleTwoGivesOddCoordinates()
    {
        Search search(QByteArray(64, char(10)), 8, 8, WC::Mean2x2);
        QCOMPARE(search.wire.width(), 4u);
        search.run(0, 0);
        const Trace trace = search.wire.calculateTrace(7, 6);
        QCOMPARE(trace.first(), QPoint(7, 7));
        QCOMPARE(trace.last(), QPoint(1, 1));
        for (const QPoint& point : trace)
            QVERIFY(point.x() % 2 == 1 && point.y() % 2 == 1);
    }

    void restartForgetsTheOldSearch()
    {
        Search search(QByteArray(25, char(4)), 5, 5);
        search.run(0, 0);
        search.run(4, 4);
        QCOMPARE(search.wire.calculateTrace(4, 4), points({{4, 4}}));
        QCOMPARE(search.wire.calculateTrace(0, 0).last(), QPoint(4, 4));
        // A seed outside the image only forgets.
        search.wire.startThread(50, 0, 10);
        QVERIFY(!search.wire.isExecuting());
        QVERIFY(!search.wire.isReachable(4, 4));
    }

    void drawTrace()
    {
        // Row 1 is free, everything else dear: the wire runs along row 1.
        QByteArray costs(100, char(255));
        costs.replace(10, 10, QByteArray(10, char(0)));
        Search search(costs, 10, 10);
        search.run(1, 1);
        QImage canvas(10, 10, QImage::Format_ARGB32);
        canvas.fill(Qt::white);
        QPainter painter(&canvas);
        painter.setPen(Qt::black);
        search.wire.drawTrace(1, 1, painter); // a one-point wire draws nothing
        search.wire.drawTrace(8, 1, painter);
        painter.end();
        QImage expected(10, 10, QImage::Format_ARGB32);
        expected.fill(Qt::white);
        QPainter(&expected).fillRect(1, 1, 8, 1, Qt::black);
        QCOMPARE(canvas, expected);
    }
};

QTEST_MAIN(TestPXIntelligentScissorsWireCalculator)
#include "tst_pxintelligentscissorswirecalculator.moc"
