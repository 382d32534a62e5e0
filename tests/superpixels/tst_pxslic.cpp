#include "PXCpuFeatures.h"
#include "PXImage.h"
#include "PXSlic.h"
#include "PXSuperPixel.h"
#include "SlicTestImages.h"

#include <QSignalSpy>
#include <QTest>

#include <cmath>
#include <limits>

using namespace SlicTest;

namespace {

QPainterPath rectLasso(const QRectF& rect)
{
    QPainterPath path;
    path.addRect(rect);
    return path;
}

QPainterPath ellipseLasso(const QRectF& rect)
{
    QPainterPath path;
    path.addEllipse(rect);
    return path;
}

struct Result
{
    QImage labels;
    QList<PXSuperPixel> records;
};

Result runSlic(PXImage* photo, const QPainterPath& lasso)
{
    PXSlic slic;
    slic.setup(photo, lasso);
    slic.run();
    return {slic.superPixelAssignments(), slic.clusterInformations()};
}

bool sameRecords(const QList<PXSuperPixel>& a, const QList<PXSuperPixel>& b)
{
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i) {
        if (a[i].color() != b[i].color() || a[i].xCenter() != b[i].xCenter()
            || a[i].yCenter() != b[i].yCenter() || a[i].pixelCount() != b[i].pixelCount())
            return false;
    }
    return true;
}

// The pixel counts the records must hold: labels over the rectangle with its
// right and bottom edges exclusive.
QList<int> countLabels(const QImage& labels, const QRect& rect, int recordCount)
{
    QList<int> counts(recordCount, 0);
    for (int y = rect.top(); y < rect.bottom(); ++y)
        for (int x = rect.left(); x < rect.right(); ++x) {
            const qint32 label = labelAt(labels, x, y);
            if (label > 0 && label < recordCount)
                ++counts[label];
        }
    return counts;
}

} // namespace

class TestPXSlic : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void parameters_data();
    void parameters();
    void seedsLieOnTheGrid();
    void seedColourIsTheGridPoint();
    void gradientMinimum_data();
    void gradientMinimum();
    void roundsLeaveLastRowAndColumn();
    void updateSliceRecomputesOwnedRecords();
    void clippingMarksTheOutside();
    void runGivesConnectedLabelsAndMatchingRecords();
    void sameLabelsForAnyCoreCount_data();
    void sameLabelsForAnyCoreCount();
    void degenerateInputs_data();
    void degenerateInputs();
    void oneRowHighLassoLeavesNothing();

private:
    PXImage m_large;
};

void TestPXSlic::initTestCase()
{
    const QImage plain = uniformYCbCr(2000, 2000, 100);
    m_large = PXImage(plain, plain, QFileInfo());
}

void TestPXSlic::parameters_data()
{
    QTest::addColumn<QRectF>("lasso");
    QTest::addColumn<QRect>("rect");
    QTest::addColumn<int>("count");
    QTest::addColumn<double>("gridStep");

    QTest::newRow("100 x 100 is raised to 100")
        << QRectF(0, 0, 100, 100) << QRect(0, 0, 100, 100) << 100 << 10.0;
    QTest::newRow("300 x 200 stays below 101")
        << QRectF(0, 0, 300, 200) << QRect(0, 0, 300, 200) << 100 << std::sqrt(600.0);
    QTest::newRow("310 x 200") << QRectF(0, 0, 310, 200) << QRect(0, 0, 310, 200) << 101
                               << std::sqrt(62000.0 / 101);
    QTest::newRow("1000 x 1000") << QRectF(0, 0, 1000, 1000) << QRect(0, 0, 1000, 1000) << 622
                                 << std::sqrt(1000000.0 / 622);
    QTest::newRow("2000 x 2000 is lowered to 1200")
        << QRectF(0, 0, 2000, 2000) << QRect(0, 0, 2000, 2000) << 1200 << std::sqrt(4000000.0 / 1200);
    // Rounded like QRectF::toRect(); S uses the unrounded box.
    QTest::newRow("fractional box") << QRectF(10.4, 20.6, 99.5, 50.2) << QRect(10, 21, 100, 50)
                                    << 100 << std::sqrt(99.5 * 50.2 / 100);
    QTest::newRow("box reaching beyond the photo is cut to it")
        << QRectF(-50, 1900, 200, 150) << QRect(0, 1900, 150, 100) << 100 << std::sqrt(150.0);
}

