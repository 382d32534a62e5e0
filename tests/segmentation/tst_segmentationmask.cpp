// Mask output and undo: recolouring, inversion, the smooth mask, contours,
// path masks, mementos and the undo command.

#include "PXUndoCommandSegmentation.h"
#include "SegmentationTestSupport.h"

#include <QPainter>
#include <QScopeGuard>
#include <QSemaphore>
#include <QUndoStack>
#include <QtConcurrent/QtConcurrentRun>

namespace {

const QImage myLabels = labelImage({"12", "34", "56"}, 4);
const QSet<int> myObject = {1, 2, 3, 4};

} // namespace

class TestSegmentationMask : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void maskColourChangeRecolours_data();
    void maskColourChangeRecolours();
    void inversionSwapsMaskAndSets();
    void invertMaskWhileBusyFlipsOnlyTheFlag();
    void newPhotoWhileBusyEmitsNoOldMask();
    void smoothMaskIsOneBitBlurred();
    void contourNeedsTwoDifferingNeighbours_data();
    void contourNeedsTwoDifferingNeighbours();
    void createMaskFillsThePathWhite_data();
    void createMaskFillsThePathWhite();
    void mementoRestoresSetsMaskAndColour();
    void undoCommandSkipsItsFirstRedo();
};

void TestSegmentationMask::maskColourChangeRecolours_data()
{
    QTest::addColumn<QColor>("colour");
    QTest::addColumn<int>("masks");
    QTest::addColumn<QRgb>("opaque");

    QTest::newRow("red") << QColor(Qt::red) << 1 << qRgb(255, 0, 0);
    QTest::newRow("translucent red is painted opaque") << QColor(255, 0, 0, 40) << 1
                                                       << qRgb(255, 0, 0);
    QTest::newRow("only the alpha differs") << QColor(0, 0, 0, 10) << 0 << myMaskColour;
}

void TestSegmentationMask::maskColourChangeRecolours()
{
    QFETCH(QColor, colour);
    QFETCH(int, masks);
    QFETCH(QRgb, opaque);

    Host host;
    host.controller.setMaskColor(colour); // no mask yet: only stored
    host.settle();
    QCOMPARE(host.masks.count(), 0);
    host.craft(myLabels, myObject);

    host.controller.setMaskColor(colour);
    host.settle();
    QCOMPARE(host.masks.count(), masks);
    QCOMPARE(host.controller.maskForeground().pixel(1, 9), opaque);
    QCOMPARE(host.controller.maskForeground().pixel(1, 1), 0u);
    QCOMPARE(segLog().count("SEG:StartingThread"), masks);

    // Painting afterwards uses the new colour.
    host.controller.startThreadWithPaintSelection(square(1, 1, 2), false, false);
    host.settle();
    QCOMPARE(host.controller.maskForeground().pixel(1, 1), opaque);

    // A change made while a paint pass runs (here from its own emission)
    // cannot start the thread; it is applied once the pass ends.
    const auto connection = connect(&host.controller, &PXImageSegmentation::sendNewMask, &host.controller,
        [&host] { host.controller.setMaskColor(Qt::blue); }, Qt::DirectConnection);
    host.controller.startThreadWithPaintSelection(square(1, 1, 2), false, false);
    host.settle();
    disconnect(connection);
    QCOMPARE(host.controller.maskForeground().pixel(1, 9), qRgb(0, 0, 255));
}

void TestSegmentationMask::inversionSwapsMaskAndSets()
{
    Host host;
    // Before any segmentation only the flag changes.
    host.controller.setMaskIsInverted(true);
    QVERIFY(host.controller.maskIsInverted());
    QVERIFY(host.controller.maskForeground().isNull());

    host.craft(myLabels, myObject);
    QVERIFY(!host.controller.maskIsInverted());
    host.controller.invertMask();
    QVERIFY(host.masks.wait());
    host.settle();
    QVERIFY(host.controller.maskIsInverted());
    QCOMPARE(host.lastMask(), maskOf(myLabels, {5, 6}));
    QCOMPARE(host.object(), (QSet<int>{5, 6}));
    QCOMPARE(host.background(), myObject);

    // The synchronous entry point inverts only on a change, and emits nothing.
    host.controller.setMaskIsInverted(true);
    QCOMPARE(host.controller.maskForeground(), maskOf(myLabels, {5, 6}));
    host.controller.setMaskIsInverted(false);
    QCOMPARE(host.controller.maskForeground(), maskOf(myLabels, myObject));
    QCOMPARE(host.object(), myObject);
    host.settle();
    QCOMPARE(host.masks.count(), 1);
}

