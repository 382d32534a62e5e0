#include "PXCpuFeatures.h"
#include "PXSlic.h"
#include "PXSuperPixel.h"
#include "SlicTestImages.h"

#include <QTest>

using namespace SlicTest;

namespace {

enum Kernel { Scalar, Sse, Avx };
using KernelFunction = void (*)(const PXSlicSlice&);

KernelFunction kernelFunction(int kernel)
{
    switch (kernel) {
    case Sse:
        return &PXSlic::adjustSuperPixelSliceSSE;
    case Avx:
        return &PXSlic::adjustSuperPixelSliceAVX;
    default:
        return &PXSlic::adjustSuperPixelSlice;
    }
}

bool kernelAvailable(int kernel)
{
    switch (kernel) {
    case Sse:
        return pxCpuHasFeature(CPU_FEATURE_SSE);
    case Avx:
        return pxCpuHasFeature(CPU_FEATURE_AVX);
    default:
        return true;
    }
}

#define SKIP_UNLESS_AVAILABLE(kernel)                                                              \
    if (!kernelAvailable(kernel))                                                                  \
        QSKIP("the processor lacks this kernel's instruction set");

// Runs @p kernel over the whole of @p ycbcrImage except its last row, on labels
// filled with @p initialLabel.
QImage assign(int kernel, const QImage& ycbcrImage, const Records& records, int gridStep,
    qint32 initialLabel = 0)
{
    QImage labels = labelImage(ycbcrImage.size(), initialLabel);
    const PXSlicSlice slice{ycbcrImage, reinterpret_cast<quint32*>(labels.bits()), records.list(),
        ycbcrImage.width(), ycbcrImage.height(), 0, ycbcrImage.width(), 0, ycbcrImage.height() - 1,
        gridStep};
    kernelFunction(kernel)(slice);
    return labels;
}

} // namespace

class TestPXSlicKernels : public QObject
{
    Q_OBJECT

private slots:
    void handComputedRound_data();
    void handComputedRound();
    void spatialLanesRunBackwards_data();
    void spatialLanesRunBackwards();
    void colourLanesFollowTheMasks_data();
    void colourLanesFollowTheMasks();
    void columnsOutsideWholeBlocksMatchScalar_data();
    void columnsOutsideWholeBlocksMatchScalar();
    void degenerateSlicesAreIgnored();
};

static void addKernelRows()
{
    QTest::addColumn<int>("kernel");
    QTest::newRow("scalar") << int(Scalar);
    QTest::newRow("sse") << int(Sse);
    QTest::newRow("avx") << int(Avx);
}

void TestPXSlicKernels::handComputedRound_data()
{
    addKernelRows();
}

// Two records, dark at (1, 1) and light at (6, 1), window 3 on each side. Column
// 3 lies nearer the dark one but its colour is closer to the light one:
// dark 2/3 + 50^2/900 = 3.44 against light 3/3 + 40^2/900 = 2.78. None of
// the windows holds a whole block that could reorder lanes, so all kernels agree.
void TestPXSlicKernels::handComputedRound()
{
    QFETCH(int, kernel);
    SKIP_UNLESS_AVAILABLE(kernel);

    QImage image = uniformYCbCr(8, 4, 0);
    const int luminance[8] = {0, 0, 0, 50, 60, 90, 90, 90};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x)
            image.setPixel(x, y, ycbcr(luminance[x]));
    Records records;
    records.append(PXSuperPixel(0, 128, 128, 1, 1));
    records.append(PXSuperPixel(90, 128, 128, 6, 1));
    // Its window lies outside the stripe: skipped.
    records.append(PXSuperPixel(0, 128, 128, 100, 100));

    const QImage labels = assign(kernel, image, records, 3, 7);
    const QList<qint32> assigned = {1, 1, 1, 2, 2, 2, 2, 2};
    for (int y = 0; y < 3; ++y)
        QCOMPARE(labelRow(labels, y), assigned);
    // The bottom row is the exclusive end and keeps what it had.
    QCOMPARE(labelRow(labels, 3), QList<qint32>(8, 7));
}