void TestPXSlic::parameters()
{
    QFETCH(QRectF, lasso);
    QFETCH(QRect, rect);
    QFETCH(int, count);
    QFETCH(double, gridStep);

    PXSlic slic;
    slic.setup(&m_large, rectLasso(lasso));
    QCOMPARE(slic.lassoBoundingRect(), rect);
    QCOMPARE(slic.countSuperPixels(), count);
    QCOMPARE(slic.superPixelCount(), count);
    QCOMPARE(slic.gridStep(), gridStep);
    QCOMPARE(slic.iterations(), 10);

    slic.setupParameters(0);
    QCOMPARE(slic.superPixelCount(), count);
    slic.setupParameters(25);
    QCOMPARE(slic.superPixelCount(), 25);
    QCOMPARE(slic.gridStep(), std::sqrt(lasso.intersected(QRectF(0, 0, 2000, 2000)).width()
                                  * lasso.intersected(QRectF(0, 0, 2000, 2000)).height() / 25));
}

// S = 10 on a 100 x 100 box: grid points 10, 20, ..., 90 (94 = trunc(99 - 5)
// ends the grid). On a uniform photo every gradient is 0 and the first
// candidate, one up and one left, wins.
void TestPXSlic::seedsLieOnTheGrid()
{
    PXImage photo = photoFromYCbCr(uniformYCbCr(100, 100, 100));
    PXSlic slic;
    slic.setup(&photo, rectLasso(QRectF(0, 0, 100, 100)));
    slic.initialize();

    const QList<PXSuperPixel> records = slic.clusterInformations();
    QCOMPARE(records.size(), 1 + 81);
    QCOMPARE(records[0].pixelCount(), 1);
    QCOMPARE(records[0].color(), PXYCbCr(0, 0, 0));
    for (int i = 1; i < records.size(); ++i) {
        const int row = (i - 1) / 9;
        const int column = (i - 1) % 9;
        QCOMPARE(QPoint(records[i].xCenter(), records[i].yCenter()),
            QPoint(10 * (column + 1) - 1, 10 * (row + 1) - 1));
        QCOMPARE(records[i].color(), PXYCbCr(100, 128, 128));
        QCOMPARE(records[i].pixelCount(), 1);
    }
    const QImage labels = slic.superPixelAssignments();
    QCOMPARE(labels.size(), QSize(100, 100));
    QCOMPARE(labels.format(), QImage::Format_ARGB32);
    QCOMPARE(labels, labelImage(QSize(100, 100), 0));
}

void TestPXSlic::seedColourIsTheGridPoint()
{
    QImage image = uniformYCbCr(100, 100, 100);
    image.setPixel(10, 10, ycbcr(200, 20, 30));
    PXImage photo = photoFromYCbCr(image);
    PXSlic slic;
    slic.setup(&photo, rectLasso(QRectF(0, 0, 100, 100)));
    slic.initialize();

    const PXSuperPixel* first = slic.clusterInformations(1);
    QVERIFY(first);
    QCOMPARE(QPoint(first->xCenter(), first->yCenter()), QPoint(9, 9));
    QCOMPARE(first->color(), PXYCbCr(200, 20, 30));
    QVERIFY(!slic.clusterInformations(82));
    QVERIFY(!slic.clusterInformations(-1));
}

void TestPXSlic::gradientMinimum_data()
{
    QTest::addColumn<QList<QPoint>>("darkPixels");
    QTest::addColumn<QPoint>("position");
    QTest::addColumn<QPoint>("expected");

    QTest::newRow("flat: the first of columns outer, rows inner")
        << QList<QPoint>{} << QPoint(5, 5) << QPoint(4, 4);
    // Row j compares with the first pixel of row j + 1, not the pixel below:
    // only row 5 (whose next row starts bright) has no step.
    QTest::newRow("next row's first pixel decides")
        << QList<QPoint>{QPoint(0, 5), QPoint(0, 7)} << QPoint(5, 5) << QPoint(4, 5);
    QTest::newRow("step to the right")
        << QList<QPoint>{QPoint(5, 4)} << QPoint(5, 5) << QPoint(4, 5);
    QTest::newRow("a dark pixel below is not seen")
        << QList<QPoint>{QPoint(4, 5), QPoint(5, 5), QPoint(6, 5), QPoint(4, 6), QPoint(5, 6), QPoint(6, 6),
               QPoint(7, 4), QPoint(7, 5), QPoint(7, 6)}
        << QPoint(5, 5) << QPoint(4, 4);
    QTest::newRow("bottom right corner reads nothing past the image")
        << QList<QPoint>{} << QPoint(9, 9) << QPoint(8, 8);
}

