#include "PXEdgeDetectorSobelColor.h"
#include "PXImage.h"

#include <QFileInfo>
#include <QPainter>
#include <QRandomGenerator>
#include <QtTest>

namespace {

constexpr QRgb Black = 0xFF000000u;

// Y in the red byte, as the working image stores it.
QRgb ycbcr(int y, int cb, int cr)
{
    return qRgba(y, cb, cr, 255);
}

QImage filled(int width, int height, QRgb colour)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(colour);
    return image;
}

QImage noise(int width, int height, quint32 seed)
{
    QRandomGenerator random(seed);
    QImage image(width, height, QImage::Format_ARGB32);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, ycbcr(random.bounded(256), random.bounded(256), random.bounded(256)));
    return image;
}

// Runs a detector on a working image whose YCbCr twin is exactly @p image.
QImage detect(const QImage& image)
{
    PXImage working(image, image, QFileInfo());
    PXEdgeDetectorSobelColor detector;
    detector.setup(&working);
    detector.start();
    detector.wait();
    return detector.sobel();
}

} // namespace

class TestEdgeDetectorSobelColor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void strengths_data();
    void strengths();
    void statistics_data();
    void statistics();
    void onlyInnerPixelsAreComputed_data();
    void onlyInnerPixelsAreComputed();
    void moreCoresThanRows();
};

void TestEdgeDetectorSobelColor::strengths_data()
{
    QTest::addColumn<QImage>("image");
    QTest::addColumn<QPoint>("position");
    QTest::addColumn<int>("strength");

    // One bright pixel at (4, 4): the direct neighbours see d / 8, the
    // diagonal ones sqrt(2) * d / 16, rounded half away from zero (d = 4
    // and d = 20 give 0.5 and 2.5).
    for (const int d : {4, 20, 255}) {
        QImage image = filled(9, 9, ycbcr(0, 0, 0));
        image.setPixel(4, 4, ycbcr(d, 0, 0));
        const QByteArray name = QByteArray::number(d);
        QTest::newRow(name + " centre") << image << QPoint(4, 4) << 0;
        QTest::newRow(name + " left") << image << QPoint(3, 4) << int(std::floor(d / 8.0 + 0.5));
        QTest::newRow(name + " diagonal") << image << QPoint(5, 5)
                                          << int(std::floor(std::sqrt(2.0) * d / 16 + 0.5));
    }

    // Columns 0..3 dark, 4.. bright in Y and Cr: gx = 4 (dY + dCr),
    // gy = 2 (dY + dCr), so sqrt(20) * 240 / 16 = 67.08 on both sides.
    QImage step = filled(10, 8, ycbcr(10, 50, 20));
    QPainter(&step).fillRect(4, 0, 6, 8, QColor::fromRgba(ycbcr(110, 50, 160)));
    QTest::newRow("step, left side") << step << QPoint(3, 2) << 67;
    QTest::newRow("step, right side") << step << QPoint(4, 5) << 67;
    QTest::newRow("step, flat") << step << QPoint(6, 2) << 0;

    // An L-shaped corner where all four differences are 255 in every channel.
    QImage corner = filled(6, 6, ycbcr(0, 0, 0));
    QPainter(&corner).fillRect(3, 0, 3, 6, Qt::white);
    QPainter(&corner).fillRect(2, 3, 1, 3, Qt::white);
    QTest::newRow("saturated") << corner << QPoint(2, 2) << 255;
}

void TestEdgeDetectorSobelColor::strengths()
{
    QFETCH(QImage, image);
    QFETCH(QPoint, position);
    QFETCH(int, strength);
    QCOMPARE(detect(image).pixel(position), Black | strength << 16 | strength << 8 | strength);
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
    QTest::newRow("one below the median") << histogram({{0, 4}, {3, 4}, {10, 2}}) << 5 << 2.0 << 3.0;
    QTest::newRow("never reaches half") << histogram({{7, 2}}) << 5 << 254.0 << 7.0;
    QTest::newRow("255 left out") << histogram({{1, 2}, {255, 50}}) << 1 << 0.0 << 1.0;
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

void TestEdgeDetectorSobelColor::onlyInnerPixelsAreComputed_data()
{
    QTest::addColumn<QSize>("size");
    QTest::newRow("12x10") << QSize(12, 10);
    QTest::newRow("3 wide") << QSize(3, 20);
    QTest::newRow("1x1") << QSize(1, 1);
}

// Rows 1 .. h - 3 and columns 1 .. w - 3 carry strengths; every other pixel
// reads opaque black, strength 0.
void TestEdgeDetectorSobelColor::onlyInnerPixelsAreComputed()
{
    QFETCH(QSize, size);
    const QImage image = noise(size.width(), size.height(), 7);
    PXEdgeDetectorSobelColor detector;
    // The detector makes (and releases) a working image of its own here.
    detector.setup(image, QFileInfo());
    detector.start();
    detector.wait();
    const QImage sobel = detector.sobel();
    QCOMPARE(sobel.size(), size);
    int edges = 0;
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const QRgb pixel = sobel.pixel(x, y);
            QCOMPARE(qAlpha(pixel), 255);
            QVERIFY(qRed(pixel) == qGreen(pixel) && qRed(pixel) == qBlue(pixel));
            const bool inner = y >= 1 && y <= size.height() - 3 && x >= 1 && x <= size.width() - 3;
            if (!inner)
                QCOMPARE(pixel, Black);
            edges += qRed(pixel) > 0 ? 1 : 0;
        }
    }
    QCOMPARE(edges > 0, size.width() >= 4 && size.height() >= 4);
}

// More cores than rows must still cover every row, the same way.
void TestEdgeDetectorSobelColor::moreCoresThanRows()
{
    const QImage image = noise(37, 6, 11);
    qputenv("PX_CORE_COUNT", "1");
    const QImage reference = detect(image);
    qputenv("PX_CORE_COUNT", "16");
    QCOMPARE(detect(image), reference);
    qunsetenv("PX_CORE_COUNT");
}

QTEST_MAIN(TestEdgeDetectorSobelColor)
#include "tst_edgedetectorsobelcolor.moc"