void TestPXSlicKernels::spatialLanesRunBackwards_data()
{
    QTest::addColumn<int>("kernel");
    QTest::addColumn<QList<qint32>>("expected");

    // Records of equal colour at columns 7 and 3 on a uniform row; the one at
    // column 3 wins only where it is strictly nearer, as far as the kernel
    // measures. In a vector block lane i measures column x0 + B - 1 - i.
    QTest::newRow("scalar") << int(Scalar)
                            << QList<qint32>{2, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0};
    // The record at column 7 sits on x0 + 3 of block 4: lane 0 (column 4) sees
    // distance 0, lane 3 (column 7) sees 3.
    QTest::newRow("sse") << int(Sse)
                         << QList<qint32>{2, 2, 2, 2, 1, 1, 1, 2, 1, 1, 1, 1, 1, 1, 1, 0};
    QTest::newRow("avx") << int(Avx)
                         << QList<qint32>{1, 1, 1, 2, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 0};
}

void TestPXSlicKernels::spatialLanesRunBackwards()
{
    QFETCH(int, kernel);
    QFETCH(QList<qint32>, expected);
    SKIP_UNLESS_AVAILABLE(kernel);

    const QImage image = uniformYCbCr(16, 2, 100);
    Records records;
    records.append(PXSuperPixel(100, 128, 128, 7, 0));
    records.append(PXSuperPixel(100, 128, 128, 3, 0));

    // Column 15 lies outside both windows ([0, 15) and [0, 11)).
    QCOMPARE(labelRow(assign(kernel, image, records, 8), 0), expected);
}

void TestPXSlicKernels::colourLanesFollowTheMasks_data()
{
    QTest::addColumn<int>("kernel");
    QTest::addColumn<QList<qint32>>("expected");

    QTest::newRow("scalar") << int(Scalar) << QList<qint32>{1, 1, 2, 2, 1, 1, 1, 2};
    QTest::newRow("sse") << int(Sse) << QList<qint32>{1, 1, 2, 2, 1, 1, 1, 2};
    // Lane 1 takes the Cr of column 2, lane 3 the luminance of column 0 and
    // lane 6 the Cr of column 7.
    QTest::newRow("avx") << int(Avx) << QList<qint32>{1, 2, 2, 1, 1, 1, 2, 2};
}

// Both records share their centre, so colour alone decides each lane.
void TestPXSlicKernels::colourLanesFollowTheMasks()
{
    QFETCH(int, kernel);
    QFETCH(QList<qint32>, expected);
    SKIP_UNLESS_AVAILABLE(kernel);

    const QRgb dark = ycbcr(0, 128, 128);
    const QRgb grey = ycbcr(100, 128, 128);
    const QRgb red = ycbcr(200, 128, 200);
    const QRgb row[8] = {dark, grey, red, red, dark, dark, grey, red};
    QImage image(8, 2, QImage::Format_ARGB32);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 8; ++x)
            image.setPixel(x, y, row[x]);
    Records records;
    records.append(PXSuperPixel(0, 128, 128, 4, 0));
    records.append(PXSuperPixel(200, 128, 200, 4, 0));

    QCOMPARE(labelRow(assign(kernel, image, records, 8), 0), expected);
}

void TestPXSlicKernels::columnsOutsideWholeBlocksMatchScalar_data()
{
    QTest::addColumn<int>("kernel");
    QTest::addColumn<int>("xStart");
    QTest::addColumn<int>("xEnd");

    // Stripes in which no window holds a whole block of the kernel, so every
    // column is a head or tail column evaluated the scalar way.
    for (int kernel : {Sse, Avx}) {
        const QByteArray name = kernel == Sse ? "sse" : "avx";
        QTest::addRow("%s, inside one block", name.constData()) << kernel << 1 << 4;
        QTest::addRow("%s, head and tail around a boundary", name.constData()) << kernel << 6 << 11;
    }
    QTest::newRow("sse, head up to 12 and tail from 12") << int(Sse) << 9 << 15;
    QTest::newRow("avx, head only") << int(Avx) << 9 << 15;
}

