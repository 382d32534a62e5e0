// The refinement tools on a crafted segmentation: clicker, paint selection,
// scribble, hover, the brush queries and the undo of a gesture.

#include "PXLogger.h"
#include "PXUndoController.h"
#include "SegmentationTestSupport.h"

#include <QApplication>
#include <QUndoStack>

using namespace SegmentationTestSupport;

namespace {

// Six 4 x 4 superpixels; the top four are the object.
const QList<QByteArray> myGrid = {"12", "34", "56"};
const QSet<int> myObject = {1, 2, 3, 4};

QImage gridLabels()
{
    return labelImage(myGrid, 4);
}

QStringList segLog()
{
    return PXSingleton<PXLogger>::instance()->history();
}

void clearLog()
{
    PXSingleton<PXLogger>::instance()->clearHistory();
}

} // namespace

class TestSegmentationRefinement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void clickTogglesOneSuperpixel_data();
    void clickTogglesOneSuperpixel();

    void paintSelectionMovesWholeSuperpixels_data();
    void paintSelectionMovesWholeSuperpixels();
    void strokesQueuedWhileBusyAreUnitedInOnePass();
    void scribbleChangesPixelsButNotSets();

    void gestureIsUndoneAndRedoneAsOneCommand();

    void hoverPreviewsWithoutChangingTheMask_data();
    void hoverPreviewsWithoutChangingTheMask();

    void brushFindsLabelsWithinTruncatedDistance_data();
    void brushFindsLabelsWithinTruncatedDistance();
    void pointQueriesRoundAndClamp_data();
    void pointQueriesRoundAndClamp();

    void requestsWithoutSegmentationAreHarmless();
};

void TestSegmentationRefinement::init()
{
    PXUndoController::instanceForFotoEditor()->undoStack()->clear();
}

void TestSegmentationRefinement::clickTogglesOneSuperpixel_data()
{
    QTest::addColumn<QPointF>("position");
    QTest::addColumn<QSet<int>>("background");
    QTest::addColumn<QSet<int>>("expectedForeground");

    const QSet<int> all = {5, 6};
    QTest::newRow("object to background") << QPointF(2, 2) << all << QSet<int>{2, 3, 4};
    QTest::newRow("background to object") << QPointF(1, 9) << all << QSet<int>{1, 2, 3, 4, 5};
    QTest::newRow("in neither set") << QPointF(6, 10) << QSet<int>{5} << QSet<int>{1, 2, 3, 4, 6};
    QTest::newRow("far outside, clamped to the corner") << QPointF(-1e12, -50) << all
                                                        << QSet<int>{2, 3, 4};
    QTest::newRow("rounded half away from zero") << QPointF(3.5, 7.5) << all
                                                 << QSet<int>{1, 2, 3, 4, 6};
    QTest::newRow("NaN") << QPointF(qQNaN(), 0) << all << QSet<int>{1, 3, 4};
}

void TestSegmentationRefinement::clickTogglesOneSuperpixel()
{
    QFETCH(QPointF, position);
    QFETCH(QSet<int>, background);
    QFETCH(QSet<int>, expectedForeground);

    PXImageSegmentation controller;
    const QImage labels = gridLabels();
    craftSegmentation(controller, labels, myObject, background);
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);

    controller.startThreadWithClicker(position);
    settle(controller);

    QCOMPARE(foregroundOf(controller), expectedForeground);
    QCOMPARE(controller.maskForeground(), maskOf(labels, expectedForeground));
    QCOMPARE(masks.count(), 0);
    QVERIFY(!controller.isRunning());
}