void TestPXSlic::gradientMinimum()
{
    QFETCH(QList<QPoint>, darkPixels);
    QFETCH(QPoint, position);
    QFETCH(QPoint, expected);

    QImage image = uniformYCbCr(10, 10, 100);
    for (const QPoint& point : darkPixels)
        image.setPixel(point, ycbcr(0));
    PXImage photo = photoFromYCbCr(image);
    PXSlic slic;
    slic.setup(&photo, rectLasso(QRectF(0, 0, 10, 10)));
    const QImage ycbcrImage = photo.imageYCbCr();
    QCOMPARE(slic.findLocalGradientMinimum(position.x(), position.y(),
                 reinterpret_cast<const PXYCbCrPixel*>(ycbcrImage.constBits())),
        expected);
}

void TestPXSlic::roundsLeaveLastRowAndColumn()
{
    PXImage photo = texturedPhoto(100, 100, 3);
    PXSlic slic;
    slic.setup(&photo, rectLasso(QRectF(0, 0, 100, 100)));
    slic.initialize();
    slic.adjustSuperPixels();

    const QImage labels = slic.superPixelAssignments();
    const int count = slic.clusterInformations().size();
    for (int y = 0; y < 100; ++y) {
        for (int x = 0; x < 100; ++x) {
            const qint32 label = labelAt(labels, x, y);
            if (x == 99 || y == 99)
                QCOMPARE(label, 0);
            else
                QVERIFY2(label > 0 && label < count, qPrintable(QStringLiteral("(%1, %2)").arg(x).arg(y)));
        }
    }
    // The records describe what the last update saw.
    const QList<int> counts = countLabels(labels, QRect(0, 0, 100, 100), count);
    for (int i = 1; i < count; ++i)
        QCOMPARE(slic.clusterInformations(i)->pixelCount(), counts[i]);
}

// Labels 1 and 2 over columns [0, 5) and rows [0, 3); column 5 and row 3 lie
// on the exclusive edges. Record 3 belongs to another item.
void TestPXSlic::updateSliceRecomputesOwnedRecords()
{
    QImage image(6, 4, QImage::Format_ARGB32);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            image.setPixel(x, y, ycbcr(10 * x + y, 100, 50));
    const QList<QList<qint32>> rows = {
        {1, 1, 2, 2, 3, 1},
        {1, 1, 2, 2, 3, 1},
        {1, 2, 2, 3, 3, 1},
        {2, 2, 2, 2, 2, 2},
    };
    QImage labels = labelImage(image.size(), 0);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            setLabel(labels, x, y, rows[y][x]);

    Records records;
    records.append(PXSuperPixel(200, 200, 200, 50, 50));
    records.append(PXSuperPixel(0, 0, 0, 0, 0));
    records.append(PXSuperPixel(1, 2, 3, 4, 5));
    PXSlic::updateSuperPixelSlice(PXSuperPixelSlice{image, labels, 0, 3, 0, 5, records.list(), 1, 2});

    const PXSuperPixel& first = *records.list()[1];
    QCOMPARE(first.pixelCount(), 5);
    QCOMPARE(first.color(), PXYCbCr(5, 100, 50)); // 24 / 5 rounded
    QCOMPARE(QPoint(first.xCenter(), first.yCenter()), QPoint(0, 0));
    const PXSuperPixel& second = *records.list()[2];
    QCOMPARE(second.pixelCount(), 6);
    QCOMPARE(second.color(), PXYCbCr(23, 100, 50)); // 136 / 6 rounded
    QCOMPARE(QPoint(second.xCenter(), second.yCenter()), QPoint(2, 1));
    const PXSuperPixel& third = *records.list()[3];
    QCOMPARE(third.color(), PXYCbCr(1, 2, 3));
    QCOMPARE(third.pixelCount(), 1);

    // Index ranges beyond the list are cut to it.
    PXSlic::updateSuperPixelSlice(PXSuperPixelSlice{image, labels, 0, 3, 0, 5, records.list(), 3, 99});
    QCOMPARE(third.pixelCount(), 4);
}

