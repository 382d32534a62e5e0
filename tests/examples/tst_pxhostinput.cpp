#include "PXCutArguments.h"
#include "PXHostPhoto.h"
#include "PXPointList.h"
#include "PXSelectionMask.h"

#include <QDataStream>
#include <QFile>
#include <QTemporaryDir>

#include <QTest>

// What the hosts read from people: point lists, command lines, photo sizes.
class TestPXHostInput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pointLists_data();
    void pointLists();
    void commandLines_data();
    void commandLines();
    void photoScaling_data();
    void photoScaling();
    void hugePhotoIsRefused();
    void selectionEdits_data();
    void selectionEdits();
};

void TestPXHostInput::pointLists_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QList<QPointF>>("points");
    QTest::addColumn<QString>("error");

    using Points = QList<QPointF>;
    QTest::newRow("spaces and lines") << "  1,2\n\t3.5,-4  5e1,6 \n" << Points { { 1, 2 }, { 3.5, -4 }, { 50, 6 } }
                                      << QString();
    QTest::newRow("comments") << "# a lasso\n1,2 # first\n3,4" << Points { { 1, 2 }, { 3, 4 } } << QString();
    QTest::newRow("semicolon") << "1,2 3;4" << Points {} << "malformed point '3;4' (expected x,y)";
    QTest::newRow("nan") << "nan,2" << Points {} << "malformed point 'nan,2' (expected x,y)";
}

void TestPXHostInput::pointLists()
{
    QFETCH(QString, text);
    QFETCH(QList<QPointF>, points);
    QFETCH(QString, error);

    QList<QPointF> parsed { { -1, -1 } };
    QString message;
    QCOMPARE(PXPointList::parse(text, &parsed, &message), error.isEmpty());
    QCOMPARE(message, error);
    if (error.isEmpty())
        QCOMPARE(parsed, points);
    else
        QCOMPARE(parsed, QList<QPointF>({ { -1, -1 } })); // untouched on failure
}

void TestPXHostInput::commandLines_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");

    QTest::newRow("cut alone") << QStringList { "cut" } << QString();
    QTest::newRow("full cut") << QStringList { "cut", "p.png", "--lasso", "1,1 9,1 9,9", "--click", "2,2",
        "--paint", "bg", "3", "1,1 2,2", "--scribble", "fg", "1.5", "4,4", "--invert", "--mask-color",
        "#ff8000", "--smooth", "2", "--feather", "2.5", "--mask-in", "m.png", "--out", "o", "--json" }
                               << QString();
    QTest::newRow("nothing") << QStringList {} << "missing command: cut or wire";
    QTest::newRow("unknown option") << QStringList { "cut", "--lass", "1,1" } << "cut: unknown option '--lass'";
    QTest::newRow("two lassos") << QStringList { "cut", "--lasso", "1,1", "--lasso-file", "f" }
                                << "give the lasso once, with --lasso or --lasso-file";
    QTest::newRow("malformed lasso") << QStringList { "cut", "--lasso", "1,1 2;2" }
                                     << "--lasso: malformed point '2;2' (expected x,y)";
    QTest::newRow("paint side") << QStringList { "cut", "--paint", "in", "3", "1,1" }
                                << "--paint: expected fg or bg, got 'in'";
    QTest::newRow("plain and refined") << QStringList { "cut", "--refine", "--plain" }
                                       << "give --plain or --refine, not both";
    QTest::newRow("colour") << QStringList { "cut", "--mask-color", "#12345" }
                            << "--mask-color: '#12345' is not a colour (expected #RRGGBB)";
    QTest::newRow("smooth above the bound") << QStringList { "cut", "--smooth", "11" }
                                            << "--smooth: radius 11 is above 10, where the blurred one-bit mask "
                                               "breaks down; for a soft edge use --feather 11";
    QTest::newRow("seed without to") << QStringList { "wire", "--seed", "1,1", "--to", "2,2", "--seed", "3,3" }
                                     << "--seed 3,3 has no --to after it";
}

void TestPXHostInput::commandLines()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);

    PXCutArguments parsed;
    QString message;
    QCOMPARE(parsed.parse(arguments, &message), error.isEmpty());
    QCOMPARE(message, error);
}

void TestPXHostInput::photoScaling_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<int>("maximalLength");
    QTest::addColumn<QSize>("working");

    QTest::newRow("landscape") << QSize(600, 400) << 300 << QSize(300, 200);
    QTest::newRow("portrait rounds") << QSize(301, 1000) << 500 << QSize(151, 500);
    QTest::newRow("thin line keeps a pixel") << QSize(1000, 1) << 100 << QSize(100, 1);
}

