// The road of a lasso through the real worker, as a host drives it; replaced
// lassos, cancellation, bad input and destruction at awkward moments.

#include "SegmentationTestSupport.h"

#include <QPainter>
#include <QScopeGuard>
#include <QSemaphore>

#include <atomic>

namespace {

const QRect myLeftObject(24, 36, 48, 48);
const QRect myRightObject(128, 36, 48, 48);
// A purple speck beside the left object, alone in the grey.
const QRect mySpeck(86, 54, 12, 12);

/**
 * A grey 200 x 120 photo with two objects of four coloured quadrants each (an
 * object of several regions that border each other) and a speck of a colour
 * found nowhere else.
 */
QImage photo()
{
    QImage image(200, 120, QImage::Format_RGB32);
    image.fill(QColor(128, 128, 128));
    QPainter painter(&image);
    painter.fillRect(mySpeck, QColor(150, 40, 170));
    for (const QRect& object : {myLeftObject, myRightObject}) {
        const int half = object.width() / 2;
        painter.fillRect(object.x(), object.y(), half, half, QColor(220, 30, 30));
        painter.fillRect(object.x() + half, object.y(), half, half, QColor(30, 200, 40));
        painter.fillRect(object.x(), object.y() + half, half, half, QColor(40, 50, 210));
        painter.fillRect(object.x() + half, object.y() + half, half, half, QColor(240, 220, 20));
    }
    return image;
}

QPainterPath lassoAround(const QRect& area)
{
    QPainterPath lasso;
    lasso.addRect(QRectF(area.adjusted(-12, -12, 12, 12)));
    return lasso;
}

/** Whether @p mask is transparent exactly on the pixels of the object's labels. */
bool maskShowsObject(Host& host, const QImage& mask)
{
    std::unique_ptr<PXMementoSegmentation> memento(host.controller.createMemento(true));
    for (int y = 0; y < mask.height(); ++y) {
        for (int x = 0; x < mask.width(); ++x) {
            const bool object = memento->foregroundClusters().contains(int(memento->labels().pixel(x, y)));
            if (mask.pixel(x, y) != (object ? 0u : myMaskColour))
                return false;
        }
    }
    return true;
}

} // namespace

class TestImageSegmentation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lassoGivesTheObject();
    void secondLassoWhileTheFirstRunsGivesOneMask();
    void cancelDuringTheCutEmitsNoMask();
    void forgottenWorkerIsIgnored();
    void badInputIsHarmless_data();
    void badInputIsHarmless();
    void cutLoopWithoutWorkerEmitsTheMask();
    void destructionWhileWorking_data();
    void destructionWhileWorking();
    void maskKeepsOneColourAndThePhotosSize();
};

void TestImageSegmentation::lassoGivesTheObject()
{
    Host host;
    QCOMPARE(host.controller.totalSteps(), 5);
    host.controller.setup(photo(), QFileInfo());
    host.forget();

    const QPainterPath lasso = lassoAround(myLeftObject.united(mySpeck));
    host.controller.startThreadWithInitialPath(lasso);
    QVERIFY(!host.controller.isValid());
    QTRY_COMPARE(host.masks.count(), 2);
    host.settle();

    QCOMPARE(host.masks.count(), 2);
    QVERIFY(host.masks.first().first().value<QImage>().isNull());
    const QImage mask = host.lastMask();
    QCOMPARE(mask.format(), QImage::Format_ARGB32_Premultiplied);
    QCOMPARE(mask.size(), QSize(200, 120));
    QVERIFY(host.controller.isValid());
    QVERIFY(maskShowsObject(host, mask));
    for (const QPoint& inside : {QPoint(36, 48), QPoint(60, 48), QPoint(36, 72), QPoint(60, 72)})
        QCOMPARE(mask.pixel(inside), 0u);
    // The grey inside the lasso goes by the colour model.
    for (const QPoint& outside : {QPoint(16, 60), QPoint(48, 28), QPoint(150, 60), QPoint(0, 0)})
        QCOMPARE(mask.pixel(outside), myMaskColour);
    QVERIFY(host.controller.containsPath(lasso));

    // The speck's colour is nowhere outside the lasso, so only the
    // neighbourhood vote (all its neighbours are background) can drop it.
    const int speck = host.controller.safeGetSuperPixelAt(mySpeck.center());
    QVERIFY(speck > 0);
    QVERIFY(speck != host.controller.safeGetSuperPixelAt(mySpeck.center() - QPoint(9, 0)));
    QVERIFY(host.background().contains(speck));

    // 0 of 5, one step per worker step, the worker's share again, the cut's 5.
    const int total = host.controller.totalSteps();
    const int workerSteps = total - 5;
    QVERIFY(workerSteps > 0);
    QList<QVariantList> expected = {{0, 5}};
    for (int step = 1; step <= total; ++step) {
        expected.append({step, total});
        if (step == workerSteps)
            expected.append({step, total});
    }
    QCOMPARE(QList<QVariantList>(host.progress), expected);
    QCOMPARE(segLog(), (QStringList{"SEG:StartingThread", "SEG:RunningThread"}));
}