void TestPXSlic::clippingMarksTheOutside()
{
    PXImage photo = texturedPhoto(80, 60, 5);
    QPainterPath lasso(QPointF(10, 5));
    lasso.lineTo(70, 20);
    lasso.lineTo(20, 55);
    lasso.closeSubpath();

    PXSlic slic;
    slic.setup(&photo, lasso);
    slic.initialize();
    slic.adjustSuperPixels();
    slic.clipLabelsToLasso();

    QCOMPARE(PXSlic::outsideLabel(), qint32(-1));
    QImage painted = labelImage(QSize(1, 1), 0);
    {
        QPainter painter(&painted);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(painted.rect(), QColor(Qt::color0));
    }
    QCOMPARE(labelAt(painted, 0, 0), PXSlic::outsideLabel());

    const QImage labels = slic.superPixelAssignments();
    const QRect rect = slic.lassoBoundingRect();
    for (int y = 0; y < 60; ++y) {
        for (int x = 0; x < 80; ++x) {
            const QPointF centre(x + 0.5, y + 0.5);
            const QRectF around(centre - QPointF(1.5, 1.5), QSizeF(3, 3));
            const qint32 label = labelAt(labels, x, y);
            if (!lasso.intersects(around))
                QCOMPARE(label, PXSlic::outsideLabel());
            else if (lasso.contains(around) && x < rect.right() && y < rect.bottom())
                QVERIFY(label > 0);
        }
    }
    // The records no longer count clipped pixels.
    const int count = slic.clusterInformations().size();
    const QList<int> counts = countLabels(labels, rect, count);
    for (int i = 1; i < count; ++i)
        QCOMPARE(slic.clusterInformations(i)->pixelCount(), counts[i]);
}

void TestPXSlic::runGivesConnectedLabelsAndMatchingRecords()
{
    PXImage photo = texturedPhoto(200, 150, 9);
    PXSlic slic;
    slic.setup(&photo, ellipseLasso(QRectF(20, 10, 160, 130)));
    QSignalSpy progress(&slic, &PXSlic::increaseProgress);
    slic.run();
    QCOMPARE(progress.count(), PXSlic::totalProgressSteps());
    QCOMPARE(PXSlic::totalProgressSteps(), 4);

    const QImage labels = slic.superPixelAssignments();
    const QList<PXSuperPixel> records = slic.clusterInformations();
    const QRect rect = slic.lassoBoundingRect();
    QCOMPARE(rect, QRect(20, 10, 160, 130));

    // The outside of the lasso is flooded like any label: beyond the rectangle
    // it is one superpixel.
    const qint32 outside = labelAt(labels, 0, 0);
    QVERIFY(outside > 0);
    QList<int> pieces(records.size(), 0);
    for (int y = 0; y < labels.height(); ++y) {
        for (int x = 0; x < labels.width(); ++x) {
            const qint32 label = labelAt(labels, x, y);
            QVERIFY(label < records.size());
            if (!rect.contains(x, y))
                QCOMPARE(label, outside);
        }
    }
    // Every label that starts in the rectangle is 4-connected.
    QList<bool> seen(labels.width() * labels.height(), false);
    auto visit = [&](const QPoint& p) {
        const bool was = seen[p.y() * labels.width() + p.x()];
        seen[p.y() * labels.width() + p.x()] = true;
        return !was;
    };
    for (int y = rect.top(); y < rect.bottom(); ++y) {
        for (int x = rect.left(); x < rect.right(); ++x) {
            const qint32 label = labelAt(labels, x, y);
            if (label <= 0 || label == outside || !visit(QPoint(x, y)))
                continue;
            QVERIFY2(++pieces[label] == 1, "a superpixel falls apart");
            QList<QPoint> queue{QPoint(x, y)};
            for (int i = 0; i < queue.size(); ++i) {
                for (const QPoint& step : {QPoint(-1, 0), QPoint(1, 0), QPoint(0, -1), QPoint(0, 1)}) {
                    const QPoint q = queue[i] + step;
                    if (labels.rect().contains(q) && labelAt(labels, q.x(), q.y()) == label && visit(q))
                        queue.append(q);
                }
            }
        }
    }
    const QList<int> counts = countLabels(labels, rect, records.size());
    for (int i = 1; i < records.size(); ++i)
        QCOMPARE(records[i].pixelCount(), counts[i]);
    QCOMPARE(records[0].pixelCount(), 0);
}

void TestPXSlic::sameLabelsForAnyCoreCount_data()
{
    QTest::addColumn<QByteArray>("features");
    QTest::newRow("scalar") << QByteArray("none");
    QTest::newRow("sse") << QByteArray("sse");
    QTest::newRow("avx") << QByteArray("avx");
}

