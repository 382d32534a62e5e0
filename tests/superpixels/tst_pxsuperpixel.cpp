#include "PXSuperPixel.h"

#include <QTest>

#include <cmath>

namespace {

PXYCbCrPixel pixel(int luminance, int cb = 128, int cr = 128)
{
    return PXYCbCrPixel{std::uint8_t(cr), std::uint8_t(cb), std::uint8_t(luminance), 255};
}

} // namespace

class TestPXSuperPixel : public QObject
{
    Q_OBJECT

private slots:
    void normalize_data();
    void normalize();
    void distance_data();
    void distance();
};

void TestPXSuperPixel::normalize_data()
{
    QTest::addColumn<PXSuperPixel>("record");
    QTest::addColumn<PXYCbCr>("color");
    QTest::addColumn<QPoint>("centre");

    PXSuperPixel three;
    three.addPixel(pixel(10, 11, 12), 7, -7);
    three.addPixels(PXYCbCr(), 0, 0, 2);
    QTest::newRow("rounded colour, centre truncated toward zero") << three << PXYCbCr(3, 4, 4) << QPoint(2, -2);

    // A seeded record counts one pixel already: its mean leans toward the seed.
    PXSuperPixel seeded(0, 0, 0, 0, 0);
    seeded.addPixel(pixel(100, 50, 9), 10, 20);
    QTest::newRow("seeded record is biased") << seeded << PXYCbCr(50, 25, 5) << QPoint(5, 10);

    PXSuperPixel reset(5, 6, 7, 10, 20);
    reset.reset();
    QTest::newRow("reset record stays empty") << reset << PXYCbCr() << QPoint(0, 0);

    PXSuperPixel single;
    single.addPixel(pixel(100, 50, 9), 10, 20);
    QTest::newRow("one pixel is left as it is") << single << PXYCbCr(100, 50, 9) << QPoint(10, 20);
}

void TestPXSuperPixel::normalize()
{
    QFETCH(PXSuperPixel, record);
    QFETCH(PXYCbCr, color);
    QFETCH(QPoint, centre);

    const int count = record.pixelCount();
    record.normalize();
    QCOMPARE(record.color(), color);
    QCOMPARE(QPoint(record.xCenter(), record.yCenter()), centre);
    QCOMPARE(record.pixelCount(), count);
}

void TestPXSuperPixel::distance_data()
{
    QTest::addColumn<int>("luminance");
    QTest::addColumn<QPoint>("position");
    QTest::addColumn<float>("gridStep");
    QTest::addColumn<float>("expected");

    // The record: luminance 100 at (10, 20).
    QTest::newRow("centre, same colour") << 100 << QPoint(10, 20) << 7.0f << 0.0f;
    QTest::newRow("one grid step") << 100 << QPoint(17, 20) << 7.0f << 1.0f;
    QTest::newRow("30 levels weigh one step") << 130 << QPoint(10, 20) << 7.0f << 1.0f;
    QTest::newRow("root in double, then float")
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
    const float d = record.distance(position.x(), position.y(), pixel(luminance), gridStep);
    QVERIFY2(d == expected, qPrintable(QString::number(d, 'g', 9)));
}

QTEST_GUILESS_MAIN(TestPXSuperPixel)
#include "tst_pxsuperpixel.moc"