void TestImageSegmentation::secondLassoWhileTheFirstRunsGivesOneMask()
{
    Host host;
    host.controller.setup(photo(), QFileInfo());
    host.forget();

    host.controller.startThreadWithInitialPath(lassoAround(myLeftObject));
    host.controller.startThreadWithInitialPath(lassoAround(myRightObject));
    QTRY_COMPARE(host.nonNullMasks(), 1);
    host.settle();

    QCOMPARE(host.masks.count(), 3);
    QCOMPARE(host.nonNullMasks(), 1);
    QCOMPARE(host.lastMask().pixel(myRightObject.center()), 0u);
    QCOMPARE(host.lastMask().pixel(myLeftObject.center()), myMaskColour);
    QVERIFY(maskShowsObject(host, host.lastMask()));
    QCOMPARE(segLog(), (QStringList{"SEG:CancelThread", "SEG:StartingThread", "SEG:RunningThread"}));
}

void TestImageSegmentation::cancelDuringTheCutEmitsNoMask()
{
    // Declared first: the thread may still call in while the host goes.
    QSemaphore entered;
    QSemaphore release;
    bool held = false;
    Host host;
    host.controller.setup(photo(), QFileInfo());
    host.forget();
    // Holds the controller thread at the cut's first progress step.
    connect(&host.controller, &PXImageSegmentation::segmentationProgress, &host.controller,
            [&](int, int) {
                if (QThread::currentThread() != &host.controller || std::exchange(held, true))
                    return;
                entered.release();
                release.acquire();
            },
            Qt::DirectConnection);
    const auto unblock = qScopeGuard([&release]() { release.release(); });
    host.controller.startThreadWithInitialPath(lassoAround(myLeftObject));
    QTRY_VERIFY(entered.available() > 0);

    PXSingleton<PXLogger>::instance()->clearHistory();
    host.controller.cancel();
    QVERIFY(!host.controller.isValid());
    release.release();
    host.settle();

    QCOMPARE(host.masks.count(), 2); // one null mask per reset()
    QCOMPARE(host.nonNullMasks(), 0);
    QCOMPARE(segLog(), QStringList{"SEG:CancelThread"});

    // Progress that does not come from the current worker is ignored.
    host.forget();
    const int total = host.controller.totalSteps();
    host.controller.setProgressFromWorker(3, 40);
    QCOMPARE(host.controller.totalSteps(), total);
    host.settle();
    QCOMPARE(host.progress.count(), 0);
}

void TestImageSegmentation::forgottenWorkerIsIgnored()
{
    Host host;
    host.controller.setup(photo(), QFileInfo());
    host.controller.startThreadWithInitialPath(lassoAround(myLeftObject));
    // With the controller thread idle the worker is forgotten, not stopped:
    // it runs to its end, and its progress and finished() are ignored.
    host.controller.cancel();
    host.settle();
    QTest::qWait(20);
    host.settle();

    // Two resets in setup(), one per lasso and one in cancel(); nothing else.
    QCOMPARE(host.masks.count(), 4);
    QCOMPARE(host.nonNullMasks(), 0);
    QCOMPARE(host.progress.count(), 4);
    QCOMPARE(host.progress.last().first().toInt(), 0);
    QVERIFY(!host.controller.isValid());
}

