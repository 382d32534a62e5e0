// Refinement, mask and undo requests as a host sends them: what runs on the
// controller thread, what is emitted, and requests that meet a busy thread.

#include "PXUndoCommandSegmentation.h"
#include "SegmentationTestSupport.h"

#include <QScopeGuard>
#include <QSemaphore>
#include <QUndoStack>
#include <QtConcurrent/QtConcurrentRun>

namespace {

// Six 4 x 4 superpixels in an 8 x 12 photo; the top four are the object.
const QImage myLabels = labelImage({"12", "34", "56"}, 4);
const QSet<int> myObject = {1, 2, 3, 4};

} // namespace

class TestSegmentationRefinement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestReachesTheSelection_data();
    void requestReachesTheSelection();
    void strokesQueuedWhileBusyAreUnitedInOnePass();
    void invertMaskWhileBusyFlipsOnlyTheFlag();
    void synchronousInversionEmitsNothing();
    void smoothMaskIsOneBitBlurred();
    void undoCommandSkipsItsFirstRedo();
};

void TestSegmentationRefinement::requestReachesTheSelection_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<QSet<int>>("object");
    QTest::addColumn<QImage>("emitted");
    QTest::addColumn<QImage>("mask");

    const QStringList started = {"SEG:StartingThread", "SEG:RunningThread"};
    QTest::newRow("paint") << "paint" << started + QStringList{"SEG:CutIS"} << QSet<int>{2, 3, 4}
                           << maskOf(myLabels, {2, 3, 4}) << maskOf(myLabels, {2, 3, 4});
    QImage scribbled = maskOf(myLabels, myObject);
    scribbled.setPixel(1, 1, myMaskColour);
    QTest::newRow("scribble") << "scribble" << started + QStringList{"SEG:CutS"} << myObject
                              << scribbled << scribbled;
    QTest::newRow("hover") << "hover" << started << myObject << maskOf(myLabels, {1, 2, 3, 4, 5})
                           << maskOf(myLabels, myObject);
    // The clicker runs on the pool and emits nothing.
    QTest::newRow("click") << "click" << QStringList() << QSet<int>{2, 3, 4} << QImage()
                           << maskOf(myLabels, {2, 3, 4});
}

void TestSegmentationRefinement::requestReachesTheSelection()
{
    QFETCH(QString, request);
    QFETCH(QStringList, log);
    QFETCH(QSet<int>, object);
    QFETCH(QImage, emitted);
    QFETCH(QImage, mask);

    Host host;
    host.craft(myLabels, myObject);
    if (request == "paint")
        host.controller.startThreadWithPaintSelection(square(1, 1, 2), false, false);
    else if (request == "scribble")
        host.controller.startThreadWithScribble(square(1, 1, 1), false, false);
    else if (request == "hover")
        host.controller.startThreadWithPaintSelectionHover({5}, true);
    else
        host.controller.startThreadWithClicker(QPointF(2, 2));
    host.settle();

    QCOMPARE(segLog(), log);
    QCOMPARE(host.object(), object);
    QCOMPARE(host.masks.count(), log.isEmpty() ? 0 : 1);
    if (!emitted.isNull())
        QCOMPARE(host.lastMask(), emitted);
    QCOMPARE(host.controller.maskForeground(), mask);
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

void TestSegmentationRefinement::invertMaskWhileBusyFlipsOnlyTheFlag()
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

void TestSegmentationRefinement::synchronousInversionEmitsNothing()
{
    Host host;
    // Before any segmentation only the flag changes.
    host.controller.setMaskIsInverted(true);
    QVERIFY(host.controller.maskIsInverted());
    QVERIFY(host.controller.maskForeground().isNull());

    host.craft(myLabels, myObject);
    host.controller.setMaskIsInverted(true);
    QCOMPARE(host.controller.maskForeground(), maskOf(myLabels, {5, 6}));
    QCOMPARE(host.object(), (QSet<int>{5, 6}));
    host.settle();
    QCOMPARE(host.masks.count(), 0);
}

void TestSegmentationRefinement::smoothMaskIsOneBitBlurred()
{
    Host host;
    QVERIFY(host.controller.createSmoothForegroundMask(3).isNull());
    // Object on the left; the one-bit result sets the light background.
    host.craft(labelImage({"12"}, 16), {1});
    host.controller.setMaskColor(Qt::white);
    host.settle();

    const QImage smooth = host.controller.createSmoothForegroundMask(3);
    QCOMPARE(smooth.format(), QImage::Format_Mono);
    QCOMPARE(smooth.pixelIndex(16, 8), 1);
    QCOMPARE(smooth.pixelIndex(8, 8), 0);
    // The blur fades the background's corners at the photo's edge.
    QCOMPARE(smooth.pixelIndex(31, 15), 0);
    // Pixmaps need the application's thread.
    QVERIFY(QtConcurrent::run([&host]() { return host.controller.createSmoothForegroundMask(3); })
                .result()
                .isNull());
}

void TestSegmentationRefinement::undoCommandSkipsItsFirstRedo()
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

QTEST_MAIN(TestSegmentationRefinement)
#include "tst_segmentationrefinement.moc"
