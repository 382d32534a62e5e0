#include "PXSlic.h"
#include "SlicTestImages.h"

#include <QTest>

using namespace SlicTest;

namespace {

// '.' is the outside of the lasso, 'a' and 'b' small pieces (-2, -3),
// digits and capitals labels 0..35.
QImage decodeMap(const QStringList& rows, const QSize& size)
{
    QImage labels = labelImage(size, PXSlic::outsideLabel());
    for (int y = 0; y < rows.size(); ++y) {
        for (int x = 0; x < rows[y].size(); ++x) {
            const char c = rows[y].at(x).toLatin1();
            const qint32 label = c == '.' ? PXSlic::outsideLabel() : c == 'a' ? -2 : c == 'b' ? -3
                : c <= '9' ? c - '0' : c - 'A' + 10;
            labels.setPixel(x, y, quint32(label));
        }
    }
    return labels;
}

void fill(QImage& image, const QRect& rect, quint32 value)
{
    for (int y = rect.top(); y <= rect.bottom(); ++y)
        for (int x = rect.left(); x <= rect.right(); ++x)
            image.setPixel(x, y, value);
}

// A photo under a lasso over all of it, with @p records records and @p labels.
struct Setup
{
    Setup(const QImage& photoImage, int records, const QImage& labels)
        : photo(photoFromYCbCr(photoImage))
    {
        QPainterPath lasso;
        lasso.addRect(QRectF(photoImage.rect()));
        slic.setup(&photo, lasso);
        slic.initNewSuperPixels(records);
        slic.setSuperPixelAssignments(labels);
    }
    PXImage photo;
    PXSlic slic;
};

} // namespace

class TestPXSlicConnectivity : public QObject
{
    Q_OBJECT

private slots:
    // 100 x 100 with 6 records: average area 1666, pieces of up to 4 pixels are small.
    void piecesBecomeSuperpixels()
    {
        QImage image = uniformYCbCr(100, 100, 200);
        fill(image, QRect(72, 65, 10, 16), ycbcr(20));
        fill(image, QRect(70, 70, 2, 2), ycbcr(30));
        QImage labels = labelImage(image.size(), 1);
        fill(labels, QRect(10, 10, 2, 2), 2);  // 4 pixels: merged
        fill(labels, QRect(30, 10, 5, 1), 3);  // 5 pixels: kept
        fill(labels, QRect(50, 50, 3, 3), 4);  // two squares that touch
        fill(labels, QRect(53, 53, 3, 3), 4);  // only at a corner
        fill(labels, QRect(72, 65, 10, 16), 6); // dark block
        fill(labels, QRect(70, 70, 2, 2), 5);  // small and dark, beside it

        Setup setup(image, 6, labels);
        setup.slic.forceConnectivity();

        // Numbered in scan order; small pieces go to the neighbour closest in colour.
        QImage expected = labelImage(image.size(), 1);
        fill(expected, QRect(30, 10, 5, 1), 2);
        fill(expected, QRect(50, 50, 3, 3), 3);
        fill(expected, QRect(53, 53, 3, 3), 4);
        fill(expected, QRect(70, 65, 12, 16), 5);
        fill(expected, QRect(70, 65, 2, 5), 1);
        fill(expected, QRect(70, 72, 2, 9), 1);
        QCOMPARE(setup.slic.superPixelAssignments(), expected);

        // Recomputed from the final labels over [0, 99) x [0, 99).
        const QList<PXSuperPixel> records = setup.slic.clusterInformations();
        QCOMPARE(records.size(), 6);
        QCOMPARE(records[1].pixelCount(), 99 * 99 - 5 - 18 - 164);
        QCOMPARE(records[3].pixelCount(), 9);
        QCOMPARE(records[5].pixelCount(), 164);
        QCOMPARE(records[5].color(), PXYCbCr(20, 128, 128));
    }

    void smallPieces_data()
    {
        QTest::addColumn<QStringList>("before");
        QTest::addColumn<QStringList>("after");
        QTest::addColumn<int>("records");

        QTest::newRow("no neighbours: a new record")
            << QStringList{"", "", "", "...aaa", "...aaa"} << QStringList{"", "", "", "...333", "...333"} << 4;
        // The ring's flood marks the block's rim visited, so no later flood
        // enters it: the rim pixels become records one by one, the centre joins
        // the corner it touches diagonally.
        QTest::newRow("ringed by another small piece")
            << QStringList{"", "", "..bbbbb", "..baaab", "..baaab", "..baaab", "..bbbbb"}
            << QStringList{"", "", "..33333", "..34563", "..37483", "..39AB3", "..33333"} << 12;
        QTest::newRow("merges across a diagonal")
            << QStringList{"", "", "", "...a", "....a", ".....1"} << QStringList{"", "", "", "...1", "....1", ".....1"} << 3;
        QTest::newRow("a tie goes to the lowest label")
            << QStringList{"", "", "", "...a2", "...1"} << QStringList{"", "", "", "...12", "...1"} << 3;
        QTest::newRow("pixels already scanned are not neighbours")
            << QStringList{"", "", "", "", ".....1", "....1a2"} << QStringList{"", "", "", "", ".....1", "....122"} << 3;
        QTest::newRow("label 0 is a neighbour, the outside is not")
            << QStringList{"", "", "", "...a0"} << QStringList{"", "", "", "...00"} << 3;
    }
    void smallPieces()
    {
        QFETCH(QStringList, before);
        QFETCH(QStringList, after);
        QFETCH(int, records);

        Setup setup(uniformYCbCr(10, 10, 90), 3, decodeMap(before, QSize(10, 10)));
        setup.slic.allocateSmallClusters();
        QCOMPARE(setup.slic.superPixelAssignments(), decodeMap(after, QSize(10, 10)));
        QCOMPARE(setup.slic.clusterInformations().size(), records);
    }
};

QTEST_MAIN(TestPXSlicConnectivity)
#include "tst_pxslicconnectivity.moc"
