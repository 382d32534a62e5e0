// The refinement tools on a crafted segmentation: clicker, paint selection,
// scribble, hover, the brush query and the undo of a gesture.

#include "PXUndoController.h"
#include "SegmentationTestSupport.h"

#include <QUndoStack>

namespace {

// Six 4 x 4 superpixels in an 8 x 12 photo; the top four are the object.
const QImage myLabels = labelImage({"12", "34", "56"}, 4);
const QSet<int> myObject = {1, 2, 3, 4};

} // namespace

class TestSegmentationRefinement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void clickTogglesOneSuperpixel_data();
    void clickTogglesOneSuperpixel();
    void strokeChangesTheMask_data();
    void strokeChangesTheMask();
    void strokesQueuedWhileBusyAreUnitedInOnePass();
    void gestureIsUndoneAndRedoneAsOneCommand();
    void hoverPreviewsWithoutChangingTheMask_data();
    void hoverPreviewsWithoutChangingTheMask();
    void brushFindsLabelsWithinTruncatedDistance_data();
    void brushFindsLabelsWithinTruncatedDistance();
};

void TestSegmentationRefinement::clickTogglesOneSuperpixel_data()
{
    QTest::addColumn<QPointF>("position");
    QTest::addColumn<QSet<int>>("background");
    QTest::addColumn<int>("label");
    QTest::addColumn<QSet<int>>("object");

    const QSet<int> rest = {5, 6};
    QTest::newRow("object to background") << QPointF(2, 2) << rest << 1 << QSet<int>{2, 3, 4};
    QTest::newRow("background to object") << QPointF(1, 9) << rest << 5
                                          << QSet<int>{1, 2, 3, 4, 5};
    QTest::newRow("in neither set") << QPointF(6, 10) << QSet<int>{5} << 6
                                    << QSet<int>{1, 2, 3, 4, 6};
    QTest::newRow("far outside, clamped") << QPointF(-1e12, -50) << rest << 1 << QSet<int>{2, 3, 4};
    QTest::newRow("3.5 rounds to 4") << QPointF(3.5, 7.5) << rest << 6 << QSet<int>{1, 2, 3, 4, 6};
    QTest::newRow("NaN") << QPointF(qQNaN(), 0) << rest << 2 << QSet<int>{1, 3, 4};
}

void TestSegmentationRefinement::clickTogglesOneSuperpixel()
{
    QFETCH(QPointF, position);
    QFETCH(QSet<int>, background);
    QFETCH(int, label);
    QFETCH(QSet<int>, object);

    Host host;
    host.craft(myLabels, myObject, background);
    QCOMPARE(host.controller.pointsOfSuperpixel(position), pointsOfLabels(myLabels).at(label));
    host.controller.startThreadWithClicker(position);
    host.settle();

    QCOMPARE(host.object(), object);
    QCOMPARE(host.controller.maskForeground(), maskOf(myLabels, object));
    QCOMPARE(host.masks.count(), 0);
}

void TestSegmentationRefinement::strokeChangesTheMask_data()
{
    QTest::addColumn<bool>("scribble");
    QTest::addColumn<QPainterPath>("stroke");
    QTest::addColumn<bool>("isForeground");
    QTest::addColumn<QSet<int>>("object");
    QTest::addColumn<QImage>("mask");

    // A stroke's last row and column are not read: a 2 x 2 square reads one pixel.
    QTest::newRow("one pixel moves its superpixel") << false << square(1, 1, 2) << false
                                                    << QSet<int>{2, 3, 4} << maskOf(myLabels, {2, 3, 4});
    QTest::newRow("across two superpixels") << false << square(2, 9, 4) << true
                                            << QSet<int>{1, 2, 3, 4, 5, 6}
                                            << maskOf(myLabels, {1, 2, 3, 4, 5, 6});
    QPainterPath topRows;
    topRows.addRect(0, 0, 8, 5);
    QTest::newRow("row 4 painted but not read") << false << topRows << false << QSet<int>{3, 4}
                                                << maskOf(myLabels, {3, 4});
    QTest::newRow("outside the photo") << false << square(40, 40, 5) << false << myObject
                                       << maskOf(myLabels, myObject);
    QImage scribbled = maskOf(myLabels, myObject);
    for (const QPoint& pixel : {QPoint(1, 9), QPoint(2, 9), QPoint(1, 10), QPoint(2, 10)})
        scribbled.setPixel(pixel, 0);
    QTest::newRow("scribble keeps the sets") << true << square(1, 9, 2) << true << myObject
                                             << scribbled;
}