void TestSegmentationMask::invertMaskWhileBusyFlipsOnlyTheFlag()
{
    // Declared first: the thread may still call in while the host goes.
    QSemaphore entered;
    QSemaphore release;
    bool held = false;
    Host host;
    host.craft(myLabels, myObject);
    // Holds the controller thread inside its hover pass.
    connect(&host.controller, &PXImageSegmentation::sendNewMask, &host.controller,
            [&](const QImage&) {
                if (std::exchange(held, true))
                    return;
                entered.release();
                release.acquire();
            },
            Qt::DirectConnection);
    const auto unblock = qScopeGuard([&release]() { release.release(); });
    host.controller.startThreadWithPaintSelectionHover({5}, true);
    QVERIFY(entered.tryAcquire(1, 5000));

    host.controller.invertMask();
    host.controller.invertMask();
    QVERIFY(!host.controller.maskIsInverted());
    host.controller.invertMask();
    release.release();
    host.settle();

    QVERIFY(host.controller.maskIsInverted());
    QCOMPARE(host.controller.maskForeground(), maskOf(myLabels, myObject));
    QCOMPARE(host.object(), myObject);
}

void TestSegmentationMask::newPhotoWhileBusyEmitsNoOldMask()
{
    QSemaphore entered;
    bool held = false;
    Host host;
    host.craft(myLabels, myObject);
    // Keeps the inversion busy in its emission while the host sets up.
    connect(&host.controller, &PXImageSegmentation::sendNewMask, &host.controller,
            [&](const QImage&) {
                if (std::exchange(held, true))
                    return;
                entered.release();
                QThread::msleep(100);
            },
            Qt::DirectConnection);
    host.controller.invertMask();
    QVERIFY(entered.tryAcquire(1, 5000));
    QImage wider(myLabels.width() + 1, myLabels.height(), QImage::Format_RGB32);
    wider.fill(Qt::gray);
    host.controller.setup(wider, QFileInfo());
    QVERIFY(!host.controller.isRunning());
    QCoreApplication::processEvents();
    host.masks.clear();
    host.settle();
    QCOMPARE(host.masks.count(), 0);
}

void TestSegmentationMask::smoothMaskIsOneBitBlurred()
{
    Host host;
    QVERIFY(host.controller.createSmoothForegroundMask(3).isNull());
    // Object on the left; the one-bit result sets the light background.
    host.craft(labelImage({"12"}, 16), {1});
    host.controller.setMaskColor(Qt::white);
    host.settle();

    const QImage smooth = host.controller.createSmoothForegroundMask(3);
    QCOMPARE(smooth.format(), QImage::Format_Mono);
    QCOMPARE(smooth.size(), QSize(32, 16));
    for (const QPoint& background : {QPoint(16, 8), QPoint(24, 2), QPoint(31, 8)})
        QCOMPARE(smooth.pixelIndex(background), 1);
    // The blur fades the background's corners at the photo's edge.
    for (const QPoint& cleared : {QPoint(0, 0), QPoint(8, 8), QPoint(16, 0), QPoint(31, 15)})
        QCOMPARE(smooth.pixelIndex(cleared), 0);
    // Pixmaps need the application's thread.
    QVERIFY(QtConcurrent::run([&host]() { return host.controller.createSmoothForegroundMask(3); })
                .result()
                .isNull());
}

void TestSegmentationMask::contourNeedsTwoDifferingNeighbours_data()
{
    QTest::addColumn<QList<QByteArray>>("labels");
    QTest::addColumn<QList<QByteArray>>("contour");

    QTest::newRow("one-pixel line marks both sides")
        << QList<QByteArray>{"1112111", "1112111", "1112111"}
        << QList<QByteArray>{"..###..", "..###..", "..###.."};
    QTest::newRow("only a diagonal neighbour differs")
        << QList<QByteArray>{"1111", "1111", "1121", "1111"}
        << QList<QByteArray>{"....", "....", "..#.", "...."};
    QTest::newRow("straight border") << QList<QByteArray>{"1122", "1122"}
                                     << QList<QByteArray>{".##.", ".##."};
}

void TestSegmentationMask::contourNeedsTwoDifferingNeighbours()
{
    QFETCH(QList<QByteArray>, labels);
    QFETCH(QList<QByteArray>, contour);

    Host host;
    QVERIFY(host.controller.drawContour().isNull());
    host.craft(labelImage(labels), {1});
    const QImage image = host.controller.drawContour();
    QCOMPARE(image.format(), QImage::Format_ARGB32);
    QList<QByteArray> rows;
    for (int y = 0; y < image.height(); ++y) {
        rows.append(QByteArray());
        for (int x = 0; x < image.width(); ++x)
            rows.last() += image.pixel(x, y) == 0xFFFFFFFF ? '#' : image.pixel(x, y) == 0 ? '.' : '?';
    }
    QCOMPARE(rows, contour);
}

void TestSegmentationMask::createMaskFillsThePathWhite_data()
{
    QTest::addColumn<QPainterPath>("path");
    QTest::addColumn<int>("white");

    QTest::newRow("empty path") << QPainterPath() << 0;
    QTest::newRow("square") << square(2, 3, 4) << 16;
    QTest::newRow("partly outside") << square(6, 10, 4) << 4;
    QTest::newRow("wholly outside") << square(-9, -9, 4) << 0;
}

