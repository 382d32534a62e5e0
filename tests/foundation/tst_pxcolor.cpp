#include "PXColorConverter.h"
#include "PXYCbCr.h"

#include <QTest>

class TestPXColor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void arithmetic()
    {
        const PXYCbCrPixel pixel { 10, 20, 30, 255 }; // Cr, Cb, Y, A as they lie in memory
        QCOMPARE(PXYCbCr(pixel), PXYCbCr(30, 20, 10));
        PXYCbCr sum(1, 2, 3);
        sum += pixel;
        QCOMPARE(sum, PXYCbCr(31, 22, 13));

        const PXYCbCr black(0, 0, 0);
        QCOMPARE(black.distanceQuadrat(PXYCbCr(255, 255, 255)), 195075);
        QCOMPARE(PXYCbCr(10, 20, 30).absDistance(PXYCbCr(20, 10, 30)), PXYCbCr(10, 10, 0));
        QCOMPARE(PXYCbCr(10, 0, 0).distanceQuadrat(PXYCbCrPixel { 0, 0, 40, 255 }), 900);
        // Sums far apart wrap in 32 bits instead of overflowing.
        QCOMPARE(PXYCbCr(70000, 0, 0).distanceQuadrat(black), int(70000u * 70000u));
    }

    void divisionRoundsHalfAwayFromZero_data()
    {
        QTest::addColumn<uint>("value");
        QTest::addColumn<int>("divisor");
        QTest::addColumn<uint>("expected");
        QTest::newRow("7/2") << 7u << 2 << 4u;
        QTest::newRow("5/2") << 5u << 2 << 3u;
        QTest::newRow("largest sum") << 4294967295u << 2 << 2147483648u;
    }
    void divisionRoundsHalfAwayFromZero()
    {
        QFETCH(uint, value);
        QFETCH(int, divisor);
        QFETCH(uint, expected);
        PXYCbCr colour(value, value, value);
        colour /= divisor;
        QCOMPARE(colour, PXYCbCr(expected, expected, expected));
    }

    void rgb_data()
    {
        QTest::addColumn<PXYCbCr>("colour");
        QTest::addColumn<uint>("expected");
        // Red follows Cb: 100 + 1.402 * 72 -> 200.
        QTest::newRow("red from cb") << PXYCbCr(100, 200, 128) << 0xFFC84BE3u;
        QTest::newRow("clamps high") << PXYCbCr(255, 255, 128) << 0xFFFFD3FFu;
        QTest::newRow("clamps low") << PXYCbCr(0, 0, 255) << 0xFF000000u;
    }
    void rgb()
    {
        QFETCH(PXYCbCr, colour);
        QFETCH(uint, expected);
        QCOMPARE(colour.rgb(), QRgb(expected));
    }

    // The two conversions are near inverses over the whole cube (the blue
    // coefficients 0.564 and 1.773 do not match exactly), and truncating a
    // forward result always gives a byte.
    void ycbcrRoundTrip()
    {
        double worst = 0;
        for (int r = 0; r < 256; r += 15) {
            for (int g = 0; g < 256; g += 15) {
                for (int bl = 0; bl < 256; bl += 15) {
                    double y, cb, cr, r2, g2, b2;
                    PXColorConverter::RGBtoYCbCr(r, g, bl, &y, &cb, &cr);
                    QVERIFY(y >= 0 && y < 255.5 && cb >= 0 && cb < 255.5 && cr >= 0 && cr < 255.5);
                    PXColorConverter::YCbCrToRGB(y, cb, cr, &r2, &g2, &b2);
                    worst = qMax(worst, qMax(qAbs(r2 - r), qMax(qAbs(g2 - g), qAbs(b2 - bl))));
                }
            }
        }
        QVERIFY2(worst < 1.0, qPrintable(QString::number(worst)));
    }

    void vectorAccessorsBroadcastExactly()
    {
    #ifdef PX_X86_64
        const PXYCbCr colour(4294967295u, 16777217u, 3u);
        float lanes[4];
        _mm_storeu_ps(lanes, colour.luminanceX4());
        for (float lane : lanes)
            QCOMPARE(lane, 4294967296.0f); // unsigned, rounded once: no sign error
        _mm_storeu_ps(lanes, colour.cbX4());
        QCOMPARE(lanes[3], float(16777217u));
    #else
        QSKIP("x86-64 only");
    #endif
    }
};

QTEST_GUILESS_MAIN(TestPXColor)
#include "tst_pxcolor.moc"
