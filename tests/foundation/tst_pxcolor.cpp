#include "PXColorConverter.h"
#include "PXYCbCr.h"

#include <QTest>

#include <cmath>

class TestPXColor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fromPixelReadsBytesInPlace();
    void divisionRoundsHalfAwayFromZero_data();
    void divisionRoundsHalfAwayFromZero();
    void distances();
    void rgb_data();
    void rgb();
    void hsv_data();
    void hsv();
    void ycbcrRoundTrip();
    void vectorAccessorsBroadcastExactly();
};

void TestPXColor::fromPixelReadsBytesInPlace()
{
    const PXYCbCrPixel pixel { 10, 20, 30, 255 }; // Cr, Cb, Y, A as they lie in memory
    const PXYCbCr colour(pixel);
    QCOMPARE(colour.luminance(), 30u);
    QCOMPARE(colour.cb(), 20u);
    QCOMPARE(colour.cr(), 10u);

    PXYCbCr sum(1, 2, 3);
    sum += pixel;
    sum += PXYCbCr(100, 100, 100);
    QCOMPARE(sum, PXYCbCr(131, 122, 113));
    sum.clear();
    QCOMPARE(sum, PXYCbCr());
}

void TestPXColor::divisionRoundsHalfAwayFromZero_data()
{
    QTest::addColumn<uint>("value");
    QTest::addColumn<int>("divisor");
    QTest::addColumn<uint>("expected");
    QTest::newRow("7/2") << 7u << 2 << 4u;
    QTest::newRow("5/2") << 5u << 2 << 3u;
    QTest::newRow("1/3") << 1u << 3 << 0u;
    QTest::newRow("2/3") << 2u << 3 << 1u;
    QTest::newRow("largest sum") << 4294967295u << 2 << 2147483648u;
}

void TestPXColor::divisionRoundsHalfAwayFromZero()
{
    QFETCH(uint, value);
    QFETCH(int, divisor);
    QFETCH(uint, expected);
    PXYCbCr colour(value, value, value);
    colour /= divisor;
    QCOMPARE(colour, PXYCbCr(expected, expected, expected));
}

void TestPXColor::distances()
{
    const PXYCbCr black(0, 0, 0);
    const PXYCbCr white(255, 255, 255);
    QCOMPARE(black.distanceQuadrat(white), 195075);
    QCOMPARE(white.distanceQuadrat(black), 195075);
    QCOMPARE(black.absDistance(PXYCbCr(3, 200, 7)), PXYCbCr(3, 200, 7));
    QCOMPARE(PXYCbCr(3, 200, 7).absDistance(black), PXYCbCr(3, 200, 7));
    QCOMPARE(PXYCbCr(10, 20, 30).absDistance(PXYCbCr(20, 10, 30)), PXYCbCr(10, 10, 0));

    const PXYCbCrPixel pixel { 0, 0, 40, 255 };
    QCOMPARE(PXYCbCr(10, 0, 0).distanceQuadrat(pixel), 900);
    // Sums far apart wrap in 32 bits instead of overflowing.
    QCOMPARE(PXYCbCr(70000, 0, 0).distanceQuadrat(black), int(70000u * 70000u));
}

void TestPXColor::rgb_data()
{
    QTest::addColumn<uint>("luminance");
    QTest::addColumn<uint>("cb");
    QTest::addColumn<uint>("cr");
    QTest::addColumn<uint>("expected");
    QTest::newRow("grey") << 128u << 128u << 128u << 0xFF808080u;
    // Red follows Cb: 100 + 1.402 * 72 -> 200.
    QTest::newRow("red from cb") << 100u << 200u << 128u << 0xFFC84BE3u;
    QTest::newRow("clamps high") << 255u << 255u << 128u << 0xFFFFD3FFu;
    QTest::newRow("clamps low") << 0u << 0u << 255u << 0xFF000000u;
}

void TestPXColor::rgb()
{
    QFETCH(uint, luminance);
    QFETCH(uint, cb);
    QFETCH(uint, cr);
    QFETCH(uint, expected);
    QCOMPARE(PXYCbCr(luminance, cb, cr).rgb(), QRgb(expected));
}