void TestSegmentationMask::createMaskFillsThePathWhite()
{
    QFETCH(QPainterPath, path);
    QFETCH(int, white);

    Host host;
    QVERIFY(host.controller.createMask(path).isNull());
    host.craft(myLabels, myObject);
    const QImage mask = host.controller.createMask(path);
    QCOMPARE(mask.format(), QImage::Format_ARGB32_Premultiplied);
    QCOMPARE(mask.size(), myLabels.size());
    int count = 0;
    for (int y = 0; y < mask.height(); ++y) {
        for (int x = 0; x < mask.width(); ++x) {
            const bool inside = path.contains(QPointF(x + 0.5, y + 0.5));
            QCOMPARE(mask.pixel(x, y), inside ? 0xFFFFFFFF : 0xFF000000);
            count += inside ? 1 : 0;
        }
    }
    QCOMPARE(count, white);
}

void TestSegmentationMask::mementoRestoresSetsMaskAndColour()
{
    Host host;
    host.craft(myLabels, myObject);
    std::unique_ptr<PXMementoSegmentation> withLabels(host.controller.createMemento(true));
    std::unique_ptr<PXMementoSegmentation> withoutLabels(host.controller.createMemento(false));
    QCOMPARE(withLabels->labels(), myLabels);
    QCOMPARE(withLabels->pointsOfSuperpixels(), pointsOfLabels(myLabels));
    QVERIFY(withoutLabels->labels().isNull());
    QVERIFY(withoutLabels->pointsOfSuperpixels().isEmpty());

    // A newer segmentation, the grid upside down, under a red mask.
    const QImage newer = labelImage({"65", "43", "21"}, 4);
    const PXMementoSegmentation red(QPainterPath(), {5}, {1}, maskOf(newer, {5}), newer,
                                    pointsOfLabels(newer), QColor(Qt::red));
    host.controller.setMemento(&red);
    QCOMPARE(host.controller.maskColor(), QColor(Qt::red));
    QCOMPARE(host.controller.maskForeground().pixel(0, 0), qRgb(255, 0, 0));
    QCOMPARE(host.controller.maskForeground().pixel(4, 0), 0u);
    QCOMPARE(red.mask().pixel(0, 0), myMaskColour); // the memento keeps its own mask

    // Without labels the newer labels stay; sets, mask and colour come back.
    host.controller.setMemento(withoutLabels.get());
    QCOMPARE(host.controller.safeGetSuperPixelAt(QPoint(0, 0)), 6);
    QCOMPARE(host.object(), myObject);
    QCOMPARE(host.controller.maskForeground(), maskOf(myLabels, myObject));
    QCOMPARE(host.controller.maskColor(), QColor(myMaskColour));
    QTRY_COMPARE(host.masks.count(), 2);

    std::unique_ptr<PXMementoSegmentation> clone(withLabels->clone());
    QCOMPARE(clone->labels(), withLabels->labels());
    QCOMPARE(clone->mask(), withLabels->mask());
    QCOMPARE(clone->foregroundClusters(), withLabels->foregroundClusters());
    QCOMPARE(clone->backgroundClusters(), withLabels->backgroundClusters());

    // Taken while a colour change was pending: pixels of the old colour
    // (red), the controller's new one (black) recorded. Restored in black.
    QImage stale = maskOf(myLabels, myObject);
    QPainter(&stale).fillRect(stale.rect(), QColor(Qt::red)); // QPainter's default SourceOver: all red
    const PXMementoSegmentation pending(QPainterPath(), myObject, {5, 6}, stale, QImage(), {}, QColor(myMaskColour));
    host.controller.setMemento(&pending);
    QCOMPARE(host.controller.maskForeground().pixel(1, 9), myMaskColour);

    // A photo of another size drops the mask; an old photo's memento (an
    // undo command from before) is ignored.
    QImage wider(myLabels.width() + 1, myLabels.height(), QImage::Format_RGB32);
    wider.fill(Qt::gray);
    host.controller.setup(wider, QFileInfo());
    QVERIFY(host.controller.maskForeground().isNull());
    host.controller.setMemento(withLabels.get());
    QVERIFY(host.controller.maskForeground().isNull());
    QCOMPARE(host.controller.safeGetSuperPixelAt(QPoint(0, 0)), 6);
}

void TestSegmentationMask::undoCommandSkipsItsFirstRedo()
{
    auto host = std::make_unique<Host>();
    host->craft(myLabels, myObject);
    QUndoStack stack;
    stack.push(new PXUndoCommandSegmentation(
        new PXMementoSegmentation(QPainterPath(), {1}, {}, maskOf(myLabels, {1}), QImage(), {},
                                  QColor(myMaskColour)),
        new PXMementoSegmentation(QPainterPath(), {2}, {}, maskOf(myLabels, {2}), QImage(), {},
                                  QColor(myMaskColour)),
        &host->controller));
    QCOMPARE(host->object(), myObject);

    stack.undo();
    QCOMPARE(host->controller.maskForeground(), maskOf(myLabels, {1}));
    stack.redo();
    QCOMPARE(host->controller.maskForeground(), maskOf(myLabels, {2}));
    QTRY_COMPARE(host->masks.count(), 2);

    // The stack outlives the photo's controller.
    host.reset();
    stack.undo();
    stack.redo();
}

QTEST_MAIN(TestSegmentationMask)
#include "tst_segmentationmask.moc"
