#include "PXSuperPixel.h"

#include <QTest>

#include <cmath>

namespace {

PXYCbCrPixel pixel(int luminance, int cb, int cr)
{
    return PXYCbCrPixel{std::uint8_t(cr), std::uint8_t(cb), std::uint8_t(luminance), 255};
}

} // namespace

class TestPXSuperPixel : public QObject
{
    Q_OBJECT

private slots:
    void construction();
    void accumulation_data();
    void accumulation();
    void resetRecordStaysEmpty();
    void distance_data();
    void distance();
    void closerThanIsStrict_data();
    void closerThanIsStrict();
    void colourDistances();
#ifdef PX_X86_64
    void broadcastsMatchFields();
#endif
};

void TestPXSuperPixel::construction()
{
    const PXSuperPixel fromValues(10, 20, 30, 4, -5);
    QCOMPARE(fromValues.color(), PXYCbCr(10, 20, 30));
    QCOMPARE(fromValues.xCenter(), 4);
    QCOMPARE(fromValues.yCenter(), -5);
    QCOMPARE(fromValues.pixelCount(), 1);

    const PXSuperPixel fromPixel(pixel(200, 100, 50), QPoint(7, 8));
    QCOMPARE(fromPixel.color(), PXYCbCr(200, 100, 50));
    QCOMPARE(fromPixel.averageYCbCr(), PXYCbCr(200, 100, 50));
    QCOMPARE(fromPixel.xCenter(), 7);
    QCOMPARE(fromPixel.yCenter(), 8);
    QCOMPARE(fromPixel.pixelCount(), 1);

    const PXSuperPixel empty;
    QCOMPARE(empty.pixelCount(), 0);
    QCOMPARE(empty.color(), PXYCbCr());
}

void TestPXSuperPixel::accumulation_data()
{
    QTest::addColumn<PXSuperPixel>("record");
    QTest::addColumn<PXYCbCr>("color");
    QTest::addColumn<QPoint>("centre");
    QTest::addColumn<int>("count");

    PXSuperPixel three;
    three.addPixel(pixel(10, 11, 12), 7, -7);
    three.addPixel(pixel(0, 0, 0), 0, 0);
    three.addPixel(pixel(0, 0, 0), 0, 0);
    QTest::newRow("sums over three, rounded and truncated toward zero")
        << three << PXYCbCr(3, 4, 4) << QPoint(2, -2) << 3;

    // A seeded record already counts one pixel, so its mean is biased toward its seed.
    PXSuperPixel biased(0, 0, 0, 0, 0);
    biased.addPixel(pixel(100, 50, 9), 10, 20);
    QTest::newRow("counted start biases toward zero")
        << biased << PXYCbCr(50, 25, 5) << QPoint(5, 10) << 2;

    PXSuperPixel single;
    single.addPixel(pixel(100, 50, 9), 10, 20);
    QTest::newRow("one pixel is left as it is")
        << single << PXYCbCr(100, 50, 9) << QPoint(10, 20) << 1;
}

void TestPXSuperPixel::accumulation()
{
    QFETCH(PXSuperPixel, record);
    QFETCH(PXYCbCr, color);
    QFETCH(QPoint, centre);
    QFETCH(int, count);

    record.normalize();
    QCOMPARE(record.color(), color);
    QCOMPARE(QPoint(record.xCenter(), record.yCenter()), centre);
    QCOMPARE(record.pixelCount(), count);
}

void TestPXSuperPixel::resetRecordStaysEmpty()
{
    PXSuperPixel record(5, 6, 7, 10, 20);
    record.reset();
    record.normalize();
    QCOMPARE(record.color(), PXYCbCr());
    QCOMPARE(record.xCenter(), 0);
    QCOMPARE(record.yCenter(), 0);
    QCOMPARE(record.pixelCount(), 0);
}

void TestPXSuperPixel::distance_data()
{
    QTest::addColumn<int>("luminance");
    QTest::addColumn<QPoint>("position");
    QTest::addColumn<float>("gridStep");
    QTest::addColumn<float>("expected");

    // The record: colour (100, 128, 128) at (10, 20).
    QTest::newRow("centre, same colour") << 100 << QPoint(10, 20) << 7.0f << 0.0f;
    QTest::newRow("one step away") << 100 << QPoint(17, 20) << 7.0f << 1.0f;
    QTest::newRow("30 levels of luminance") << 130 << QPoint(10, 20) << 7.0f << 1.0f;
    QTest::newRow("diagonal, root in double then float")
        << 100 << QPoint(11, 21) << 3.0f << float(std::sqrt(2.0)) / 3.0f;
    QTest::newRow("both terms") << 110 << QPoint(13, 24) << 10.0f << 0.5f + 100.0f / 900.0f;
}

void TestPXSuperPixel::distance()
{
    QFETCH(int, luminance);
    QFETCH(QPoint, position);
    QFETCH(float, gridStep);
    QFETCH(float, expected);

    const PXSuperPixel record(100, 128, 128, 10, 20);
    QCOMPARE(record.distance(position.x(), position.y(), pixel(luminance, 128, 128), gridStep),
        expected);
}

void TestPXSuperPixel::closerThanIsStrict_data()
{
    QTest::addColumn<QPoint>("position");
    QTest::addColumn<bool>("closer");

    // The record sits at (10, 20); the square has half-width 5.
    QTest::newRow("inside") << QPoint(14, 16) << true;
    QTest::newRow("x offset equals d") << QPoint(15, 20) << false;
    QTest::newRow("y offset equals d") << QPoint(10, 25) << false;
    QTest::newRow("negative offsets") << QPoint(6, 16) << true;
    QTest::newRow("corner of the square is not a circle") << QPoint(14, 24) << true;
}

void TestPXSuperPixel::closerThanIsStrict()
{
    QFETCH(QPoint, position);
    QFETCH(bool, closer);

    const PXSuperPixel record(0, 0, 0, 10, 20);
    QCOMPARE(record.isCloserThan(5.0f, position.x(), position.y()), closer);
    QCOMPARE(record.isXCloserThan(5.0f, position.x()) && record.isYCloserThan(5.0f, position.y()),
        closer);
}

void TestPXSuperPixel::colourDistances()
{
    const PXSuperPixel dark(0, 0, 0, 0, 0);
    const PXSuperPixel light(255, 255, 255, 0, 0);
    QCOMPARE(dark.colorDistanceQuadrat(light), 195075);
    QCOMPARE(light.colorDistanceQuadrat(pixel(250, 255, 253)), 25 + 4);
    QCOMPARE(PXSuperPixel(10, 50, 20, 0, 0).absColorDistance(PXSuperPixel(20, 40, 20, 0, 0)),
        PXYCbCr(10, 10, 0));
    QCOMPARE(dark.averageRgb(), dark.color().rgb());
}

#ifdef PX_X86_64
void TestPXSuperPixel::broadcastsMatchFields()
{
    const PXSuperPixel record(1, 2, 3, -4, 5);
    float lanes[4];
    _mm_storeu_ps(lanes, record.xCenterX4());
    QCOMPARE(lanes[3], -4.0f);
    _mm_storeu_ps(lanes, record.YCenterX4());
    QCOMPARE(lanes[0], 5.0f);
    _mm_storeu_ps(lanes, record.crX4());
    QCOMPARE(lanes[2], 3.0f);
}
#endif

QTEST_GUILESS_MAIN(TestPXSuperPixel)
#include "tst_pxsuperpixel.moc"