void TestImageSegmentation::badInputIsHarmless_data()
{
    QTest::addColumn<QImage>("image");
    QTest::addColumn<QPainterPath>("lasso");

    QTest::newRow("empty lasso") << photo() << QPainterPath();
    QPainterPath point;
    point.moveTo(40, 40);
    point.lineTo(40, 40);
    QTest::newRow("a point") << photo() << point;
    QPainterPath line;
    line.moveTo(10, 50);
    line.lineTo(150, 50);
    QTest::newRow("a line") << photo() << line;
    QTest::newRow("partly outside") << photo() << lassoAround(QRect(-40, -30, 90, 80));
    QTest::newRow("wholly outside") << photo() << lassoAround(QRect(400, 300, 50, 50));
    QPainterPath huge;
    huge.addRect(-1e9, -1e9, 3e9, 3e9);
    QTest::newRow("huge") << photo() << huge;
    QPainterPath withNaN = lassoAround(myLeftObject);
    withNaN.setElementPositionAt(1, qQNaN(), 50);
    QTest::newRow("NaN") << photo() << withNaN;
    QTest::newRow("null photo") << QImage() << lassoAround(myLeftObject);
    QTest::newRow("indexed photo") << photo().convertToFormat(QImage::Format_Indexed8)
                                   << lassoAround(myLeftObject);
    QTest::newRow("24-bit photo") << photo().convertToFormat(QImage::Format_RGB888)
                                  << lassoAround(myLeftObject);
    QTest::newRow("1 x 1 photo") << photo().copy(0, 0, 1, 1) << lassoAround(myLeftObject);
}

void TestImageSegmentation::badInputIsHarmless()
{
    QFETCH(QImage, image);
    QFETCH(QPainterPath, lasso);

    Host host;
    host.controller.setup(image, QFileInfo());
    QTRY_COMPARE(host.progress.count(), 2);
    QCOMPARE(host.progress.last(), (QVariantList{0, 5}));
    QCOMPARE(host.nonNullMasks(), 0);

    host.controller.startThreadWithInitialPath(lasso);
    if (!image.isNull())
        QTRY_COMPARE(host.nonNullMasks(), 1);
    host.settle();
    QCOMPARE(host.controller.isValid(), !image.isNull());
    if (!image.isNull()) {
        QCOMPARE(host.lastMask().size(), image.size());
        QVERIFY(maskShowsObject(host, host.lastMask()));
    }
    // Refinement on whatever came out, or on nothing, stays harmless too.
    host.controller.startThreadWithPaintSelection(square(30, 30, 20), true, true);
    host.controller.startThreadWithClicker(QPointF(50, 50));
    host.settle();
    QPainterPath withNaN = square(0, 0, 5);
    withNaN.setElementPositionAt(2, 3, qQNaN());
    host.controller.startThreadWithScribble(withNaN, false, false);
    host.controller.startThreadWithScribble(square(0, 0, 5), false, false);
    host.settle();
    host.controller.startThreadWithPaintSelectionHover({1, 2, 99}, true);
    host.settle();
}

void TestImageSegmentation::cutLoopWithoutWorkerEmitsTheMask()
{
    Host host;
    host.craft(labelImage({"12"}, 4), {1});
    const QImage crafted = host.controller.maskForeground();

    // No worker: the loop has nothing to cut and emits the mask as it is.
    host.controller.doInitialCut();
    QVERIFY(host.masks.wait());
    host.controller.startWithMode(PXImageSegmentation::InitialCut);
    QVERIFY(host.masks.wait());
    host.settle();
    QCOMPARE(host.lastMask(), crafted);

    // A photo set as it stands sizes the next cut.
    QImage larger(12, 6, QImage::Format_RGB888);
    larger.fill(Qt::blue);
    host.controller.setImage(larger);
    host.controller.cutObjectInitial();
    QCOMPARE(host.controller.maskForeground().size(), QSize(12, 6));

    host.controller.startWithMode(PXImageSegmentation::None);
    host.settle();
    host.controller.startWithMode(PXImageSegmentation::SegmentationMode(42));
    host.settle();
    QCOMPARE(host.masks.count(), 2);
    QCOMPARE(segLog().count("SEG:RunningThread"), 3);
}

