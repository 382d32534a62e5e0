#include "PXColorConverter.h"
#include "PXImage.h"

#include <QRandomGenerator>
#include <QTest>

namespace {

quint32 referencePixel(QRgb rgb)
{
    double y = 0;
    double cb = 0;
    double cr = 0;
    PXColorConverter::RGBtoYCbCr(qRed(rgb), qGreen(rgb), qBlue(rgb), &y, &cb, &cr);
    return (quint32(int(cr)) & 0xFF) | (quint32(int(cb)) & 0xFF) << 8 | quint32(int(y)) << 16
        | 0xFF000000u;
}

QImage randomPhoto(int width, int height, QImage::Format format, quint32 seed)
{
    QImage photo(width, height, format);
    QRandomGenerator random(seed);
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<quint32*>(photo.scanLine(y));
        for (int x = 0; x < width; ++x)
            line[x] = random.generate();
    }
    return photo;
}

// Every 24-bit colour exactly once, with a varying alpha byte.
QImage everyColour()
{
    QImage photo(4096, 4096, QImage::Format_ARGB32);
    for (int y = 0; y < 4096; ++y) {
        auto* line = reinterpret_cast<quint32*>(photo.scanLine(y));
        for (int x = 0; x < 4096; ++x)
            line[x] = quint32(y * 4096 + x) | quint32(x & 0xFF) << 24;
    }
    return photo;
}

} // namespace

class TestPXImage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        qunsetenv("PX_CORE_COUNT");
        qunsetenv("PX_CPU_FEATURES");
    }

    void formats_data()
    {
        QTest::addColumn<int>("given");
        QTest::addColumn<int>("kept");
        QTest::newRow("RGB32") << int(QImage::Format_RGB32) << int(QImage::Format_RGB32);
        QTest::newRow("RGB888") << int(QImage::Format_RGB888) << int(QImage::Format_ARGB32);
    }
    void formats()
    {
        QFETCH(int, given);
        QFETCH(int, kept);
        QImage photo(5, 3, QImage::Format(given));
        photo.fill(Qt::white);
        const PXImage image(photo, QFileInfo());
        QCOMPARE(int(image.imageRGB().format()), kept);
        QCOMPARE(int(image.imageYCbCr().format()), kept);
        const auto* pixels = reinterpret_cast<const quint32*>(image.imageYCbCr().constScanLine(2));
        QCOMPARE(pixels[4], referencePixel(image.imageRGB().pixel(4, 2)));
    }

    void parallelMatchesReference_data()
    {
        QTest::addColumn<int>("height");
        QTest::addColumn<QByteArray>("cores");
        QTest::addColumn<QByteArray>("features");
        QTest::newRow("201 rows, 5 blocks") << 201 << QByteArray("5") << QByteArray();
        QTest::newRow("333 rows, 7 blocks, scalar") << 333 << QByteArray("7") << QByteArray("none");
    }
    void parallelMatchesReference()
    {
        QFETCH(int, height);
        QFETCH(QByteArray, cores);
        QFETCH(QByteArray, features);
        qputenv("PX_CORE_COUNT", cores);
        if (!features.isEmpty())
            qputenv("PX_CPU_FEATURES", features);
        // 37 columns: a tail the 4-pixel vector loop leaves to the scalar code.
        const QImage photo = randomPhoto(37, height, QImage::Format_ARGB32, quint32(height));
        const QImage ycbcr = PXImage(photo, QFileInfo()).imageYCbCr();
        for (int y = 0; y < height; ++y) {
            const auto* source = reinterpret_cast<const quint32*>(photo.constScanLine(y));
            const auto* converted = reinterpret_cast<const quint32*>(ycbcr.constScanLine(y));
            for (int x = 0; x < photo.width(); ++x)
                QVERIFY2(converted[x] == referencePixel(source[x]), qPrintable(QStringLiteral("at %1,%2").arg(x).arg(y)));
        }
    }

    void vectorKernelMatchesScalarForEveryColour()
    {
        const QImage photo = everyColour();
        const QImage fast = PXImage(photo, QFileInfo()).imageYCbCr();
        qputenv("PX_CPU_FEATURES", "none");
        const QImage scalar = PXImage(photo, QFileInfo()).imageYCbCr();
        QVERIFY(fast == scalar);
    }

    void givenTwinIsKeptUnlessItDoesNotFit()
    {
        const QImage photo = randomPhoto(6, 4, QImage::Format_ARGB32, 2);
        QImage marker(6, 4, QImage::Format_ARGB32);
        marker.fill(0x12345678u);
        QCOMPARE(PXImage(photo, marker, QFileInfo()).imageYCbCr(), marker);

        const QImage expected = PXImage(photo, QFileInfo()).imageYCbCr();
        QCOMPARE(PXImage(photo, QImage(5, 4, QImage::Format_ARGB32), QFileInfo()).imageYCbCr(), expected);
    }

    void badInputIsHarmless()
    {
        const PXImage null { QImage(), QFileInfo() };
        // Rows outside the image are skipped.
        const QImage rgb = randomPhoto(4, 4, QImage::Format_ARGB32, 4);
        QImage ycbcr(4, 4, QImage::Format_ARGB32);
        ycbcr.fill(0);
        null.mapBlock(PXIntRange(-5, 100), rgb, ycbcr);
        QCOMPARE(ycbcr, PXImage(rgb, QFileInfo()).imageYCbCr());

        // A shared target is detached before it is written.
        QImage shared(4, 4, QImage::Format_ARGB32);
        shared.fill(0);
        const QImage other = shared;
        null.mapBlock(PXIntRange(0, 3), rgb, shared);
        QCOMPARE(other.pixel(0, 0), 0u);
        QVERIFY(shared.pixel(0, 0) != 0u);
    }
};

QTEST_GUILESS_MAIN(TestPXImage)
#include "tst_pximage.moc"
