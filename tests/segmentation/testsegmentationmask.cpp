// Mask output and undo: recolouring, inversion, the smooth mask, contours,
// path masks, mementos and the undo command.

#include "PXLogger.h"
#include "PXUndoCommandSegmentation.h"
#include "SegmentationTestSupport.h"

#include <QScopeGuard>
#include <QSemaphore>
#include <QUndoStack>
#include <QtConcurrent/QtConcurrentRun>

using namespace SegmentationTestSupport;

namespace {

const QList<QByteArray> myGrid = {"12", "34", "56"};
const QSet<int> myObject = {1, 2, 3, 4};

QImage gridLabels()
{
    return labelImage(myGrid, 4);
}

/** Marks as '#' the pixels of @p contour that are opaque white. */
QList<QByteArray> contourRows(const QImage& contour)
{
    QList<QByteArray> rows;
    for (int y = 0; y < contour.height(); ++y) {
        QByteArray row;
        for (int x = 0; x < contour.width(); ++x) {
            const QRgb pixel = contour.pixel(x, y);
            row += pixel == 0xFFFFFFFF ? '#' : pixel == 0 ? '.' : '?';
        }
        rows.append(row);
    }
    return rows;
}

} // namespace

class TestSegmentationMask : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void maskColourChangeRecolours_data();
    void maskColourChangeRecolours();
    void invertMaskSwapsMaskAndSets();
    void invertMaskWhileBusyFlipsOnlyTheFlag();
    void setMaskIsInvertedInvertsSynchronously();

    void smoothMaskIsOneBitBlurred();
    void contourNeedsTwoDifferingNeighbours_data();
    void contourNeedsTwoDifferingNeighbours();
    void createMaskFillsThePathWhite_data();
    void createMaskFillsThePathWhite();

    void mementoWithoutLabelsKeepsTheSegmentation();
    void mementoUnderAnotherColourRecolours();
    void undoCommandSkipsItsFirstRedo();
};

void TestSegmentationMask::maskColourChangeRecolours_data()
{
    QTest::addColumn<QColor>("colour");
    QTest::addColumn<bool>("repaints");
    QTest::addColumn<QRgb>("opaquePixel");

    QTest::newRow("red") << QColor(Qt::red) << true << qRgb(255, 0, 0);
    QTest::newRow("translucent red is painted opaque") << QColor(255, 0, 0, 40) << true
                                                       << qRgb(255, 0, 0);
    QTest::newRow("same rgb, other alpha") << QColor(0, 0, 0, 10) << false << myMaskColour;
}

void TestSegmentationMask::maskColourChangeRecolours()
{
    QFETCH(QColor, colour);
    QFETCH(bool, repaints);
    QFETCH(QRgb, opaquePixel);

    PXImageSegmentation controller;
    const QImage labels = gridLabels();
    craftSegmentation(controller, labels, myObject);
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);

    controller.setMaskColor(colour);
    settle(controller);

    QCOMPARE(masks.count(), repaints ? 1 : 0);
    const QImage mask = controller.maskForeground();
    QCOMPARE(mask.pixel(1, 9), opaquePixel);
    QCOMPARE(mask.pixel(1, 1), 0u);
    QCOMPARE(controller.maskColor().rgb(), colour.rgb());

    // Painting afterwards uses the new colour.
    controller.startThreadWithPaintSelection(square(1, 1, 2), false, false);
    settle(controller);
    QCOMPARE(controller.maskForeground().pixel(1, 1), opaquePixel);
}

void TestSegmentationMask::invertMaskSwapsMaskAndSets()
{
    PXImageSegmentation controller;
    const QImage labels = gridLabels();
    craftSegmentation(controller, labels, myObject);
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);

    controller.invertMask();
    QVERIFY(masks.wait());
    settle(controller);
    QVERIFY(controller.maskIsInverted());
    QCOMPARE(masks.last().first().value<QImage>(), maskOf(labels, {5, 6}));
    QCOMPARE(foregroundOf(controller), (QSet<int>{5, 6}));
    QCOMPARE(backgroundOf(controller), myObject);

    controller.invertMask();
    QVERIFY(masks.wait());
    settle(controller);
    QVERIFY(!controller.maskIsInverted());
    QCOMPARE(controller.maskForeground(), maskOf(labels, myObject));
    QCOMPARE(foregroundOf(controller), myObject);
    QCOMPARE(masks.count(), 2);
}