void TestSegmentationRefinement::paintSelectionMovesWholeSuperpixels_data()
{
    QTest::addColumn<QPainterPath>("stroke");
    QTest::addColumn<bool>("isForeground");
    QTest::addColumn<QSet<int>>("expectedForeground");

    QTest::newRow("one pixel moves the whole superpixel out")
        << square(1, 1, 2) << false << QSet<int>{2, 3, 4};
    QTest::newRow("across two superpixels in") << square(2, 9, 4) << true
                                               << QSet<int>{1, 2, 3, 4, 5, 6};
    // Rows 0..4 are painted, but the rectangle's last row (4) is not read.
    QPainterPath topRows;
    topRows.addRect(0, 0, 8, 5);
    QTest::newRow("last row of the stroke is not read") << topRows << false << QSet<int>{3, 4};
    QTest::newRow("clipped by the photo's edge") << square(5, 10, 20) << true
                                                 << QSet<int>{1, 2, 3, 4, 6};
    QTest::newRow("outside the photo") << square(40, 40, 5) << false << myObject;
}

void TestSegmentationRefinement::paintSelectionMovesWholeSuperpixels()
{
    QFETCH(QPainterPath, stroke);
    QFETCH(bool, isForeground);
    QFETCH(QSet<int>, expectedForeground);

    PXImageSegmentation controller;
    const QImage labels = gridLabels();
    craftSegmentation(controller, labels, myObject);
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);
    clearLog();

    controller.startThreadWithPaintSelection(stroke, isForeground, false);
    QVERIFY(masks.wait());
    settle(controller);

    QCOMPARE(masks.count(), 1);
    QCOMPARE(foregroundOf(controller), expectedForeground);
    QCOMPARE(masks.first().first().value<QImage>(), maskOf(labels, expectedForeground));
    QCOMPARE(controller.lastPath(), stroke);
    QCOMPARE(segLog(), (QStringList{"SEG:StartingThread", "SEG:RunningThread", "SEG:CutIS"}));
}

void TestSegmentationRefinement::strokesQueuedWhileBusyAreUnitedInOnePass()
{
    PXImageSegmentation controller;
    const QImage labels = gridLabels();
    craftSegmentation(controller, labels, myObject);
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);
    clearLog();

    // While the first pass emits, the thread is busy: two more strokes wait.
    bool queued = false;
    connect(&controller, &PXImageSegmentation::sendNewMask, &controller,
            [&](const QImage&) {
                if (std::exchange(queued, true))
                    return;
                controller.startThreadWithPaintSelection(square(5, 1, 2), false, false);
                controller.startThreadWithPaintSelection(square(1, 5, 2), false, false);
            },
            Qt::DirectConnection);
    controller.startThreadWithPaintSelection(square(1, 1, 2), false, false);
    QTRY_COMPARE(masks.count(), 2);
    settle(controller);

    QCOMPARE(masks.count(), 2);
    QCOMPARE(foregroundOf(controller), QSet<int>{4});
    QCOMPARE(masks.last().first().value<QImage>(), maskOf(labels, {4}));
    QCOMPARE(segLog().count("SEG:CutIS"), 2);
    QCOMPARE(segLog().count("SEG:StartingThread"), 1);
}

void TestSegmentationRefinement::scribbleChangesPixelsButNotSets()
{
    PXImageSegmentation controller;
    const QImage labels = gridLabels();
    craftSegmentation(controller, labels, myObject);
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);
    clearLog();

    controller.startThreadWithScribble(square(1, 9, 2), true, false);
    QVERIFY(masks.wait());
    settle(controller);

    QImage expected = maskOf(labels, myObject);
    for (int y = 9; y < 11; ++y)
        for (int x = 1; x < 3; ++x)
            expected.setPixel(x, y, 0);
    QCOMPARE(masks.first().first().value<QImage>(), expected);
    QCOMPARE(foregroundOf(controller), myObject);
    QCOMPARE(segLog(), (QStringList{"SEG:StartingThread", "SEG:RunningThread", "SEG:CutS"}));
}

