#include "PXIntelligentScissors.h"
#include "PXIntelligentScissorsWireCalculator.h"

#include <QPainter>
#include <QSignalSpy>
#include <QtTest>

#include <cmath>
#include <limits>

namespace {

// ThreadSanitizer slows a search about tenfold.
#if defined(__SANITIZE_THREAD__)
constexpr int searchLimitMs = 300000;
#else
constexpr int searchLimitMs = 30000;
#endif

// Waits for the search of @p scissors to settle everything it can reach.
bool finishSearch(PXIntelligentScissors& scissors)
{
    return scissors.wireCalculator() && scissors.wireCalculator()->wait(searchLimitMs);
}

} // namespace

class TestPXIntelligentScissors : public QObject
{
    Q_OBJECT

private slots:
    void padding_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QSize>("padded");
        QTest::newRow("3000x2000") << QSize(3000, 2000) << QSize(8999, 5999);
        QTest::newRow("1x1") << QSize(1, 1) << QSize(2, 2);
    }
    void padding()
    {
        QFETCH(QSize, size);
        QFETCH(QSize, padded);
        QImage photo(size, QImage::Format_Grayscale8);
        photo.fill(200);
        PXIntelligentScissors scissors;
        QCOMPARE(scissors.windowSize(), 4096u);
        scissors.setup(photo);
        const QImage image = scissors.image();
        QCOMPARE(image.size(), padded);
        QCOMPARE(image.format(), QImage::Format_RGB32);
        QCOMPARE(image.pixel(size.width() - 1, size.height() - 1), qRgb(200, 200, 200));
        // The padding is black, the dearest cost.
        if (padded != size)
            QCOMPARE(image.pixel(padded.width() - 1, padded.height() - 1) & 0xFFFFFFu, 0u);
    }

    void seedRounding_data()
    {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        QTest::addColumn<QPointF>("point");
        QTest::addColumn<QList<QPoint>>("seeds");
        QTest::newRow("half away from zero") << QPointF(-3.6, 10.5) << QList<QPoint> {QPoint(0, 11)};
        QTest::newRow("inside") << QPointF(2.5, 2.4) << QList<QPoint> {QPoint(3, 2)};
        QTest::newRow("far outside") << QPointF(1e12, -1e12) << QList<QPoint> {QPoint(28, 0)};
        QTest::newRow("NaN") << QPointF(nan, 3) << QList<QPoint> {};
    }
    void seedRounding()
    {
        QFETCH(QPointF, point);
        QFETCH(QList<QPoint>, seeds);
        QImage photo(10, 10, QImage::Format_RGB32);
        photo.fill(Qt::white);
        PXIntelligentScissors scissors;
        scissors.setup(photo); // padded to 29 x 29
        scissors.initializeSeed(point);
        QCOMPARE(scissors.seeds(), seeds);
        QVERIFY(finishSearch(scissors));
        if (!seeds.isEmpty())
            QVERIFY(scissors.containsWireToPoint(seeds.first()));
    }

    // The wire follows a bright line; its points are 2 x 2 block centres.
    void wireFollowsBrightLines()
    {
        QImage photo(40, 30, QImage::Format_RGB32);
        photo.fill(Qt::black);
        QPainter(&photo).fillRect(0, 10, 40, 2, Qt::white);
        QPainter(&photo).fillRect(30, 10, 2, 20, Qt::white);
        PXIntelligentScissors scissors;
        scissors.setup(photo);
        QVERIFY(!scissors.containsWireToPoint(QPointF(30, 25)));
        scissors.initializeSeed(QPointF(2, 10));
        QVERIFY(finishSearch(scissors));
        QVERIFY(scissors.containsWireToPoint(QPointF(30, 25)));
        const QList<QPoint> wire = scissors.bestWire(QPointF(30.9, 25.2));
        QCOMPARE(scissors.wire(), wire);
        QCOMPARE(wire.first(), QPoint(31, 25));
        QCOMPARE(wire.last(), QPoint(3, 11));
        for (const QPoint& point : wire)
            QVERIFY(point.y() == 11 || point.x() == 31);
    }

    void progress()
    {
        QImage photo(1000, 1000, QImage::Format_RGB32);
        photo.fill(Qt::gray);
        PXIntelligentScissors scissors;
        scissors.setup(photo);
        QSignalSpy spy(&scissors, &PXIntelligentScissors::progessChanged);
        scissors.initializeSeed(QPointF(500, 500));
        // The flag is set before the thread starts, so this always stops a running search.
        scissors.stopRunning();
        QCOMPARE(spy.size(), 1);
        QCOMPARE(spy.last().at(0).toDouble(), 1500.0 * 1500.0);

        spy.clear();
        scissors.initializeSeed(QPointF(20, 20));
        QVERIFY(finishSearch(scissors));
        QTRY_VERIFY(spy.size() >= 99);
        for (const QList<QVariant>& report : std::as_const(spy))
            QVERIFY(report.at(0).toDouble() > 0.0 && report.at(0).toDouble() <= 1.0);
    }

    void badInputIsHarmless()
    {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        PXIntelligentScissors scissors;
        scissors.initializeSeed(QPointF(3, 3));
        QVERIFY(scissors.bestWire(QPointF(3, 3)).isEmpty());
        scissors.setup(QImage());
        QVERIFY(!scissors.weightCalculator());
        scissors.initializeSeed(QPointF(0, 0));
        QVERIFY(scissors.seeds().isEmpty());

        QImage tiny(1, 1, QImage::Format_RGB32);
        tiny.fill(Qt::white);
        scissors.setup(tiny);
        scissors.initializeSeed(QPointF(0, 0));
        QVERIFY(finishSearch(scissors));
        QCOMPARE(scissors.bestWire(QPointF(-4, -1)), QList<QPoint> {QPoint(1, 1)});
        QVERIFY(scissors.bestWire(QPointF(nan, 0)).isEmpty());
        QVERIFY(scissors.containsWireToPoint(QPointF(-100, 1e30)));
    }

    // A one-bit photo is converted like any other.
    void monoPhoto()
    {
        QImage photo(33, 17, QImage::Format_Mono);
        photo.fill(1);
        PXIntelligentScissors scissors;
        scissors.setup(photo);
        QCOMPARE(scissors.image().format(), QImage::Format_RGB32);
        scissors.initializeSeed(QPointF(16, 8));
        QVERIFY(finishSearch(scissors));
        QVERIFY(!scissors.bestWire(QPointF(0, 0)).isEmpty());
    }
};

QTEST_MAIN(TestPXIntelligentScissors)
#include "tst_pxintelligentscissors.moc"
