// The road of a lasso through the real worker, as a host drives it: setup,
// lasso, progress, the first mask; replaced lassos, cancellation, bad input
// and destruction at awkward moments.

#include "PXLogger.h"
#include "SegmentationTestSupport.h"

#include <QApplication>
#include <QScopeGuard>
#include <QSemaphore>

using namespace SegmentationTestSupport;

namespace {

const QRect myLeftObject(24, 36, 48, 48);
const QRect myRightObject(104, 36, 48, 48);

/**
 * A grey 176 x 120 photo with two objects, each a square of four coloured
 * quadrants, so the object is made of several regions that border each other.
 */
QImage twoObjectPhoto()
{
    QImage photo(176, 120, QImage::Format_RGB32);
    photo.fill(QColor(128, 128, 128));
    QPainter painter(&photo);
    for (const QRect& object : {myLeftObject, myRightObject}) {
        const int half = object.width() / 2;
        painter.fillRect(object.x(), object.y(), half, half, QColor(220, 30, 30));
        painter.fillRect(object.x() + half, object.y(), half, half, QColor(30, 200, 40));
        painter.fillRect(object.x(), object.y() + half, half, half, QColor(40, 50, 210));
        painter.fillRect(object.x() + half, object.y() + half, half, half, QColor(240, 220, 20));
    }
    return photo;
}

QPainterPath lassoAround(const QRect& object)
{
    QPainterPath lasso;
    lasso.addRect(QRectF(object.adjusted(-12, -12, 12, 12)));
    return lasso;
}

QStringList segLog()
{
    return PXSingleton<PXLogger>::instance()->history();
}

/** Whether the mask is transparent exactly on the pixels of the object set. */
bool maskShowsForeground(PXImageSegmentation& controller, const QImage& mask)
{
    std::unique_ptr<PXMementoSegmentation> memento(controller.createMemento(true));
    const QImage labels = memento->labels();
    const QSet<int> foreground = memento->foregroundClusters();
    for (int y = 0; y < mask.height(); ++y) {
        for (int x = 0; x < mask.width(); ++x) {
            const bool object = foreground.contains(int(labels.pixel(x, y)));
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
    void init();

    void lassoGivesTheObject();
    void secondLassoWhileTheFirstRunsGivesOneMask();
    void cancelDuringTheCutEmitsNoMask();
    void badLassosAreHarmless_data();
    void badLassosAreHarmless();
    void setupTakesAnyPhoto_data();
    void setupTakesAnyPhoto();
    void cutLoopWithoutWorkerEmitsTheMask();
    void destructionWhileWorking_data();
    void destructionWhileWorking();
};

void TestImageSegmentation::init()
{
    PXSingleton<PXLogger>::instance()->clearHistory();
}

void TestImageSegmentation::lassoGivesTheObject()
{
    PXImageSegmentation controller;
    QCOMPARE(controller.totalSteps(), 5);
    controller.setup(twoObjectPhoto(), QFileInfo());
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);
    QSignalSpy progress(&relay, &SegmentationSignals::segmentationProgress);
    PXSingleton<PXLogger>::instance()->clearHistory();

    controller.startThreadWithInitialPath(lassoAround(myLeftObject));
    QVERIFY(!controller.isValid());
    QTRY_COMPARE(masks.count(), 2);
    settle(controller);

    QCOMPARE(masks.count(), 2);
    QVERIFY(masks.first().first().value<QImage>().isNull());
    const QImage mask = masks.last().first().value<QImage>();
    QCOMPARE(mask.format(), QImage::Format_ARGB32_Premultiplied);
    QCOMPARE(mask.size(), QSize(176, 120));
    QVERIFY(controller.isValid());
    QVERIFY(maskShowsForeground(controller, mask));
    // Each quadrant's centre is cut out; the grey round it is not.
    for (const QPoint& inside : {QPoint(36, 48), QPoint(60, 48), QPoint(36, 72), QPoint(60, 72)})
        QCOMPARE(mask.pixel(inside), 0u);
    for (const QPoint& outside : {QPoint(16, 60), QPoint(48, 28), QPoint(128, 60), QPoint(0, 0)})
        QCOMPARE(mask.pixel(outside), myMaskColour);
    QVERIFY(controller.containsPath(lassoAround(myLeftObject)));

    // Zero of 5, one step per worker step, the worker's share once more,
    // then the cut's five steps.
    const int total = controller.totalSteps();
    const int workerSteps = total - 5;
    QVERIFY(workerSteps > 0);
    QList<QList<int>> expected = {{0, 5}};
    for (int step = 1; step <= workerSteps; ++step)
        expected.append({step, total});
    expected.append({workerSteps, total});
    for (int step = workerSteps + 1; step <= total; ++step)
        expected.append({step, total});
    QList<QList<int>> seen;
    for (const QList<QVariant>& arguments : std::as_const(progress))
        seen.append({arguments.at(0).toInt(), arguments.at(1).toInt()});
    QCOMPARE(seen, expected);
    QCOMPARE(segLog(), (QStringList{"SEG:StartingThread", "SEG:RunningThread"}));
}

void TestImageSegmentation::secondLassoWhileTheFirstRunsGivesOneMask()
{
    PXImageSegmentation controller;
    controller.setup(twoObjectPhoto(), QFileInfo());
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);
    PXSingleton<PXLogger>::instance()->clearHistory();

    controller.startThreadWithInitialPath(lassoAround(myLeftObject));
    controller.startThreadWithInitialPath(lassoAround(myRightObject));
    QTRY_COMPARE(nonNullCount(masks), 1);
    settle(controller);

    QCOMPARE(nonNullCount(masks), 1);
    QCOMPARE(masks.count(), 3);
    const QImage mask = masks.last().first().value<QImage>();
    QCOMPARE(mask.pixel(myRightObject.center()), 0u);
    QCOMPARE(mask.pixel(myLeftObject.center()), myMaskColour);
    QVERIFY(maskShowsForeground(controller, mask));
    QCOMPARE(segLog(),
             (QStringList{"SEG:CancelThread", "SEG:StartingThread", "SEG:RunningThread"}));
}

void TestImageSegmentation::cancelDuringTheCutEmitsNoMask()
{
    PXImageSegmentation controller;
    controller.setup(twoObjectPhoto(), QFileInfo());
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);

