#include "PXCpuFeatures.h"
#include "PXSlic.h"
#include "SlicTestImages.h"

#include <QTest>

using namespace SlicTest;

namespace {

enum Kernel { Scalar, Sse, Avx };

// Runs @p kernel over columns [xStart, xEnd) and all rows but the last of
// @p image, on labels filled with @p initial; null if the processor lacks it.
QImage assign(int kernel, const QImage& image, const Records& records, int gridStep, int xStart, int xEnd,
    qint32 initial = 0)
{
    if ((kernel == Sse && !pxCpuHasFeature(CPU_FEATURE_SSE)) || (kernel == Avx && !pxCpuHasFeature(CPU_FEATURE_AVX)))
        return QImage();
    QImage labels = labelImage(image.size(), initial);
    const PXSlicSlice slice{image, reinterpret_cast<quint32*>(labels.bits()), records.list(), image.width(),
        image.height(), xStart, xEnd, 0, image.height() - 1, gridStep};
    if (kernel == Sse)
        PXSlic::adjustSuperPixelSliceSSE(slice);
    else if (kernel == Avx)
        PXSlic::adjustSuperPixelSliceAVX(slice);
    else
        PXSlic::adjustSuperPixelSlice(slice);
    return labels;
}

QImage assign(int kernel, const QImage& image, const Records& records, int gridStep)
{
    return assign(kernel, image, records, gridStep, 0, image.width());
}

} // namespace

#define ASSIGN_OR_SKIP(labels, call)                                                              \
    const QImage labels = call;                                                                    \
    if (labels.isNull())                                                                           \
        QSKIP("the processor lacks this kernel's instruction set");

class TestPXSlicKernels : public QObject
{
    Q_OBJECT

private slots:
    void handComputedRound_data()
    {
        QTest::addColumn<int>("kernel");
        QTest::newRow("scalar") << int(Scalar);
        QTest::newRow("sse") << int(Sse);
        QTest::newRow("avx") << int(Avx);
    }
    // Dark record at (1, 1), light at (6, 1), Sint 3. Column 3 lies nearer the
    // dark one, but its colour wins it for the light one: dark 2/3 + 50^2/900 =
    // 3.44, light 3/3 + 40^2/900 = 2.78. No window holds a whole block the lanes
    // could reorder, so every kernel gives the same labels.
    void handComputedRound()
    {
        QFETCH(int, kernel);

        QImage image(8, 4, QImage::Format_ARGB32);
        const int luminance[8] = {0, 0, 0, 50, 60, 90, 90, 90};
        for (int i = 0; i < 32; ++i)
            image.setPixel(i % 8, i / 8, ycbcr(luminance[i % 8]));
        Records records;
        records.append(PXSuperPixel(0, 128, 128, 1, 1));
        records.append(PXSuperPixel(90, 128, 128, 6, 1));
        records.append(PXSuperPixel(0, 128, 128, 100, 100)); // empty window: skipped

        ASSIGN_OR_SKIP(labels, assign(kernel, image, records, 3, 0, 8, 7));
        for (int y = 0; y < 3; ++y)
            QCOMPARE(labelRow(labels, y), (QList<qint32>{1, 1, 1, 2, 2, 2, 2, 2}));
        // The bottom row is the exclusive end: it keeps its label.
        QCOMPARE(labelRow(labels, 3), QList<qint32>(8, 7));
    }

    void laneTables_data()
    {
        QTest::addColumn<int>("kernel");
        QTest::addColumn<QList<qint32>>("expected");

        // Spatial: equal colours, records at columns 7 and 3 of a uniform row;
        // record 2 wins where it measures strictly nearer. In a block lane i
        // measures column x0 + B - 1 - i. Column 15 lies outside both windows.
        QTest::newRow("scalar") << int(Scalar) << QList<qint32>{2, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0};
        // Record 1 sits on x0 + 3 of block 4: lane 0 (column 4) measures 0, lane 3 (column 7) 3.
        QTest::newRow("sse") << int(Sse) << QList<qint32>{2, 2, 2, 2, 1, 1, 1, 2, 1, 1, 1, 1, 1, 1, 1, 0};
        QTest::newRow("avx") << int(Avx) << QList<qint32>{1, 1, 1, 2, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 0};
    }
    // The vector kernels' lane orders, which make their labels differ from the
    // scalar ones in a fixed way; golden pins them on photos.
    void laneTables()
    {
        QFETCH(int, kernel);
        QFETCH(QList<qint32>, expected);

        const QImage image = uniformYCbCr(16, 2, 100);
        Records records;
        records.append(PXSuperPixel(100, 128, 128, 7, 0));
        records.append(PXSuperPixel(100, 128, 128, 3, 0));
        ASSIGN_OR_SKIP(labels, assign(kernel, image, records, 8));
        QCOMPARE(labelRow(labels, 0), expected);
    }

    void columnsOutsideWholeBlocksMatchScalar_data()
    {
        QTest::addColumn<int>("kernel");
        QTest::addColumn<int>("xStart");
        QTest::addColumn<int>("xEnd");

        // Stripes in which no window holds a whole block: every column is a head
        // or tail column, evaluated the scalar way and kept inside the stripe.
        QTest::newRow("sse, head to 12, tail from 12") << int(Sse) << 9 << 15;
        QTest::newRow("avx, across a boundary") << int(Avx) << 6 << 13;
    }
    void columnsOutsideWholeBlocksMatchScalar()
    {
        QFETCH(int, kernel);
        QFETCH(int, xStart);
        QFETCH(int, xEnd);

        const QImage image = texturedPhoto(24, 12, 7).imageYCbCr();
        QRandomGenerator random(11);
        Records records;
        for (int i = 0; i < 12; ++i)
            records.append(PXSuperPixel(random.bounded(256), random.bounded(256), random.bounded(256),
                random.bounded(24), random.bounded(12)));
        ASSIGN_OR_SKIP(labels, assign(kernel, image, records, 3, xStart, xEnd));
        QCOMPARE(labels, assign(Scalar, image, records, 3, xStart, xEnd));
        QVERIFY(labels != labelImage(image.size(), 0));
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                if (x < xStart || x >= xEnd)
                    QCOMPARE(labelAt(labels, x, y), 0);
    }
};

QTEST_GUILESS_MAIN(TestPXSlicKernels)
#include "tst_pxslickernels.moc"