void TestSegmentationMask::invertMaskWhileBusyFlipsOnlyTheFlag()
{
    PXImageSegmentation controller;
    const QImage labels = gridLabels();
    craftSegmentation(controller, labels, myObject);

    // Holds the controller thread inside its hover pass.
    QSemaphore entered;
    QSemaphore release;
    bool held = false;
    connect(&controller, &PXImageSegmentation::sendNewMask, &controller,
            [&](const QImage&) {
                if (std::exchange(held, true))
                    return;
                entered.release();
                release.acquire();
            },
            Qt::DirectConnection);
    const auto unblock = qScopeGuard([&release]() { release.release(); });
    controller.startThreadWithPaintSelectionHover({5}, true);
    QVERIFY(entered.tryAcquire(1, 5000));

    controller.invertMask();
    QVERIFY(controller.maskIsInverted());
    controller.invertMask();
    QVERIFY(!controller.maskIsInverted());
    controller.invertMask();
    release.release();
    settle(controller);

    QVERIFY(controller.maskIsInverted());
    QCOMPARE(controller.maskForeground(), maskOf(labels, myObject));
    QCOMPARE(foregroundOf(controller), myObject);
}

void TestSegmentationMask::setMaskIsInvertedInvertsSynchronously()
{
    PXImageSegmentation controller;
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);

    // Before any segmentation only the flag changes.
    controller.setMaskIsInverted(true);
    QVERIFY(controller.maskIsInverted());
    QVERIFY(controller.maskForeground().isNull());

    const QImage labels = gridLabels();
    craftSegmentation(controller, labels, myObject);
    QVERIFY(!controller.maskIsInverted());
    QCoreApplication::processEvents();
    masks.clear();

    controller.setMaskIsInverted(true);
    QCOMPARE(controller.maskForeground(), maskOf(labels, {5, 6}));
    QCOMPARE(foregroundOf(controller), (QSet<int>{5, 6}));
    controller.setMaskIsInverted(true);
    QCOMPARE(controller.maskForeground(), maskOf(labels, {5, 6}));
    controller.setMaskIsInverted(false);
    QCOMPARE(controller.maskForeground(), maskOf(labels, myObject));

    QCoreApplication::processEvents();
    QCOMPARE(masks.count(), 0);
    QVERIFY(!controller.isRunning());
}

void TestSegmentationMask::smoothMaskIsOneBitBlurred()
{
    PXImageSegmentation controller;
    QVERIFY(controller.createSmoothForegroundMask(3).isNull());

    // Object on the left; the one-bit result sets the light background.
    craftSegmentation(controller, labelImage({"12"}, 16), {1});
    controller.setMaskColor(Qt::white);
    settle(controller);
    const QImage smooth = controller.createSmoothForegroundMask(3);
    QCOMPARE(smooth.format(), QImage::Format_Mono);
    QCOMPARE(smooth.size(), QSize(32, 16));
    for (const QPoint& background : {QPoint(16, 8), QPoint(24, 2), QPoint(31, 8)})
        QCOMPARE(smooth.pixelIndex(background), 1);
    // The blur fades the background's corners at the photo's edge.
    for (const QPoint& cleared : {QPoint(0, 0), QPoint(8, 8), QPoint(16, 0), QPoint(31, 15)})
        QCOMPARE(smooth.pixelIndex(cleared), 0);

    // Pixmaps need the application's thread.
    const QImage offThread = QtConcurrent::run([&controller]() {
                                 return controller.createSmoothForegroundMask(3);
                             }).result();
    QVERIFY(offThread.isNull());
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
    QTest::newRow("straight border")
        << QList<QByteArray>{"1122", "1122"} << QList<QByteArray>{".##.", ".##."};
    QTest::newRow("one label") << QList<QByteArray>{"333", "333"}
                               << QList<QByteArray>{"...", "..."};
}

void TestSegmentationMask::contourNeedsTwoDifferingNeighbours()
{
    QFETCH(QList<QByteArray>, labels);
    QFETCH(QList<QByteArray>, contour);

    PXImageSegmentation controller;
    QVERIFY(controller.drawContour().isNull());
    craftSegmentation(controller, labelImage(labels), {1});
    const QImage image = controller.drawContour();
    QCOMPARE(image.format(), QImage::Format_ARGB32);
    QCOMPARE(contourRows(image), contour);
}

void TestSegmentationMask::createMaskFillsThePathWhite_data()
{
    QTest::addColumn<QPainterPath>("path");
    QTest::addColumn<int>("whitePixels");

    QTest::newRow("empty path") << QPainterPath() << 0;
    QTest::newRow("square") << square(2, 3, 4) << 16;
    QTest::newRow("partly outside") << square(6, 10, 4) << 4;
    QTest::newRow("wholly outside") << square(-9, -9, 4) << 0;
}

void TestSegmentationMask::createMaskFillsThePathWhite()
{
    QFETCH(QPainterPath, path);
    QFETCH(int, whitePixels);

    PXImageSegmentation controller;
    QVERIFY(controller.createMask(path).isNull());
    craftSegmentation(controller, gridLabels(), myObject);

    const QImage mask = controller.createMask(path);
    QCOMPARE(mask.format(), QImage::Format_ARGB32_Premultiplied);
    QCOMPARE(mask.size(), QSize(8, 12));
    int white = 0;
    for (int y = 0; y < mask.height(); ++y) {
        for (int x = 0; x < mask.width(); ++x) {
            const QRgb pixel = mask.pixel(x, y);
            QVERIFY(pixel == 0xFF000000 || pixel == 0xFFFFFFFF);
            white += pixel == 0xFFFFFFFF ? 1 : 0;
            if (pixel == 0xFFFFFFFF)
                QVERIFY(path.contains(QPointF(x + 0.5, y + 0.5)));
        }
    }
    QCOMPARE(white, whitePixels);
}