    // Holds the controller thread at the cut's first progress step.
    QSemaphore entered;
    QSemaphore release;
    bool held = false;
    connect(&controller, &PXImageSegmentation::segmentationProgress, &controller,
            [&](int, int) {
                if (QThread::currentThread() != &controller || std::exchange(held, true))
                    return;
                entered.release();
                release.acquire();
            },
            Qt::DirectConnection);
    // Whatever fails below, the thread must not stay held.
    const auto unblock = qScopeGuard([&release]() { release.release(); });
    controller.startThreadWithInitialPath(lassoAround(myLeftObject));
    QTRY_VERIFY(entered.available() > 0);

    PXSingleton<PXLogger>::instance()->clearHistory();
    controller.cancel();
    QVERIFY(!controller.isValid());
    release.release();
    settle(controller);

    QCOMPARE(masks.count(), 2);
    QCOMPARE(nonNullCount(masks), 0);
    QCOMPARE(segLog(), QStringList{"SEG:CancelThread"});

    // Progress that does not come from the current worker is ignored.
    QSignalSpy progress(&relay, &SegmentationSignals::segmentationProgress);
    const int total = controller.totalSteps();
    controller.setProgressFromWorker(3, 40);
    QCoreApplication::processEvents();
    QCOMPARE(progress.count(), 0);
    QCOMPARE(controller.totalSteps(), total);
}

void TestImageSegmentation::badLassosAreHarmless_data()
{
    QTest::addColumn<QPainterPath>("lasso");

    QTest::newRow("empty") << QPainterPath();
    QPainterPath point;
    point.moveTo(40, 40);
    point.lineTo(40, 40);
    QTest::newRow("a point") << point;
    QPainterPath line;
    line.moveTo(10, 50);
    line.lineTo(150, 50);
    QTest::newRow("a horizontal line") << line;
    QTest::newRow("partly outside") << lassoAround(QRect(-40, -30, 90, 80));
    QTest::newRow("wholly outside") << lassoAround(QRect(400, 300, 50, 50));
    QPainterPath huge;
    huge.addRect(-1e9, -1e9, 3e9, 3e9);
    QTest::newRow("huge") << huge;
    QPainterPath withNaN = lassoAround(myLeftObject);
    withNaN.setElementPositionAt(1, qQNaN(), 50);
    QTest::newRow("NaN") << withNaN;
}

void TestImageSegmentation::badLassosAreHarmless()
{
    QFETCH(QPainterPath, lasso);

    PXImageSegmentation controller;
    controller.setup(twoObjectPhoto(), QFileInfo());
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);

    controller.startThreadWithInitialPath(lasso);
    QTRY_COMPARE(nonNullCount(masks), 1);
    settle(controller);
    const QImage mask = masks.last().first().value<QImage>();
    QCOMPARE(mask.size(), QSize(176, 120));
    QVERIFY(maskShowsForeground(controller, mask));

    // Refinement on whatever came out stays harmless too.
    controller.startThreadWithPaintSelection(square(30, 30, 20), true, false);
    controller.startThreadWithClicker(QPointF(50, 50));
    settle(controller);
}

