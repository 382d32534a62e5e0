#include "PXEdgeDetectorSobelColor.h"
#include "PXImage.h"

#include <QFileInfo>
#include <QRandomGenerator>
#include <QtTest>

namespace {

constexpr QRgb Black = 0xFF000000u;

// A working image whose YCbCr twin is exactly @p ycbcr (Y in the red byte).
PXImage* workingImage(const QImage& ycbcr)
{
    return new PXImage(ycbcr, ycbcr, QFileInfo());
}

QRgb ycbcr(int y, int cb, int cr)
{
    return qRgba(y, cb, cr, 255);
}

int strengthAt(const QImage& sobel, int x, int y)
{
    return qRed(sobel.pixel(x, y));
}

QImage flatImage(int width, int height, QRgb colour)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(colour);
    return image;
}

struct Result
{
    QImage sobel;
    double mean = 0.0;
    double average = 0.0;
};

Result detect(const QImage& ycbcrImage)
{
    PXImage* image = workingImage(ycbcrImage);
    PXEdgeDetectorSobelColor detector;
    detector.setup(image);
    detector.start();
    detector.wait();
    Result result{detector.sobel(), detector.mean(), detector.average()};
    delete image;
    return result;
}

} // namespace

class TestEdgeDetectorSobelColor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { qunsetenv("PX_CORE_COUNT"); }

    void flatImageHasNoEdges_data();
    void flatImageHasNoEdges();
    void singlePixelStrengths_data();
    void singlePixelStrengths();
    void verticalStepSumsChannels();
    void saturatedStrengthLeftOutOfStatistics();
    void borderPixelsStayBlack();
    void tinyImages_data();
    void tinyImages();
    void statistics_data();
    void statistics();
    void independentOfCoreCount();
    void ownedWorkingImage();
};

void TestEdgeDetectorSobelColor::flatImageHasNoEdges_data()
{
    QTest::addColumn<QSize>("size");
    QTest::newRow("10x10") << QSize(10, 10);
    QTest::newRow("wide 64x5") << QSize(64, 5);
    QTest::newRow("tall 5x40") << QSize(5, 40);
}

void TestEdgeDetectorSobelColor::flatImageHasNoEdges()
{
    QFETCH(QSize, size);
    const Result result = detect(flatImage(size.width(), size.height(), ycbcr(90, 120, 200)));
    QCOMPARE(result.sobel.size(), size);
    QCOMPARE(result.sobel.format(), QImage::Format_ARGB32);
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x)
            QCOMPARE(result.sobel.pixel(x, y), Black);
    QCOMPARE(result.mean, 0.0);
    QCOMPARE(result.average, 0.0);
}

// One bright pixel of luminance d: the four direct neighbours see d / 8, the
// diagonal ones sqrt(2) * d / 16, rounded half away from zero.
void TestEdgeDetectorSobelColor::singlePixelStrengths_data()
{
    QTest::addColumn<int>("d");
    QTest::addColumn<int>("direct");
    QTest::addColumn<int>("diagonal");
    QTest::newRow("0.5 rounds up") << 4 << 1 << 0;
    QTest::newRow("1.5") << 12 << 2 << 1;
    QTest::newRow("2.5 rounds away from zero") << 20 << 3 << 2;
    QTest::newRow("255") << 255 << 32 << 23;
}

void TestEdgeDetectorSobelColor::singlePixelStrengths()
{
    QFETCH(int, d);
    QFETCH(int, direct);
    QFETCH(int, diagonal);
    QImage image = flatImage(9, 9, ycbcr(0, 0, 0));
    image.setPixel(4, 4, ycbcr(d, 0, 0));
    const QImage sobel = detect(image).sobel;
    QCOMPARE(strengthAt(sobel, 4, 4), 0);
    QCOMPARE(strengthAt(sobel, 3, 4), direct);
    QCOMPARE(strengthAt(sobel, 5, 4), direct);
    QCOMPARE(strengthAt(sobel, 4, 3), direct);
    QCOMPARE(strengthAt(sobel, 4, 5), direct);
    QCOMPARE(strengthAt(sobel, 3, 3), diagonal);
    QCOMPARE(strengthAt(sobel, 5, 5), diagonal);
    QCOMPARE(strengthAt(sobel, 2, 4), 0);
    QCOMPARE(strengthAt(sobel, 4, 6), 0);
    QCOMPARE(sobel.pixel(3, 4), Black | direct << 16 | direct << 8 | direct);
}