void TestSegmentationMask::mementoWithoutLabelsKeepsTheSegmentation()
{
    PXImageSegmentation controller;
    craftSegmentation(controller, gridLabels(), myObject);
    std::unique_ptr<PXMementoSegmentation> withLabels(controller.createMemento(true));
    std::unique_ptr<PXMementoSegmentation> withoutLabels(controller.createMemento(false));
    QCOMPARE(withLabels->labels(), gridLabels());
    QCOMPARE(withLabels->pointsOfSuperpixels(), pointsOfLabels(gridLabels()));
    QVERIFY(withoutLabels->labels().isNull());
    QVERIFY(withoutLabels->pointsOfSuperpixels().isEmpty());

    // A newer segmentation: the grid turned upside down.
    const QImage newer = labelImage({"65", "43", "21"}, 4);
    const PXMementoSegmentation newerState(QPainterPath(), {5}, {1}, maskOf(newer, {5}), newer,
                                           pointsOfLabels(newer), QColor(myMaskColour));
    controller.setMemento(&newerState);

    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);
    controller.setMemento(withoutLabels.get());
    QVERIFY(masks.wait());
    QCOMPARE(masks.count(), 1);
    QCOMPARE(controller.safeGetSuperPixelAt(QPoint(0, 0)), 6);
    QCOMPARE(controller.pointsOfSuperpixel(QPointF(0, 0)), pointsOfLabels(newer).at(6));
    QCOMPARE(foregroundOf(controller), myObject);
    QCOMPARE(controller.maskForeground(), maskOf(gridLabels(), myObject));

    std::unique_ptr<PXMementoSegmentation> clone(withLabels->clone());
    QCOMPARE(clone->labels(), withLabels->labels());
    QCOMPARE(clone->mask(), withLabels->mask());
    QCOMPARE(clone->foregroundClusters(), withLabels->foregroundClusters());
    QCOMPARE(clone->backgroundClusters(), withLabels->backgroundClusters());
    QCOMPARE(clone->maskColor(), withLabels->maskColor());
}

void TestSegmentationMask::mementoUnderAnotherColourRecolours()
{
    PXImageSegmentation controller;
    const QImage labels = gridLabels();
    craftSegmentation(controller, labels, myObject);

    const PXMementoSegmentation red(QPainterPath(), {1}, {2, 3, 4, 5, 6}, maskOf(labels, {1}),
                                    QImage(), {}, QColor(Qt::red));
    controller.setMemento(&red);
    QCOMPARE(controller.maskColor(), QColor(Qt::red));
    const QImage mask = controller.maskForeground();
    QCOMPARE(mask.pixel(1, 1), 0u);
    QCOMPARE(mask.pixel(5, 1), qRgb(255, 0, 0));
    QCOMPARE(mask.pixel(7, 11), qRgb(255, 0, 0));
    // The memento's own mask is left as it was.
    QCOMPARE(red.mask().pixel(5, 1), myMaskColour);
}

void TestSegmentationMask::undoCommandSkipsItsFirstRedo()
{
    const QImage labels = gridLabels();
    auto controller = std::make_unique<PXImageSegmentation>();
    craftSegmentation(*controller, labels, myObject);
    SegmentationSignals relay(*controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);

    auto* before = new PXMementoSegmentation(QPainterPath(), {1}, {}, maskOf(labels, {1}), QImage(),
                                             {}, QColor(myMaskColour));
    auto* after = new PXMementoSegmentation(QPainterPath(), {2}, {}, maskOf(labels, {2}), QImage(),
                                            {}, QColor(myMaskColour));
    QUndoStack stack;
    stack.push(new PXUndoCommandSegmentation(before, after, controller.get()));
    QCOMPARE(stack.text(0), QStringLiteral("UndoSegmentation"));
    QCOMPARE(foregroundOf(*controller), myObject);

    stack.undo();
    QCOMPARE(foregroundOf(*controller), QSet<int>{1});
    QCOMPARE(controller->maskForeground(), maskOf(labels, {1}));
    stack.redo();
    QCOMPARE(foregroundOf(*controller), QSet<int>{2});
    QCOMPARE(controller->maskForeground(), maskOf(labels, {2}));
    QTRY_COMPARE(masks.count(), 2);

    // The stack outlives the photo's controller.
    controller.reset();
    stack.undo();
    stack.redo();
}

QTEST_MAIN(TestSegmentationMask)
#include "testsegmentationmask.moc"
