#include "PXIntelligentScissorsWeightCalculator.h"

#include <QtTest>

#include <cstdlib>

using WC = PXIntelligentScissorsWeightCalculator;
using Bytes = QList<int>;

namespace {

const WC::PixelReductionMethod Copy = static_cast<WC::PixelReductionMethod>(1);

WC::Settings settings(WC::PixelReductionMethod reduction, WC::EdgeDetectionMethod edges = WC::NoEdgeDetection,
    WC::PostProcessingtMethod post = WC::NoPostProcessing, bool invert = false)
{
    return WC::Settings(reduction, edges, post, invert);
}

// The whole cost map, row by row, or an empty list if a pixel is missing.
Bytes costMap(const QByteArray& pixels, unsigned int width, unsigned int height, WC::DataFormat format,
    unsigned int stride, const WC::Settings& settings)
{
    WC calculator(width, height, settings);
    calculator.setImage(reinterpret_cast<const unsigned char*>(pixels.constData()), format, stride);
    calculator.calculateRegion(0, 0, 1u << 30);
    Bytes costs;
    for (unsigned int y = 0; y < calculator.heightReduced(); ++y) {
        for (unsigned int x = 0; x < calculator.widthReduced(); ++x) {
            unsigned char cost;
            if (!calculator.get(x, y, &cost))
                return Bytes();
            costs.append(cost);
        }
    }
    return costs;
}

QByteArray grey(std::initializer_list<int> values)
{
    QByteArray bytes;
    for (int value : values)
        bytes.append(static_cast<char>(value));
    return bytes;
}

QByteArray xrgb(std::initializer_list<unsigned int> words)
{
    QByteArray bytes;
    for (unsigned int word : words)
        bytes.append(reinterpret_cast<const char*>(&word), 4);
    return bytes;
}

} // namespace