// Columns 0..3 dark, 4.. bright. The columns on both sides of the step see
// gx = 4 (dY + dCr) and gy = 2 (dY + dCr): sqrt(20) * 240 / 16 = 67.08.
void TestEdgeDetectorSobelColor::verticalStepSumsChannels()
{
    QImage image = flatImage(10, 8, ycbcr(10, 50, 20));
    for (int y = 0; y < 8; ++y)
        for (int x = 4; x < 10; ++x)
            image.setPixel(x, y, ycbcr(110, 50, 160));
    const Result result = detect(image);
    for (int y = 1; y <= 5; ++y) {
        for (int x = 1; x <= 7; ++x) {
            const int expected = (x == 3 || x == 4) ? 67 : 0;
            QCOMPARE(strengthAt(result.sobel, x, y), expected);
        }
    }
    // 35 inner pixels, 10 of them 67: half = 24, so 0 is the last bin below
    // half and the mean is 670 / 35 truncated.
    QCOMPARE(result.mean, 0.0);
    QCOMPARE(result.average, 19.0);
}

// An L-shaped corner where all four differences are 255 in every channel.
void TestEdgeDetectorSobelColor::saturatedStrengthLeftOutOfStatistics()
{
    QImage image = flatImage(6, 6, ycbcr(0, 0, 0));
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 6; ++x)
            if (x >= 3 || (y >= 3 && x >= 2))
                image.setPixel(x, y, ycbcr(255, 255, 255));
    PXImage* working = workingImage(image);
    PXEdgeDetectorSobelColor detector;
    detector.setup(working);
    detector.start();
    detector.wait();
    QCOMPARE(strengthAt(detector.sobel(), 2, 2), 255);

    QImage sobel = PXEdgeDetectorSobelColor::createSobelImage(image.size());
    QList<PXEdgeDetectorSobelSlice*> slices = detector.createSobelSlices(sobel, image);
    for (PXEdgeDetectorSobelSlice* slice : slices)
        PXEdgeDetectorSobelColor::createSobelSlice(slice);
    const QList<int> histogram = detector.accumulateValues(slices);
    QVERIFY(histogram.at(255) >= 1);
    int total = 0;
    for (int count : histogram)
        total += count;
    QCOMPARE(total, 3 * 3);

    // Only the unsaturated pixels reach the statistics.
    int sum = 0;
    int counted = 0;
    for (int y = 1; y <= 3; ++y) {
        for (int x = 1; x <= 3; ++x) {
            const int strength = strengthAt(detector.sobel(), x, y);
            if (strength < 255) {
                sum += strength;
                ++counted;
            }
        }
    }
    QCOMPARE(counted, 9 - histogram.at(255));
    QCOMPARE(detector.average(), double(sum / counted));
    delete working;
}

void TestEdgeDetectorSobelColor::borderPixelsStayBlack()
{
    QRandomGenerator random(7);
    QImage image(12, 10, QImage::Format_ARGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, ycbcr(random.bounded(256), random.bounded(256), random.bounded(256)));
    const QImage sobel = detect(image).sobel;
    const int width = image.width();
    const int height = image.height();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool computed = y >= 1 && y <= height - 3 && x >= 1 && x <= width - 3;
            const QRgb pixel = sobel.pixel(x, y);
            QCOMPARE(qAlpha(pixel), 255);
            QCOMPARE(qRed(pixel), qGreen(pixel));
            QCOMPARE(qRed(pixel), qBlue(pixel));
            if (!computed)
                QCOMPARE(pixel, Black);
        }
    }
    // A noisy image has edges nearly everywhere inside.
    QVERIFY(strengthAt(sobel, 5, 5) > 0);
}

void TestEdgeDetectorSobelColor::tinyImages_data()
{
    QTest::addColumn<QSize>("size");
    QTest::newRow("1x1") << QSize(1, 1);
    QTest::newRow("3 wide") << QSize(3, 20);
    QTest::newRow("3 high") << QSize(20, 3);
    QTest::newRow("4x4") << QSize(4, 4);
}