// The box ends a few pixels before the photo's right edge, where stripes
// ending at the image width would have let the core count show.
void TestPXSlic::sameLabelsForAnyCoreCount()
{
    QFETCH(QByteArray, features);
    if (features == "sse" && !pxCpuHasFeature(CPU_FEATURE_SSE))
        QSKIP("no SSE4.1");
    if (features == "avx" && !pxCpuHasFeature(CPU_FEATURE_AVX))
        QSKIP("no AVX2");

    PXImage photo = texturedPhoto(160, 120, 21);
    const QPainterPath lasso = ellipseLasso(QRectF(6, 4, 148, 110));
    const ScopedEnv cpu("PX_CPU_FEATURES", features);

    Result reference;
    {
        const ScopedEnv cores("PX_CORE_COUNT", "1");
        reference = runSlic(&photo, lasso);
    }
    QVERIFY(reference.records.size() > 50);
    // More cores than records leaves one record per update item.
    for (const QByteArray& count : {QByteArray("2"), QByteArray("5"), QByteArray("1000")}) {
        const ScopedEnv cores("PX_CORE_COUNT", count);
        const Result result = runSlic(&photo, lasso);
        QVERIFY2(result.labels == reference.labels, count.constData());
        QVERIFY2(sameRecords(result.records, reference.records), count.constData());
    }

    // The vector kernels' lane orders shape the labels: they must really have run.
    if (features != "none") {
        const ScopedEnv scalar("PX_CPU_FEATURES", "none");
        QVERIFY(runSlic(&photo, lasso).labels != reference.labels);
    }
}

void TestPXSlic::degenerateInputs_data()
{
    QTest::addColumn<QSize>("photoSize");
    QTest::addColumn<QPainterPath>("lasso");

    const qreal nan = std::numeric_limits<qreal>::quiet_NaN();
    QPainterPath line(QPointF(10, 5));
    line.lineTo(10, 30);

    QTest::newRow("null photo") << QSize() << rectLasso(QRectF(0, 0, 10, 10));
    QTest::newRow("1 x 1 photo") << QSize(1, 1) << rectLasso(QRectF(0, 0, 1, 1));
    QTest::newRow("empty lasso") << QSize(50, 40) << QPainterPath();
    QTest::newRow("NaN box") << QSize(50, 40) << rectLasso(QRectF(nan, nan, 10, 10));
    QTest::newRow("lasso outside the photo") << QSize(50, 40) << rectLasso(QRectF(200, 200, 50, 50));
    QTest::newRow("lasso partly outside") << QSize(50, 40) << ellipseLasso(QRectF(-20, -10, 60, 40));
    QTest::newRow("5 x 5 lasso") << QSize(50, 40) << rectLasso(QRectF(10, 10, 5, 5));
    QTest::newRow("1 pixel wide box") << QSize(50, 40) << rectLasso(QRectF(10, 5, 1, 30));
    QTest::newRow("line lasso") << QSize(50, 40) << line;
    QTest::newRow("2 pixels high at the bottom edge") << QSize(50, 40) << rectLasso(QRectF(0, 38, 50, 2));
}

void TestPXSlic::degenerateInputs()
{
    QFETCH(QSize, photoSize);
    QFETCH(QPainterPath, lasso);

    PXImage photo = photoSize.isEmpty() ? PXImage() : texturedPhoto(photoSize.width(), photoSize.height(), 1);
    PXSlic slic;
    slic.setup(&photo, lasso);
    QSignalSpy progress(&slic, &PXSlic::increaseProgress);
    slic.run();
    QCOMPARE(progress.count(), 4);

    const QImage labels = slic.superPixelAssignments();
    const int count = slic.clusterInformations().size();
    QVERIFY(count >= 1);
    if (photoSize.isEmpty()) {
        QVERIFY(labels.isNull());
        return;
    }
    QCOMPARE(labels.size(), photoSize);
    for (int y = 0; y < labels.height(); ++y)
        for (int x = 0; x < labels.width(); ++x)
            QVERIFY(labelAt(labels, x, y) < count);
}

void TestPXSlic::oneRowHighLassoLeavesNothing()
{
    PXImage photo = texturedPhoto(50, 40, 2);
    PXSlic slic;
    slic.setup(&photo, rectLasso(QRectF(5, 10, 40, 1)));
    slic.run();
    QCOMPARE(slic.lassoBoundingRect().height(), 1);
    QCOMPARE(slic.superPixelAssignments(), labelImage(QSize(50, 40), 0));
    QCOMPARE(slic.clusterInformations().size(), 1);
}

QTEST_MAIN(TestPXSlic)
#include "tst_pxslic.moc"