void TestSegmentationRefinement::strokeChangesTheMask()
{
    QFETCH(bool, scribble);
    QFETCH(QPainterPath, stroke);
    QFETCH(bool, isForeground);
    QFETCH(QSet<int>, object);
    QFETCH(QImage, mask);

    Host host;
    host.craft(myLabels, myObject);
    if (scribble)
        host.controller.startThreadWithScribble(stroke, isForeground, false);
    else
        host.controller.startThreadWithPaintSelection(stroke, isForeground, false);
    QVERIFY(host.masks.wait());
    host.settle();

    QCOMPARE(host.masks.count(), 1);
    QCOMPARE(host.object(), object);
    QCOMPARE(host.lastMask(), mask);
    QCOMPARE(host.controller.lastPath(), scribble ? QPainterPath() : stroke);
    QCOMPARE(segLog(), (QStringList{"SEG:StartingThread", "SEG:RunningThread",
                                    scribble ? "SEG:CutS" : "SEG:CutIS"}));
}

void TestSegmentationRefinement::strokesQueuedWhileBusyAreUnitedInOnePass()
{
    Host host;
    host.craft(myLabels, myObject);
    // While the first pass emits, the thread is busy: two more strokes wait.
    bool queued = false;
    connect(&host.controller, &PXImageSegmentation::sendNewMask, &host.controller,
            [&](const QImage&) {
                if (std::exchange(queued, true))
                    return;
                host.controller.startThreadWithPaintSelection(square(5, 1, 2), false, false);
                host.controller.startThreadWithPaintSelection(square(1, 5, 2), false, false);
            },
            Qt::DirectConnection);
    host.controller.startThreadWithPaintSelection(square(1, 1, 2), false, false);
    QTRY_COMPARE(host.masks.count(), 2);
    host.settle();

    QCOMPARE(host.masks.count(), 2);
    QCOMPARE(host.lastMask(), maskOf(myLabels, {4}));
    QCOMPARE(segLog().count("SEG:CutIS"), 2);
    QCOMPARE(segLog().count("SEG:StartingThread"), 1);
}

void TestSegmentationRefinement::gestureIsUndoneAndRedoneAsOneCommand()
{
    Host host;
    host.craft(myLabels, myObject);
    QUndoStack* stack = host.controller.undoController()->undoStack();
    stack->clear();
    QSignalSpy pushed(host.controller.undoController(), &PXUndoController::commandPushed);

    const QImage before = host.controller.maskForeground();
    host.controller.startThreadWithPaintSelection(square(1, 1, 2), false, true);
    QVERIFY(host.masks.wait());
    host.controller.startThreadWithPaintSelection(square(5, 1, 2), false, true);
    QVERIFY(host.masks.wait());
    const QImage beforeFinalStroke = host.lastMask();
    host.controller.startThreadWithPaintSelection(square(1, 5, 2), false, false);
    QVERIFY(pushed.wait());
    // A second final stroke has no gesture to close.
    host.controller.startThreadWithPaintSelection(square(5, 5, 2), false, false);
    QTRY_COMPARE(host.masks.count(), 4);
    host.settle();

    QCOMPARE(stack->count(), 1);
    QCOMPARE(stack->text(0), QStringLiteral("UndoSegmentation"));
    QCOMPARE(host.masks.count(), 4); // pushing repainted nothing
    QCOMPARE(host.object(), QSet<int>());

    stack->undo();
    QTRY_COMPARE(host.masks.count(), 5);
    QCOMPARE(host.lastMask(), before);
    QCOMPARE(host.object(), myObject);
    QCOMPARE(host.background(), (QSet<int>{5, 6}));

    // The after state was taken before the final stroke was painted.
    stack->redo();
    QTRY_COMPARE(host.masks.count(), 6);
    QCOMPARE(host.lastMask(), beforeFinalStroke);
    QCOMPARE(host.object(), (QSet<int>{3, 4}));
    stack->clear();
}