// Narrow or low photos compute nothing inside but still give an image.
void TestEdgeDetectorSobelColor::tinyImages()
{
    QFETCH(QSize, size);
    QImage image(size, QImage::Format_ARGB32);
    QRandomGenerator random(3);
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x)
            image.setPixel(x, y, ycbcr(random.bounded(256), 0, 0));
    const Result result = detect(image);
    QCOMPARE(result.sobel.size(), size);
    if (size.width() < 4 || size.height() < 4) {
        for (int y = 0; y < size.height(); ++y)
            for (int x = 0; x < size.width(); ++x)
                QCOMPARE(result.sobel.pixel(x, y), Black);
    }

    PXEdgeDetectorSobelColor idle;
    idle.start();
    idle.wait();
    QVERIFY(idle.sobel().isNull());
    idle.setup(QImage(), QFileInfo());
    idle.start();
    idle.wait();
    QVERIFY(idle.sobel().isNull());
}

void TestEdgeDetectorSobelColor::statistics_data()
{
    QTest::addColumn<QList<int>>("counts");
    QTest::addColumn<int>("half");
    QTest::addColumn<double>("mean");
    QTest::addColumn<double>("average");

    auto histogram = [](std::initializer_list<std::pair<int, int>> bins) {
        QList<int> counts(256, 0);
        for (const auto& bin : bins)
            counts[bin.first] = bin.second;
        return counts;
    };
    QTest::newRow("first bin reaches half") << histogram({{0, 10}, {9, 3}}) << 5 << 0.0 << 2.0;
    QTest::newRow("one below median") << histogram({{0, 4}, {3, 4}, {10, 2}}) << 5 << 2.0 << 3.0;
    QTest::newRow("never reaches half") << histogram({{7, 2}}) << 5 << 254.0 << 7.0;
    QTest::newRow("empty") << histogram({}) << 5 << 254.0 << 0.0;
    QTest::newRow("255 ignored") << histogram({{1, 2}, {255, 50}}) << 1 << 0.0 << 1.0;
}

void TestEdgeDetectorSobelColor::statistics()
{
    QFETCH(QList<int>, counts);
    QFETCH(int, half);
    QFETCH(double, mean);
    QFETCH(double, average);
    PXEdgeDetectorSobelColor detector;
    detector.calculateMedianAndMean(counts, half);
    QCOMPARE(detector.mean(), mean);
    QCOMPARE(detector.average(), average);
}

// More cores than rows must still cover every row, the same way.
void TestEdgeDetectorSobelColor::independentOfCoreCount()
{
    QRandomGenerator random(11);
    QImage image(23, 6, QImage::Format_ARGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, ycbcr(random.bounded(256), random.bounded(256), random.bounded(256)));
    qputenv("PX_CORE_COUNT", "1");
    const Result reference = detect(image);
    for (const char* cores : {"2", "5", "16"}) {
        qputenv("PX_CORE_COUNT", cores);
        const Result result = detect(image);
        QCOMPARE(result.sobel, reference.sobel);
        QCOMPARE(result.mean, reference.mean);
        QCOMPARE(result.average, reference.average);
    }
}

void TestEdgeDetectorSobelColor::ownedWorkingImage()
{
    // The detector releases the image it made; the leak checker watches.
    PXEdgeDetectorSobelColor detector;
    detector.setup(flatImage(8, 8, qRgb(10, 20, 30)), QFileInfo());
    detector.setup(flatImage(9, 9, qRgb(10, 20, 30)), QFileInfo());
    detector.start();
    detector.wait();
    QCOMPARE(detector.sobel().size(), QSize(9, 9));
    PXImage external(flatImage(5, 5, qRgb(1, 2, 3)), QFileInfo());
    detector.setup(&external);
    detector.start();
    detector.wait();
    QCOMPARE(detector.sobel().size(), QSize(5, 5));
}

QTEST_MAIN(TestEdgeDetectorSobelColor)
#include "tst_edgedetectorsobelcolor.moc"