void TestPXHostInput::photoScaling()
{
    QFETCH(QSize, size);
    QFETCH(int, maximalLength);
    QFETCH(QSize, working);

    QImage image(size, QImage::Format_Indexed8);
    image.setColorTable({ qRgb(10, 20, 30) });
    image.fill(0);
    const PXHostPhoto photo = PXHostPhoto::fromImage(image, QFileInfo(), maximalLength);
    QCOMPARE(photo.working().size(), working);
    QCOMPARE(photo.working().format(), QImage::Format_ARGB32);
    QCOMPARE(photo.toWorking(QPointF(size.width(), size.height())), QPointF(working.width(), working.height()));
    QCOMPARE(photo.toPhoto(photo.toWorking(QPointF(7, 1))), QPointF(7, 1));
    QCOMPARE(photo.toPhotoSize(QImage(working, QImage::Format_ARGB32)).size(), size);
}

void TestPXHostInput::hugePhotoIsRefused()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    // A PNG header claiming 100000x100000 pixels (40 GB) and no pixel data.
    QFile huge(dir.filePath(QStringLiteral("huge.png")));
    QVERIFY(huge.open(QIODevice::WriteOnly));
    QDataStream png(&huge);
    png.writeRawData("\x89PNG\r\n\x1a\n", 8);
    auto chunk = [&png](const QByteArray& typeAndData) {
        quint32 crc = 0xFFFFFFFF;
        for (const char byte : typeAndData) {
            crc ^= uchar(byte);
            for (int bit = 0; bit < 8; ++bit)
                crc = (crc >> 1) ^ (0xEDB88320 & (0 - (crc & 1)));
        }
        png << quint32(typeAndData.size() - 4);
        png.writeRawData(typeAndData.constData(), int(typeAndData.size()));
        png << quint32(~crc);
    };
    QByteArray header("IHDR");
    QDataStream(&header, QIODevice::Append) << quint32(100000) << quint32(100000) << quint8(8) << quint8(2)
                                            << quint8(0) << quint8(0) << quint8(0);
    chunk(header);
    chunk("IDAT");
    huge.close();
    QString error;
    QVERIFY(PXHostPhoto::load(huge.fileName(), 1200, &error).isNull());
    QVERIFY2(error.contains(QStringLiteral("huge.png: 100000x100000 is too large")), qPrintable(error));
}

void TestPXHostInput::selectionEdits_data()
{
    QTest::addColumn<QString>("edit");
    QTest::addColumn<int>("amount");
    // Along the middle row of a 40x9 picture whose left 20 columns are selected.
    QTest::addColumn<QList<int>>("row");

    QTest::newRow("grow") << "grow" << 1 << QList<int> { 255, 255, 255, 255, 255, 0 };
    QTest::newRow("shrink") << "shrink" << 3 << QList<int> { 255, 0, 0, 0, 0, 0 };
    QTest::newRow("feather") << "feather" << 6 << QList<int> { 255, 234, 191, 149, 106, 64 };
    QTest::newRow("subtract") << "subtract" << 0 << QList<int> { 255, 255, 0, 0, 0, 0 };
}

void TestPXHostInput::selectionEdits()
{
    QFETCH(QString, edit);
    QFETCH(int, amount);
    QFETCH(QList<int>, row);

    // A second selection over columns 18 to 21.
    QImage selection(40, 9, QImage::Format_Grayscale8);
    QImage other(selection.size(), QImage::Format_Grayscale8);
    selection.fill(0);
    other.fill(0);
    for (int y = 0; y < 9; ++y) {
        std::fill_n(selection.scanLine(y), 20, uchar(255));
        std::fill_n(other.scanLine(y) + 18, 4, uchar(255));
    }

    const QImage result = edit == "grow" ? PXSelectionMask::grown(selection, amount)
        : edit == "shrink"              ? PXSelectionMask::shrunk(selection, amount)
        : edit == "feather"             ? PXSelectionMask::feathered(selection, amount)
                                        : PXSelectionMask::subtracted(selection, other);
    QCOMPARE(QList<int>(result.constScanLine(4) + 16, result.constScanLine(4) + 22), row);

    // The library's mask and back: transparent over the object.
    const QImage mask = PXSelectionMask::toMask(result, Qt::red);
    QCOMPARE(mask.pixel(0, 0), qRgba(0, 0, 0, 0));
    QCOMPARE(mask.pixel(39, 8), qRgb(255, 0, 0));
    QCOMPARE(PXSelectionMask::fromMask(mask), result);
}

QTEST_GUILESS_MAIN(TestPXHostInput)
#include "tst_pxhostinput.moc"
