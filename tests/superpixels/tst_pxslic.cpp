#include "PXSlic.h"
#include "SlicTestImages.h"

#include <QSignalSpy>
#include <QTest>

#include <cmath>

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

// Pixels per label over the rectangle with its right and bottom edges
// exclusive: what the records must count.
QList<int> countLabels(const QImage& labels, const QRect& rect, int recordCount)
{
    QList<int> counts(recordCount, 0);
    for (int y = rect.top(); y < rect.bottom(); ++y)
        for (int x = rect.left(); x < rect.right(); ++x)
            if (labelAt(labels, x, y) > 0)
                ++counts[labelAt(labels, x, y)];
    return counts;
}

void verifyRecordsCountLabels(const PXSlic& slic)
{
    const QList<PXSuperPixel> records = slic.clusterInformations();
    const QList<int> counts = countLabels(slic.superPixelAssignments(), slic.lassoBoundingRect(), records.size());
    for (int i = 1; i < records.size(); ++i)
        QCOMPARE(records[i].pixelCount(), counts[i]);
}

} // namespace

class TestPXSlic : public QObject
{
    Q_OBJECT

private slots:
    void parameters_data()
    {
        QTest::addColumn<QRectF>("lasso");
        QTest::addColumn<QRect>("rect");
        QTest::addColumn<int>("count");
        QTest::addColumn<double>("gridStep");

        QTest::newRow("100 x 100 is raised to 100") << QRectF(0, 0, 100, 100) << QRect(0, 0, 100, 100) << 100 << 10.0;
        QTest::newRow("1000 x 1000")
            << QRectF(0, 0, 1000, 1000) << QRect(0, 0, 1000, 1000) << 622 << std::sqrt(1e6 / 622);
        QTest::newRow("2000 x 2000 is lowered to 1200")
            << QRectF(0, 0, 2000, 2000) << QRect(0, 0, 2000, 2000) << 1200 << std::sqrt(4e6 / 1200);
        // Rounded like QRectF::toRect(); S from the unrounded box.
        QTest::newRow("fractional box")
            << QRectF(10.4, 20.6, 99.5, 50.2) << QRect(10, 21, 100, 50) << 100 << std::sqrt(99.5 * 50.2 / 100);
        QTest::newRow("box beyond the photo is cut to it")
            << QRectF(-50, 1900, 200, 150) << QRect(0, 1900, 150, 100) << 100 << std::sqrt(150.0);
    }
    void parameters()
    {
        QFETCH(QRectF, lasso);
        QFETCH(QRect, rect);
        QFETCH(int, count);
        QFETCH(double, gridStep);

        const QImage plain = uniformYCbCr(2000, 2000, 100);
        PXImage photo(plain, plain, QFileInfo());
        PXSlic slic;
        slic.setup(&photo, rectLasso(lasso));
        QCOMPARE(slic.lassoBoundingRect(), rect);
        QCOMPARE(slic.superPixelCount(), count);
        QCOMPARE(slic.gridStep(), gridStep);
    }

    void gradientMinimum_data()
    {
        QTest::addColumn<QList<QPoint>>("darkPixels");
        QTest::addColumn<QPoint>("position");
        QTest::addColumn<QPoint>("expected");

        QTest::newRow("flat") << QList<QPoint>{} << QPoint(5, 5) << QPoint(4, 4);
        // Row j is compared with the first pixel of row j + 1, not the pixel below.
        QTest::newRow("next row's first pixel") << QList<QPoint>{{0, 5}, {0, 7}} << QPoint(5, 5) << QPoint(4, 5);
        QTest::newRow("pixel below is not seen")
            << QList<QPoint>{{4, 5}, {5, 5}, {6, 5}, {7, 4}, {7, 5}} << QPoint(5, 5) << QPoint(4, 4);
        QTest::newRow("corner reads nothing past the image") << QList<QPoint>{} << QPoint(9, 9) << QPoint(8, 8);
    }
    void gradientMinimum()
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
        const auto* bits = reinterpret_cast<const PXYCbCrPixel*>(image.constBits());
        QCOMPARE(slic.findLocalGradientMinimum(position.x(), position.y(), bits), expected);
    }

    void clippingMarksTheOutside()
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

        QCOMPARE(PXSlic::outsideLabel(), -1); // what Qt::color0 paints
        const QImage labels = slic.superPixelAssignments();
        const QRect rect = slic.lassoBoundingRect();
        for (int y = 0; y < 60; ++y) {
            for (int x = 0; x < 80; ++x) {
                const QRectF around(x - 1, y - 1, 3, 3);
                if (!lasso.intersects(around))
                    QCOMPARE(labelAt(labels, x, y), -1);
                else if (lasso.contains(around) && x < rect.right() && y < rect.bottom())
                    QVERIFY(labelAt(labels, x, y) > 0);
            }
        }
        verifyRecordsCountLabels(slic);
    }

    // 1000 cores: fewer records than cores, one record per update item. The
    // box ends before the photo's right edge, where stripes ending at the
    // image width would let the core count show.
    void moreCoresThanRecords()
    {
        PXImage photo = texturedPhoto(160, 120, 21);
        auto labels = [&photo](const char* cores) {
            qputenv("PX_CORE_COUNT", cores);
            PXSlic slic;
            slic.setup(&photo, ellipseLasso(QRectF(6, 4, 148, 110)));
            slic.run();
            qunsetenv("PX_CORE_COUNT");
            return slic.superPixelAssignments();
        };
        QCOMPARE(labels("1000"), labels("1"));
    }

    void degenerateLassos_data()
    {
        QTest::addColumn<QSize>("photoSize");
        QTest::addColumn<QPainterPath>("lasso");
        QTest::addColumn<int>("records"); // -1: any number

        QTest::newRow("null photo") << QSize() << rectLasso(QRectF(0, 0, 10, 10)) << 1;
        QTest::newRow("partly outside") << QSize(50, 40) << ellipseLasso(QRectF(-20, -10, 60, 40)) << -1;
        QTest::newRow("1 pixel wide") << QSize(50, 40) << rectLasso(QRectF(10, 5, 1, 30)) << 1;
    }
    // Each terminates and emits its four steps; a lasso with no area leaves
    // labels 0 and the dummy record alone.
    void degenerateLassos()
    {
        QFETCH(QSize, photoSize);
        QFETCH(QPainterPath, lasso);
        QFETCH(int, records);

        PXImage photo = photoSize.isEmpty() ? PXImage() : texturedPhoto(photoSize.width(), photoSize.height(), 1);
        PXSlic slic;
        slic.setup(&photo, lasso);
        QSignalSpy progress(&slic, &PXSlic::increaseProgress);
        slic.run();
        QCOMPARE(progress.count(), PXSlic::totalProgressSteps());

        const QImage labels = slic.superPixelAssignments();
        const int count = slic.clusterInformations().size();
        QVERIFY(records < 0 ? count >= 1 : count == records);
        QCOMPARE(labels.size(), labels.isNull() ? QSize(0, 0) : photoSize);
        for (int y = 0; y < labels.height(); ++y)
            for (int x = 0; x < labels.width(); ++x)
                QVERIFY(records == 1 ? labelAt(labels, x, y) == 0 : labelAt(labels, x, y) < count);
    }
};

QTEST_MAIN(TestPXSlic)
#include "tst_pxslic.moc"