void TestSegmentationRefinement::gestureIsUndoneAndRedoneAsOneCommand()
{
    PXImageSegmentation controller;
    const QImage labels = gridLabels();
    craftSegmentation(controller, labels, myObject);
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);
    QUndoStack* stack = controller.undoController()->undoStack();
    QSignalSpy pushed(controller.undoController(), &PXUndoController::commandPushed);

    const QImage before = controller.maskForeground();
    controller.startThreadWithPaintSelection(square(1, 1, 2), false, true);
    QVERIFY(masks.wait());
    controller.startThreadWithPaintSelection(square(5, 1, 2), false, true);
    QVERIFY(masks.wait());
    const QImage afterTemporaryStrokes = masks.last().first().value<QImage>();
    controller.startThreadWithPaintSelection(square(1, 5, 2), false, false);
    QVERIFY(pushed.wait());
    QTRY_COMPARE(masks.count(), 3);
    // A second final stroke has no gesture to close.
    controller.startThreadWithPaintSelection(square(5, 5, 2), false, false);
    QTRY_COMPARE(masks.count(), 4);
    settle(controller);

    QCOMPARE(stack->count(), 1);
    QCOMPARE(stack->text(0), QStringLiteral("UndoSegmentation"));
    // Pushing did not repaint anything.
    QCOMPARE(masks.count(), 4);
    QCOMPARE(foregroundOf(controller), QSet<int>());

    stack->undo();
    QTRY_COMPARE(masks.count(), 5);
    QCOMPARE(controller.maskForeground(), before);
    QCOMPARE(masks.last().first().value<QImage>(), before);
    QCOMPARE(foregroundOf(controller), myObject);
    QCOMPARE(backgroundOf(controller), (QSet<int>{5, 6}));

    // The after state was taken before the final stroke was painted.
    stack->redo();
    QTRY_COMPARE(masks.count(), 6);
    QCOMPARE(controller.maskForeground(), afterTemporaryStrokes);
    QCOMPARE(foregroundOf(controller), (QSet<int>{3, 4}));
}

void TestSegmentationRefinement::hoverPreviewsWithoutChangingTheMask_data()
{
    QTest::addColumn<QSet<int>>("clusters");
    QTest::addColumn<bool>("isForeground");
    QTest::addColumn<QImage>("expected");

    const QImage labels = gridLabels();
    QTest::newRow("background label as object") << QSet<int>{5} << true
                                                << maskOf(labels, {1, 2, 3, 4, 5});
    QTest::newRow("unknown labels are skipped") << QSet<int>{6, 99, -3} << true
                                                << maskOf(labels, {1, 2, 3, 4, 6});
    QTest::newRow("object label as background") << QSet<int>{2} << false
                                                << maskOf(labels, {1, 3, 4});
    // The top-left pixel is never written by a preview.
    QImage topLeftKept = maskOf(labels, {2, 3, 4});
    topLeftKept.setPixel(0, 0, 0);
    QTest::newRow("top-left pixel kept") << QSet<int>{1} << false << topLeftKept;
    QTest::newRow("nothing to show") << QSet<int>() << true << QImage();
}

void TestSegmentationRefinement::hoverPreviewsWithoutChangingTheMask()
{
    QFETCH(QSet<int>, clusters);
    QFETCH(bool, isForeground);
    QFETCH(QImage, expected);

    PXImageSegmentation controller;
    craftSegmentation(controller, gridLabels(), myObject);
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);
    const QImage mask = controller.maskForeground();

    controller.startThreadWithPaintSelectionHover(clusters, isForeground);
    QVERIFY(masks.wait());
    settle(controller);

    QCOMPARE(masks.count(), 1);
    QCOMPARE(masks.first().first().value<QImage>(), expected);
    QCOMPARE(controller.maskForeground(), mask);
    QCOMPARE(foregroundOf(controller), myObject);
}