void TestPXColor::hsv_data()
{
    QTest::addColumn<double>("r");
    QTest::addColumn<double>("g");
    QTest::addColumn<double>("b");
    QTest::addColumn<double>("expectedH");
    QTest::addColumn<double>("expectedS");
    QTest::addColumn<double>("expectedV");
    QTest::newRow("black") << 0.0 << 0.0 << 0.0 << -1.0 << 0.0 << 0.0;
    QTest::newRow("red") << 255.0 << 0.0 << 0.0 << 0.0 << 1.0 << 255.0;
    QTest::newRow("green") << 0.0 << 255.0 << 0.0 << 120.0 << 1.0 << 255.0;
    QTest::newRow("blue") << 0.0 << 0.0 << 255.0 << 240.0 << 1.0 << 255.0;
    QTest::newRow("negative hue wraps")
        << 255.0 << 0.0 << 128.0 << (-128.0 / 255.0) * 60.0 + 360.0 << 1.0 << 255.0;
}

void TestPXColor::hsv()
{
    QFETCH(double, r);
    QFETCH(double, g);
    QFETCH(double, b);
    QFETCH(double, expectedH);
    QFETCH(double, expectedS);
    QFETCH(double, expectedV);
    double h = 0;
    double s = 0;
    double v = 0;
    PXColorConverter::RGBtoHSV(r, g, b, &h, &s, &v);
    QCOMPARE(h, expectedH);
    QCOMPARE(s, expectedS);
    QCOMPARE(v, expectedV);

    // A grey divides zero by zero; the hue is not guarded.
    PXColorConverter::RGBtoHSV(90, 90, 90, &h, &s, &v);
    QVERIFY(std::isnan(h));
    QCOMPARE(s, 0.0);
}

void TestPXColor::ycbcrRoundTrip()
{
    double y = 0;
    double cb = 0;
    double cr = 0;
    PXColorConverter::RGBtoYCbCr(255, 255, 255, &y, &cb, &cr);
    QVERIFY(qAbs(y - 255.0) < 1e-9);
    QVERIFY(qAbs(cb - 128.0) < 1e-9);
    QVERIFY(qAbs(cr - 128.0) < 1e-9);

    // The two conversions are near inverses over the whole cube (the blue
    // coefficients 0.564 and 1.773 do not match exactly).
    double worst = 0;
    for (int r = 0; r < 256; r += 15) {
        for (int g = 0; g < 256; g += 15) {
            for (int bl = 0; bl < 256; bl += 15) {
                PXColorConverter::RGBtoYCbCr(r, g, bl, &y, &cb, &cr);
                QVERIFY(y >= 0 && y < 255.5 && cb >= 0 && cb < 255.5 && cr >= 0 && cr < 255.5);
                double r2 = 0;
                double g2 = 0;
                double b2 = 0;
                PXColorConverter::YCbCrToRGB(y, cb, cr, &r2, &g2, &b2);
                worst = qMax(worst, qMax(qAbs(r2 - r), qMax(qAbs(g2 - g), qAbs(b2 - bl))));
            }
        }
    }
    QVERIFY2(worst < 1.0, qPrintable(QString::number(worst)));
}

void TestPXColor::vectorAccessorsBroadcastExactly()
{
#ifdef PX_X86_64
    const PXYCbCr colour(4294967295u, 16777217u, 3u);
    float lanes[4];
    _mm_storeu_ps(lanes, colour.luminanceX4());
    for (float lane : lanes)
        QCOMPARE(lane, 4294967296.0f); // unsigned, rounded once: no sign error
    _mm_storeu_ps(lanes, colour.cbX4());
    QCOMPARE(lanes[3], float(16777217u));
    _mm_storeu_ps(lanes, colour.crX4());
    QCOMPARE(lanes[0], 3.0f);
#else
    QSKIP("x86-64 only");
#endif
}

QTEST_GUILESS_MAIN(TestPXColor)
#include "tst_pxcolor.moc"