void TestPXSlicKernels::columnsOutsideWholeBlocksMatchScalar()
{
    QFETCH(int, kernel);
    QFETCH(int, xStart);
    QFETCH(int, xEnd);
    SKIP_UNLESS_AVAILABLE(kernel);

    const PXImage photo = texturedPhoto(24, 12, 7);
    const QImage image = photo.imageYCbCr();
    QRandomGenerator random(11);
    Records records;
    for (int i = 0; i < 12; ++i) {
        records.append(PXSuperPixel(random.bounded(256), random.bounded(256), random.bounded(256),
            random.bounded(24), random.bounded(12)));
    }

    auto run = [&](int which) {
        QImage labels = labelImage(image.size(), 0);
        const PXSlicSlice slice{image, reinterpret_cast<quint32*>(labels.bits()), records.list(),
            image.width(), image.height(), xStart, xEnd, 0, image.height() - 1, 3};
        kernelFunction(which)(slice);
        return labels;
    };
    const QImage expected = run(Scalar);
    const QImage actual = run(kernel);
    QCOMPARE(actual, expected);
    // And nothing outside the stripe was touched.
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (x < xStart || x >= xEnd || y == image.height() - 1)
                QCOMPARE(labelAt(actual, x, y), 0);
}

void TestPXSlicKernels::degenerateSlicesAreIgnored()
{
    const QImage image = uniformYCbCr(16, 4, 100);
    Records records;
    records.append(PXSuperPixel(100, 128, 128, 4, 1));
    QImage labels = labelImage(image.size(), 5);
    auto* bits = reinterpret_cast<quint32*>(labels.bits());

    const QList<PXSlicSlice> slices = {
        // No image, no labels.
        PXSlicSlice{QImage(), bits, records.list(), 16, 4, 0, 16, 0, 3, 4},
        PXSlicSlice{image, nullptr, records.list(), 16, 4, 0, 16, 0, 3, 4},
        // Only the dummy record.
        PXSlicSlice{image, bits, records.list().mid(0, 1), 16, 4, 0, 16, 0, 3, 4},
        // Empty and inverted bounds.
        PXSlicSlice{image, bits, records.list(), 16, 4, 8, 8, 0, 3, 4},
        PXSlicSlice{image, bits, records.list(), 16, 4, 0, 16, 3, 0, 4},
        // A grid step of 0 makes every window empty.
        PXSlicSlice{image, bits, records.list(), 16, 4, 0, 16, 0, 3, 0},
    };
    for (int kernel : {Scalar, Sse, Avx}) {
        if (!kernelAvailable(kernel))
            continue;
        for (const PXSlicSlice& slice : slices)
            kernelFunction(kernel)(slice);
    }
    QCOMPARE(labels, labelImage(image.size(), 5));

    // Bounds beyond the image are cut to it.
    for (int kernel : {Scalar, Sse, Avx}) {
        if (!kernelAvailable(kernel))
            continue;
        QImage clipped = labelImage(image.size(), 0);
        kernelFunction(kernel)(PXSlicSlice{image, reinterpret_cast<quint32*>(clipped.bits()),
            records.list(), 100, 100, -8, 40, -3, 30, 4});
        QCOMPARE(labelAt(clipped, 0, 0), 1);
        QCOMPARE(labelAt(clipped, 7, 3), 1);
        QCOMPARE(labelAt(clipped, 8, 0), 0);
    }
}

QTEST_GUILESS_MAIN(TestPXSlicKernels)
#include "tst_pxslickernels.moc"