void TestImageSegmentation::setupTakesAnyPhoto_data()
{
    QTest::addColumn<QImage>("photo");
    QTest::addColumn<bool>("cuts");

    QTest::newRow("null") << QImage() << false;
    QImage indexed = twoObjectPhoto().convertToFormat(QImage::Format_Indexed8);
    QTest::newRow("indexed") << indexed << true;
    QTest::newRow("24-bit") << twoObjectPhoto().convertToFormat(QImage::Format_RGB888) << true;
    QImage single(1, 1, QImage::Format_ARGB32);
    single.fill(Qt::red);
    QTest::newRow("1 x 1") << single << true;
}

void TestImageSegmentation::setupTakesAnyPhoto()
{
    QFETCH(QImage, photo);
    QFETCH(bool, cuts);

    PXImageSegmentation controller;
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);
    QSignalSpy progress(&relay, &SegmentationSignals::segmentationProgress);

    controller.setup(photo, QFileInfo());
    QTRY_COMPARE(progress.count(), 2);
    QCOMPARE(progress.last(), (QList<QVariant>{0, 5}));
    QCOMPARE(masks.count(), 2);
    QCOMPARE(nonNullCount(masks), 0);
    QVERIFY(!controller.isValid());

    controller.startThreadWithInitialPath(lassoAround(myLeftObject));
    if (cuts) {
        QTRY_COMPARE(nonNullCount(masks), 1);
        QCOMPARE(masks.last().first().value<QImage>().size(), photo.size());
    }
    settle(controller);
    QCOMPARE(nonNullCount(masks), cuts ? 1 : 0);
    QCOMPARE(controller.isValid(), cuts);
}

void TestImageSegmentation::cutLoopWithoutWorkerEmitsTheMask()
{
    PXImageSegmentation controller;
    craftSegmentation(controller, labelImage({"12"}, 4), {1});
    const QImage crafted = controller.maskForeground();
    SegmentationSignals relay(controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);
    PXSingleton<PXLogger>::instance()->clearHistory();

    // No worker: the loop has nothing to cut and emits the mask as it is.
    controller.doInitialCut();
    QVERIFY(masks.wait());
    QCOMPARE(masks.last().first().value<QImage>(), crafted);

    controller.startWithMode(PXImageSegmentation::InitialCut);
    QVERIFY(masks.wait());
    settle(controller);
    QCOMPARE(masks.last().first().value<QImage>(), crafted);

    // A photo set as it stands sizes the next cut.
    QImage larger(12, 6, QImage::Format_RGB888);
    larger.fill(Qt::blue);
    controller.setImage(larger);
    controller.cutObjectInitial();
    QCOMPARE(controller.maskForeground().size(), QSize(12, 6));
    QCOMPARE(controller.createImageWithLassoPath().size(), QSize(12, 6));

    controller.startWithMode(PXImageSegmentation::None);
    settle(controller);
    controller.startWithMode(PXImageSegmentation::SegmentationMode(42));
    settle(controller);
    QCOMPARE(masks.count(), 2);
    QCOMPARE(segLog(), (QStringList{"SEG:StartingThread", "SEG:RunningThread",
                                    "SEG:StartingThread", "SEG:RunningThread",
                                    "SEG:StartingThread", "SEG:RunningThread"}));
}

void TestImageSegmentation::destructionWhileWorking_data()
{
    QTest::addColumn<int>("moment");

    QTest::newRow("worker just started") << 0;
    QTest::newRow("worker replaced") << 1;
    QTest::newRow("during the cut") << 2;
    QTest::newRow("while painting") << 3;
}

void TestImageSegmentation::destructionWhileWorking()
{
    QFETCH(int, moment);

    auto controller = std::make_unique<PXImageSegmentation>();
    PXImageSegmentation* segmentation = controller.get();
    controller->setup(twoObjectPhoto(), QFileInfo());
    SegmentationSignals relay(*controller);
    QSignalSpy masks(&relay, &SegmentationSignals::sendNewMask);
    QSemaphore cutting;
    connect(segmentation, &PXImageSegmentation::segmentationProgress, segmentation,
            [&cutting, segmentation](int, int) {
                if (QThread::currentThread() == segmentation)
                    cutting.release();
            },
            Qt::DirectConnection);

    controller->startThreadWithInitialPath(lassoAround(myLeftObject));
    if (moment == 1)
        controller->startThreadWithInitialPath(lassoAround(myRightObject));
    if (moment == 2)
        QTRY_VERIFY(cutting.available() > 0);
    if (moment == 3) {
        QTRY_COMPARE(nonNullCount(masks), 1);
        controller->startThreadWithPaintSelection(square(30, 30, 40), false, true);
        controller->startThreadWithClicker(QPointF(40, 40));
    }
    controller.reset();
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
}

QTEST_MAIN(TestImageSegmentation)
#include "testimagesegmentation.moc"