void TestSegmentationRefinement::hoverPreviewsWithoutChangingTheMask_data()
{
    QTest::addColumn<QSet<int>>("clusters");
    QTest::addColumn<bool>("isForeground");
    QTest::addColumn<QImage>("preview");

    QTest::newRow("as object") << QSet<int>{5} << true << maskOf(myLabels, {1, 2, 3, 4, 5});
    QTest::newRow("unknown labels skipped") << QSet<int>{6, 99, -3} << true
                                            << maskOf(myLabels, {1, 2, 3, 4, 6});
    QImage topLeftKept = maskOf(myLabels, {2, 3, 4});
    topLeftKept.setPixel(0, 0, 0);
    QTest::newRow("as background, top-left pixel never written") << QSet<int>{1} << false
                                                                 << topLeftKept;
    QTest::newRow("nothing to show") << QSet<int>() << true << QImage();
}

void TestSegmentationRefinement::hoverPreviewsWithoutChangingTheMask()
{
    QFETCH(QSet<int>, clusters);
    QFETCH(bool, isForeground);
    QFETCH(QImage, preview);

    Host host;
    host.craft(myLabels, myObject);
    host.controller.startThreadWithPaintSelectionHover(clusters, isForeground);
    QVERIFY(host.masks.wait());
    host.settle();

    QCOMPARE(host.masks.count(), 1);
    QCOMPARE(host.lastMask(), preview);
    QCOMPARE(host.controller.maskForeground(), maskOf(myLabels, myObject));
    QCOMPARE(host.object(), myObject);
}

void TestSegmentationRefinement::brushFindsLabelsWithinTruncatedDistance_data()
{
    QTest::addColumn<QPoint>("centre");
    QTest::addColumn<int>("radius");
    QTest::addColumn<QSet<int>>("labels");

    QTest::newRow("radius 1 reads the clamped centre") << QPoint(-5, 100) << 1 << QSet<int>{5};
    QTest::newRow("radius 0") << QPoint(3, 3) << 0 << QSet<int>{1};
    QTest::newRow("diagonal neighbour at half 1") << QPoint(3, 3) << 2 << QSet<int>{1, 2, 3, 4};
    QTest::newRow("radius 3 has half 1 too") << QPoint(3, 3) << 3 << QSet<int>{1, 2, 3, 4};
    QTest::newRow("label 0 skipped") << QPoint(4, 11) << 2 << QSet<int>{5};
    QTest::newRow("centre off the photo") << QPoint(-10, 3) << 24 << QSet<int>{1, 3, 5};
    QTest::newRow("far off the photo") << QPoint(INT_MAX, INT_MIN) << 6 << QSet<int>();
    QTest::newRow("negative radius") << QPoint(3, 3) << -4 << QSet<int>();
}

void TestSegmentationRefinement::brushFindsLabelsWithinTruncatedDistance()
{
    QFETCH(QPoint, centre);
    QFETCH(int, radius);
    QFETCH(QSet<int>, labels);

    Host host;
    host.craft(labelImage({"12", "34", "50"}, 4), {1, 2});
    QCOMPARE(host.controller.superpixels(centre, radius), labels);
}

QTEST_MAIN(TestSegmentationRefinement)
#include "testsegmentationrefinement.moc"
