#include "PXBackgroundExtractor.h"
#include "PXHistogram3D.h"
#include "PXImage.h"
#include "RegionTestImages.h"

#include <QtTest>

using namespace RegionTestImages;

namespace {

constexpr QRgb Marked = 0xFF000000u;
constexpr QRgb Unmarked = 0x00000000u;

// A one-row YCbCr photo and a mask that marks the flagged pixels.
struct Scene
{
    QImage ycbcr;
    QImage mask;
};

Scene scene(const QList<QRgb>& colours, const QList<bool>& marked)
{
    Scene result{QImage(int(colours.size()), 1, QImage::Format_ARGB32),
        QImage(int(colours.size()), 1, QImage::Format_ARGB32_Premultiplied)};
    for (int x = 0; x < colours.size(); ++x) {
        result.ycbcr.setPixel(x, 0, colours.at(x));
        reinterpret_cast<quint32*>(result.mask.scanLine(0))[x] = marked.at(x) ? Marked : Unmarked;
    }
    return result;
}

QList<QRgb> repeated(QRgb colour, int count)
{
    return QList<QRgb>(count, colour);
}

QList<bool> flags(bool value, int count)
{
    return QList<bool>(count, value);
}

} // namespace

class TestBackgroundExtractor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void binIndex_data();
    void binIndex();
    void maskAlphaDecides();
    void extractBackground_data();
    void extractBackground();
};

void TestBackgroundExtractor::binIndex_data()
{
    QTest::addColumn<uint>("luminance");
    QTest::addColumn<uint>("cb");
    QTest::addColumn<uint>("cr");
    QTest::addColumn<int>("index");

    QTest::newRow("0..15 in bin 0") << 15u << 15u << 15u << 0;
    QTest::newRow("luminance fastest") << 16u << 0u << 0u << 1;
    QTest::newRow("cb") << 0u << 16u << 0u << 16;
    QTest::newRow("cr") << 0u << 0u << 16u << 256;
    QTest::newRow("240..255 in bin 4095") << 240u << 255u << 248u << 4095;
    QTest::newRow("beyond the bins") << 0u << 0u << 256u << 4096;
}

void TestBackgroundExtractor::binIndex()
{
    QFETCH(uint, luminance);
    QFETCH(uint, cb);
    QFETCH(uint, cr);
    QFETCH(int, index);
    const PXYCbCr colour(luminance, cb, cr);
    QCOMPARE(PXHistogram3D().createIndex(colour), index);
}

void TestBackgroundExtractor::maskAlphaDecides()
{
    QImage ycbcr(4, 1, QImage::Format_ARGB32);
    ycbcr.setPixel(0, 0, qRgb(0, 0, 0));
    ycbcr.setPixel(1, 0, qRgb(255, 255, 255));
    ycbcr.setPixel(2, 0, qRgb(20, 0, 0));
    ycbcr.setPixel(3, 0, qRgb(255, 255, 255));
    QImage mask(4, 1, QImage::Format_ARGB32);
    auto* bits = reinterpret_cast<quint32*>(mask.scanLine(0));
    bits[0] = 0x00FFFFFFu;
    bits[1] = 0x01000000u;
    bits[2] = 0x00000000u;
    bits[3] = 0xFFFFFFFFu;

    PXHistogram3D unmarked(ycbcr, mask, false);
    PXHistogram3D marked(ycbcr, mask, true);
    unmarked.buildHistogram();
    marked.buildHistogram();
    QCOMPARE(unmarked.value(PXYCbCr(0, 0, 0)), 1);
    QCOMPARE(unmarked.value(PXYCbCr(31, 15, 15)), 1);
    QCOMPARE(marked.value(PXYCbCr(255, 255, 255)), 2);
    QCOMPARE(marked.value(PXYCbCr(0, 0, 0)), 0);
}

// Label 1 has the mean colour A; the photo holds `inside` pixels of colour A
// under the mask, `outside` pixels of A outside it and `others` pixels of
// another colour outside it.
void TestBackgroundExtractor::extractBackground_data()
{
    QTest::addColumn<int>("inside");
    QTest::addColumn<int>("outside");
    QTest::addColumn<int>("others");
    QTest::addColumn<bool>("background");

    QTest::newRow("more marked") << 3 << 1 << 10 << true;
    QTest::newRow("as many marked") << 2 << 2 << 10 << false;
    QTest::newRow("colour absent") << 0 << 0 << 10 << false;
    // limit = int(0.3 * unmarked) must exceed a tenth of the unmarked count.
    QTest::newRow("3 unmarked: limit 0") << 10 << 0 << 3 << false;
    QTest::newRow("4 unmarked: limit 1") << 10 << 0 << 4 << true;
}

void TestBackgroundExtractor::extractBackground()
{
    QFETCH(int, inside);
    QFETCH(int, outside);
    QFETCH(int, others);
    QFETCH(bool, background);
    const QRgb colourA = qRgb(100, 50, 200);
    const QRgb colourB = qRgb(10, 200, 20);
    const Scene photo = scene(repeated(colourA, inside) + repeated(colourA, outside) + repeated(colourB, others),
        flags(true, inside) + flags(false, outside + others));
    PXImage image(photo.ycbcr, photo.ycbcr, QFileInfo());

    PXBackgroundExtractor extractor;
    extractor.setup(&image);
    extractor.setSuperPixelInformations({superPixel(0, 0, 0, 1), superPixel(100, 50, 200, 9)});
    // Labels without a record are never returned.
    const QSet<int> result = extractor.extractBackground({-1, 1, 5}, photo.mask);
    QCOMPARE(result, background ? QSet<int>{1} : QSet<int>{});
}

QTEST_MAIN(TestBackgroundExtractor)
#include "tst_backgroundextractor.moc"