class TestPXIntelligentScissorsWeightCalculator : public QObject
{
    Q_OBJECT

private slots:
    void costMaps_data()
    {
        QTest::addColumn<QByteArray>("pixels");
        QTest::addColumn<unsigned int>("width");
        QTest::addColumn<unsigned int>("height");
        QTest::addColumn<int>("format");
        QTest::addColumn<WC::Settings>("settings");
        QTest::addColumn<Bytes>("costs");

        const QByteArray square3 = grey({0, 10, 20, 30, 40, 50, 60, 70, 80});
        QTest::newRow("2x2 mean, odd edges") << square3 << 3u << 3u << int(WC::Gray8) << settings(WC::Mean2x2)
                                             << Bytes {20, 35, 65, 80};
        QTest::newRow("2x2 mean, inverted") << square3 << 3u << 3u << int(WC::Gray8)
                                            << settings(WC::Mean2x2, WC::NoEdgeDetection, WC::NoPostProcessing, true)
                                            << Bytes {235, 220, 190, 175};
        QTest::newRow("3x3 mean, partial squares")
            << grey({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}) << 4u << 4u << int(WC::Gray8)
            << settings(WC::Mean3x3) << Bytes {5, 7, 13, 15};
        QTest::newRow("grey of 0xAARRGGBB, alpha ignored")
            << xrgb({0xFF102030u, 0x00FFFFFEu, 0x12000001u}) << 3u << 1u << int(WC::Xrgb32) << settings(Copy)
            << Bytes {32, 254, 0};
        QTest::newRow("sigmoid") << grey({0, 128, 255}) << 3u << 1u << int(WC::Gray8)
                                 << settings(Copy, WC::NoEdgeDetection, WC::Sigmoid) << Bytes {0, 127, 254};

        // Sobel: missing neighbours contribute 0, so a flat image is cheaper
        // on its border (161 in corners, 166 on edges) than inside (255).
        QByteArray flat(25, char(100));
        QTest::newRow("sobel, flat") << flat << 5u << 5u << int(WC::Gray8) << settings(Copy, WC::Sobel3x3)
                                     << Bytes {161, 166, 166, 166, 161, 166, 255, 255, 255, 166, 166, 255, 255, 255,
                                            166, 166, 255, 255, 255, 166, 161, 166, 166, 166, 161};
        // The strongest window (0s with right column and bottom row at 255):
        // the formula gives m = 241, cost 14.
        QByteArray corner;
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 5; ++x)
                corner.append(x >= 3 || y >= 3 ? char(255) : char(0));
        const Bytes cornerCosts = costMap(corner, 5, 5, WC::Gray8, 5, settings(Copy, WC::Sobel3x3));
        Bytes expected = cornerCosts;
        expected[2 * 5 + 2] = 14;
        QTest::newRow("sobel, strongest window") << corner << 5u << 5u << int(WC::Gray8)
                                                 << settings(Copy, WC::Sobel3x3) << expected;
        QTest::newRow("sobel, one pixel wide") << grey({0, 255, 0}) << 1u << 3u << int(WC::Gray8)
                                               << settings(Copy, WC::Sobel3x3) << Bytes {141, 255, 141};
    }
    void costMaps()
    {
        QFETCH(QByteArray, pixels);
        QFETCH(unsigned int, width);
        QFETCH(unsigned int, height);
        QFETCH(int, format);
        QFETCH(WC::Settings, settings);
        QFETCH(Bytes, costs);
        const unsigned int bytesPerPixel = format == WC::Xrgb32 ? 4 : 1;
        QCOMPARE(costMap(pixels, width, height, static_cast<WC::DataFormat>(format), width * bytesPerPixel, settings),
            costs);
    }

    void geometry_data()
    {
        QTest::addColumn<unsigned int>("width");
        QTest::addColumn<unsigned int>("height");
        QTest::addColumn<int>("reduction");
        QTest::addColumn<unsigned int>("widthReduced");
        QTest::addColumn<unsigned int>("blockColumns");
        QTest::addColumn<unsigned int>("blockRows");
        QTest::addColumn<unsigned int>("lastBlockWidth");
        QTest::addColumn<unsigned int>("bottomHeight");
        QTest::newRow("10x10") << 10u << 10u << int(WC::Mean2x2) << 5u << 1u << 1u << 5u << 5u;
        QTest::newRow("9000x8193 unreduced") << 9000u << 8193u << int(Copy) << 9000u << 3u << 3u << 808u << 1u;
        QTest::newRow("11x4 3x3") << 11u << 4u << int(WC::Mean3x3) << 4u << 1u << 1u << 4u << 2u;
    }
    void geometry()
    {
        QFETCH(unsigned int, width);
        QFETCH(unsigned int, height);
        QFETCH(int, reduction);
        QFETCH(unsigned int, widthReduced);
        QFETCH(unsigned int, blockColumns);
        QFETCH(unsigned int, blockRows);
        QFETCH(unsigned int, lastBlockWidth);
        QFETCH(unsigned int, bottomHeight);
        WC calculator(width, height, settings(static_cast<WC::PixelReductionMethod>(reduction)));
        QCOMPARE(calculator.widthReduced(), widthReduced);
        QCOMPARE(calculator.blockColumns(), blockColumns);
        QCOMPARE(calculator.blockRows(), blockRows);
        QCOMPARE(calculator.lastBlockWidth(), lastBlockWidth);
        if (blockRows > 0)
            QCOMPARE(calculator.blockHeight(blockRows - 1), bottomHeight);
        QCOMPARE(calculator.totalProgress(), int(blockColumns * blockRows));
    }

    // A height that is a multiple of 4096 leaves the bottom block row empty:
    // its pixels read as the dearest cost and nothing is read from the image.
    void emptyBottomRowReadsDearest()
    {
        WC calculator(8192, 8192, settings(WC::Mean2x2));
        const unsigned char pixel = 0;
        calculator.setImage(&pixel, WC::Gray8, 8192);
        calculator.calculateRegion(0, 0, 0);
        unsigned char cost = 0;
        QVERIFY(calculator.get(4095, 4095, &cost));
        QCOMPARE(cost, static_cast<unsigned char>(255));
    }

    void blockDistance_data()
    {
        QTest::addColumn<double>("x");
        QTest::addColumn<double>("y");
        QTest::addColumn<unsigned int>("bx");
        QTest::addColumn<unsigned int>("by");
        QTest::addColumn<unsigned int>("score");
        QTest::newRow("inside") << 100.0 << 100.0 << 0u << 0u << 0u;
        QTest::newRow("diagonal") << 100.0 << 100.0 << 1u << 1u << 5651u; // 3996 sqrt(2)
    }
    void blockDistance()
    {
        QFETCH(double, x);
        QFETCH(double, y);
        QFETCH(unsigned int, bx);
        QFETCH(unsigned int, by);
        QFETCH(unsigned int, score);
        const PXScissors::_dblpoint point {x / 4096.0, y / 4096.0};
        QCOMPARE(PXScissors::calculateScoreCB(bx, by, 0, &point), score);
    }

    void onlyRequestedBlocksAreComputed()
    {
        const unsigned int width = 17000;
        QByteArray pixels(int(width * 4), char(50));
        WC calculator(width, 4, settings(WC::Mean2x2));
        calculator.setImage(reinterpret_cast<const unsigned char*>(pixels.constData()), WC::Gray8, width);
        unsigned char cost;
        QVERIFY(!calculator.get(10, 0, &cost));
        calculator.calculateRegion(8300, 1, 0);
        QVERIFY(calculator.get(8300, 1, &cost));
        QCOMPARE(cost, static_cast<unsigned char>(50));
        QVERIFY(!calculator.get(10, 0, &cost));
        QList<QPoint> calculated, pending, notRequested;
        calculator.blocksCalculated(calculated, pending, notRequested);
        QCOMPARE(calculated, QList<QPoint> {QPoint(16384, 0)});
        QVERIFY(pending.isEmpty());
        QCOMPARE(notRequested, (QList<QPoint> {QPoint(0, 0), QPoint(8192, 0)}));

        calculator.stop();
        QCOMPARE(calculator.blockState(2, 0), WC::NotRequested);
    }

    // The scale and grid stay; the margin and the kernels follow the settings.
    void changeSettingsKeepsTheGrid()
    {
        QByteArray pixels(100, char(80));
        WC calculator(10, 10, settings(WC::Mean2x2));
        calculator.setImage(reinterpret_cast<const unsigned char*>(pixels.constData()), WC::Gray8, 10);
        calculator.changeSettings(settings(WC::Mean3x3, WC::Sobel3x3, WC::NoPostProcessing, false));
        QCOMPARE(calculator.widthReduced(), 5u);
        QCOMPARE(calculator.margin(), 1u);
        calculator.calculateRegion(0, 0, 100);
        unsigned char cost;
        QVERIFY(calculator.get(2, 2, &cost));
        QCOMPARE(cost, static_cast<unsigned char>(255)); // Sobel of a flat image
    }
};

QTEST_GUILESS_MAIN(TestPXIntelligentScissorsWeightCalculator)
#include "tst_pxintelligentscissorsweightcalculator.moc"