void TestSegmentationRefinement::brushFindsLabelsWithinTruncatedDistance_data()
{
    QTest::addColumn<QPoint>("centre");
    QTest::addColumn<int>("radius");
    QTest::addColumn<QSet<int>>("expected");

    // Label 0 in the bottom right cell is never reported by a brush.
    QTest::newRow("radius 1 reads the clamped centre") << QPoint(-5, 100) << 1 << QSet<int>{5};
    QTest::newRow("radius 0 is the centre") << QPoint(3, 3) << 0 << QSet<int>{1};
    QTest::newRow("diagonal neighbour at half 1") << QPoint(3, 3) << 2 << QSet<int>{1, 2, 3, 4};
    QTest::newRow("radius 3 has half 1 as well") << QPoint(3, 3) << 3 << QSet<int>{1, 2, 3, 4};
    QTest::newRow("label 0 is skipped") << QPoint(4, 11) << 2 << QSet<int>{5};
    QTest::newRow("centre off the photo") << QPoint(-10, 3) << 24 << QSet<int>{1, 3, 5};
    QTest::newRow("far off the photo") << QPoint(INT_MAX, INT_MIN) << 6 << QSet<int>();
    QTest::newRow("negative radius") << QPoint(3, 3) << -4 << QSet<int>();
}

void TestSegmentationRefinement::brushFindsLabelsWithinTruncatedDistance()
{
    QFETCH(QPoint, centre);
    QFETCH(int, radius);
    QFETCH(QSet<int>, expected);

    PXImageSegmentation controller;
    craftSegmentation(controller, labelImage({"12", "34", "50"}, 4), {1, 2});
    QCOMPARE(controller.superpixels(centre, radius), expected);
}

void TestSegmentationRefinement::pointQueriesRoundAndClamp_data()
{
    QTest::addColumn<QPointF>("point");
    QTest::addColumn<int>("label");

    QTest::newRow("inside") << QPointF(5, 9) << 6;
    QTest::newRow("3.5 rounds up into the next cell") << QPointF(3.5, 0) << 2;
    QTest::newRow("3.4 stays") << QPointF(3.4, 0) << 1;
    QTest::newRow("clamped right and below") << QPointF(500, 500) << 6;
    QTest::newRow("clamped left") << QPointF(-0.6, 4) << 3;
}

void TestSegmentationRefinement::pointQueriesRoundAndClamp()
{
    QFETCH(QPointF, point);
    QFETCH(int, label);

    PXImageSegmentation controller;
    const QImage labels = gridLabels();
    craftSegmentation(controller, labels, myObject);
    QCOMPARE(controller.pointsOfSuperpixel(point), pointsOfLabels(labels).at(label));
    QCOMPARE(controller.safeGetSuperPixelAt(point.toPoint()),
             int(labels.pixel(qBound(0, point.toPoint().x(), 7), qBound(0, point.toPoint().y(), 11))));
}

void TestSegmentationRefinement::requestsWithoutSegmentationAreHarmless()
{
    PXImageSegmentation controller;
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);

    controller.startThreadWithClicker(QPointF(3, 3));
    controller.startThreadWithPaintSelection(square(0, 0, 5), true, false);
    settle(controller);
    controller.startThreadWithScribble(square(0, 0, 5), false, false);
    settle(controller);
    controller.startThreadWithPaintSelectionHover({1, 2}, true);
    settle(controller);
    controller.pushUndoCommand();
    controller.clearLastScribble();

    QVERIFY(!controller.isValid());
    QCOMPARE(nonNullCount(masks), 0);
    QCOMPARE(controller.superpixels(QPoint(1, 1), 5), QSet<int>());
    QCOMPARE(controller.pointsOfSuperpixel(QPointF(1, 1)), QList<QPoint>());
    QCOMPARE(controller.safeGetSuperPixelAt(QPoint(1, 1)), 0);
    QVERIFY(!controller.containsPath(square(0, 0, 1)));
    QCOMPARE(PXUndoController::instanceForFotoEditor()->undoStack()->count(), 0);
}

QTEST_MAIN(TestSegmentationRefinement)
#include "testsegmentationrefinement.moc"
