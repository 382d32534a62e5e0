#include "PXImage.h"
#include "PXSlic.h"
#include "PXSuperPixel.h"
#include "SlicTestImages.h"

#include <QTest>

using namespace SlicTest;

namespace {

QPainterPath boxLasso(int width, int height)
{
    QPainterPath path;
    path.addRect(QRectF(0, 0, width, height));
    return path;
}

// '.' is the outside of the lasso, 'a' and 'b' small pieces (-2, -3), digits
// and capitals labels 0..35.
qint32 decode(char c)
{
    switch (c) {
    case '.':
        return PXSlic::outsideLabel();
    case 'a':
        return -2;
    case 'b':
        return -3;
    default:
        return c <= '9' ? c - '0' : c - 'A' + 10;
    }
}

QImage decodeMap(const QStringList& rows, const QSize& size)
{
    QImage labels = labelImage(size, PXSlic::outsideLabel());
    for (int y = 0; y < rows.size(); ++y)
        for (int x = 0; x < rows[y].size(); ++x)
            setLabel(labels, x, y, decode(rows[y].at(x).toLatin1()));
    return labels;
}

QString describe(const QImage& labels)
{
    QString text;
    for (int y = 0; y < labels.height(); ++y) {
        text += QLatin1Char('\n');
        for (int x = 0; x < labels.width(); ++x)
            text += QString::number(labelAt(labels, x, y)).rightJustified(3);
    }
    return text;
}

} // namespace

class TestPXSlicConnectivity : public QObject
{
    Q_OBJECT

private slots:
    void piecesBecomeSuperpixels();
    void smallPieces_data();
    void smallPieces();
};

// 100 x 100 with 6 records: average area 1666, so pieces of up to 4 pixels
// are small.
void TestPXSlicConnectivity::piecesBecomeSuperpixels()
{
    QImage image = uniformYCbCr(100, 100, 200);
    QImage labels = labelImage(image.size(), 1);
    fillLabels(labels, QRect(10, 10, 2, 2), 2);  // 4 pixels: merged
    fillLabels(labels, QRect(30, 10, 5, 1), 3);  // 5 pixels: kept
    fillLabels(labels, QRect(50, 50, 3, 3), 4);  // two squares touching
    fillLabels(labels, QRect(53, 53, 3, 3), 4);  // only at a corner
    fillLabels(labels, QRect(72, 65, 10, 16), 6); // dark block
    fillLabels(labels, QRect(70, 70, 2, 2), 5);  // small, darkish, beside it
    for (int y = 65; y < 81; ++y)
        for (int x = 72; x < 82; ++x)
            image.setPixel(x, y, ycbcr(20));
    for (const QPoint& p : {QPoint(70, 70), QPoint(71, 70), QPoint(70, 71), QPoint(71, 71)})
        image.setPixel(p, ycbcr(30));

    PXImage photo = photoFromYCbCr(image);
    PXSlic slic;
    slic.setup(&photo, boxLasso(100, 100));
    slic.initNewSuperPixels(6);
    slic.setSuperPixelAssignments(labels);
    slic.forceConnectivity();

    // Numbered in scan order; the small pieces go to the neighbour of the
    // closest colour: the 4-pixel square to the background, the darkish one
    // to the dark block.
    QImage expected = labelImage(image.size(), 1);
    fillLabels(expected, QRect(30, 10, 5, 1), 2);
    fillLabels(expected, QRect(50, 50, 3, 3), 3);
    fillLabels(expected, QRect(53, 53, 3, 3), 4);
    fillLabels(expected, QRect(72, 65, 10, 16), 5);
    fillLabels(expected, QRect(70, 70, 2, 2), 5);
    QCOMPARE(slic.superPixelAssignments(), expected);

    // The records are recomputed from the final labels over [0, 99) x [0, 99).
    const QList<PXSuperPixel> records = slic.clusterInformations();
    QCOMPARE(records.size(), 6);
    QCOMPARE(records[1].pixelCount(), 99 * 99 - 5 - 18 - 164);
    QCOMPARE(records[2].pixelCount(), 5);
    QCOMPARE(records[3].pixelCount(), 9);
    QCOMPARE(records[3].xCenter(), 51);
    QCOMPARE(records[4].pixelCount(), 9);
    QCOMPARE(records[5].pixelCount(), 164);
    QCOMPARE(records[5].color(), PXYCbCr(20, 128, 128)); // (160 * 20 + 4 * 30) / 164 rounded
}

void TestPXSlicConnectivity::smallPieces_data()
{
    QTest::addColumn<int>("recordCount");
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<int>("recordsAfter");

    QTest::newRow("no neighbours: a new record")
        << 3 << QStringList{"", "", "", "...aaa", "...aaa", "...aaa"}
        << QStringList{"", "", "", "...333", "...333", "...333"} << 4;
    // The ring's flood marks the block's rim visited, so later floods cannot
    // enter it: the rim pixels become records one by one, the centre joins the
    // corner it touches diagonally.
    QTest::newRow("ringed by another small piece")
        << 3 << QStringList{"", "", "..bbbbb", "..baaab", "..baaab", "..baaab", "..bbbbb"}
        << QStringList{"", "", "..33333", "..34563", "..37483", "..39AB3", "..33333"} << 12;
    QTest::newRow("merges across a diagonal contact")
        << 3 << QStringList{"", "", "", "...a", "....a", ".....1"}
        << QStringList{"", "", "", "...1", "....1", ".....1"} << 3;
    QTest::newRow("a tie goes to the lowest label")
        << 3 << QStringList{"", "", "", "...a2", "...1"} << QStringList{"", "", "", "...12", "...1"} << 3;
    QTest::newRow("pixels already scanned are not neighbours")
        << 3 << QStringList{"", "", "", "", ".....1", "....1a2"}
        << QStringList{"", "", "", "", ".....1", "....122"} << 3;
    QTest::newRow("label 0 is a neighbour, the outside is not")
        << 3 << QStringList{"", "", "", "...a0"} << QStringList{"", "", "", "...00"} << 3;
}

void TestPXSlicConnectivity::smallPieces()
{
    QFETCH(int, recordCount);
    QFETCH(QStringList, before);
    QFETCH(QStringList, after);
    QFETCH(int, recordsAfter);

    const QSize size(10, 10);
    PXImage photo = photoFromYCbCr(uniformYCbCr(size.width(), size.height(), 90));
    PXSlic slic;
    slic.setup(&photo, boxLasso(size.width(), size.height()));
    slic.initNewSuperPixels(recordCount);
    slic.setSuperPixelAssignments(decodeMap(before, size));
    slic.allocateSmallClusters();

    const QImage labels = slic.superPixelAssignments();
    QVERIFY2(labels == decodeMap(after, size), qPrintable(describe(labels)));
    QCOMPARE(slic.clusterInformations().size(), recordsAfter);
}

QTEST_MAIN(TestPXSlicConnectivity)
#include "tst_pxslicconnectivity.moc"