// Requests that overtake one another never leave a mask of two colours or
// of another photo's size.
void TestImageSegmentation::maskKeepsOneColourAndThePhotosSize()
{
    const QImage labels = labelImage({"12", "34", "56"}, 4);
    QSemaphore entered;
    // Set in the controller thread, read in ours after a QSemaphore TSan cannot see.
    std::atomic<bool> held {false};
    Host host;
    host.craft(labels, {1, 2, 3, 4});

    // A colour change made while a paint pass runs (from its own emission)
    // cannot start the thread; it is applied once the pass ends.
    auto connection = connect(&host.controller, &PXImageSegmentation::sendNewMask, &host.controller,
        [&host] { host.controller.setMaskColor(Qt::blue); }, Qt::DirectConnection);
    host.controller.startThreadWithPaintSelection(square(1, 1, 2), false, false);
    host.settle();
    disconnect(connection);
    QCOMPARE(host.controller.maskForeground().pixel(1, 9), qRgb(0, 0, 255));

    // A memento taken while a colour change was pending: red pixels under the
    // recorded colour, blue, is restored in blue.
    std::unique_ptr<PXMementoSegmentation> before(host.controller.createMemento(true));
    QImage stale = before->mask();
    QPainter(&stale).fillRect(stale.rect(), QColor(Qt::red));
    const PXMementoSegmentation pending(QPainterPath(), {1}, {5}, stale, QImage(), {}, QColor(Qt::blue));
    host.controller.setMemento(&pending);
    QCOMPARE(host.controller.maskForeground().pixel(1, 9), qRgb(0, 0, 255));

    // A new photo set up while a job runs: setup() waits for it, drops the
    // mask of the old size, and the old photo's mementos no longer apply.
    connection = connect(&host.controller, &PXImageSegmentation::sendNewMask, &host.controller,
        [&](const QImage&) {
            if (!held.exchange(true)) {
                entered.release();
                QThread::msleep(100);
            }
        },
        Qt::DirectConnection);
    host.controller.invertMask();
    QVERIFY(entered.tryAcquire(1, 5000));
    QImage wider(labels.width() + 1, labels.height(), QImage::Format_RGB32);
    wider.fill(Qt::gray);
    host.controller.setup(wider, QFileInfo());
    QVERIFY(!host.controller.isRunning());
    QVERIFY(host.controller.maskForeground().isNull());
    host.controller.setMemento(before.get());
    QVERIFY(host.controller.maskForeground().isNull());
    QCoreApplication::processEvents();
    host.masks.clear();
    host.settle();
    QCOMPARE(host.masks.count(), 0);
}

void TestImageSegmentation::destructionWhileWorking_data()
{
    QTest::addColumn<int>("moment");

    QTest::newRow("worker just started") << 0;
    QTest::newRow("worker replaced") << 1;
    QTest::newRow("during the cut") << 2;
    QTest::newRow("while painting and clicking") << 3;
}

void TestImageSegmentation::destructionWhileWorking()
{
    QFETCH(int, moment);

    QSemaphore cutting;
    auto host = std::make_unique<Host>();
    PXImageSegmentation* controller = &host->controller;
    connect(controller, &PXImageSegmentation::segmentationProgress, controller,
            [&cutting, controller](int, int) {
                if (QThread::currentThread() == controller)
                    cutting.release();
            },
            Qt::DirectConnection);
    controller->setup(photo(), QFileInfo());
    controller->startThreadWithInitialPath(lassoAround(myLeftObject));
    if (moment == 1)
        controller->startThreadWithInitialPath(lassoAround(myRightObject));
    if (moment == 2)
        QTRY_VERIFY(cutting.available() > 0);
    if (moment == 3) {
        QTRY_COMPARE(host->nonNullMasks(), 1);
        controller->startThreadWithPaintSelection(square(30, 30, 40), false, true);
        controller->startThreadWithClicker(QPointF(40, 40));
    }
    host.reset();
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
}

QTEST_MAIN(TestImageSegmentation)
#include "tst_imagesegmentation.moc"
