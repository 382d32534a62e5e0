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
        const QList<QColor> quadrants{{220, 30, 30}, {30, 200, 40}, {40, 50, 210}, {240, 220, 20}};
        for (int i = 0; i < 4; ++i)
            painter.fillRect(object.x() + i % 2 * 24, object.y() + i / 2 * 24, 24, 24, quadrants.at(i));
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
    void nullPhotoIsHarmless();
    void maskKeepsOneColourAndThePhotosSize();
};

void TestImageSegmentation::lassoGivesTheObject()
{
    Host host;
    host.controller.setup(photo(), QFileInfo());
    host.forget();

    const QPainterPath lasso = lassoAround(myLeftObject.united(mySpeck));
    host.controller.startThreadWithInitialPath(lasso);
    QTRY_COMPARE(host.masks.count(), 2);
    host.settle();
    const QImage mask = host.lastMask();
    QCOMPARE(mask.format(), QImage::Format_ARGB32_Premultiplied);
    QVERIFY(maskShowsObject(host, mask));
    QCOMPARE(mask.pixel(myLeftObject.center()), 0u);
    // The grey inside the lasso goes by the colour model.
    QCOMPARE(mask.pixel(16, 60), myMaskColour);

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
}

// Stress feeds odd lassos and photos; a null photo it never makes.
void TestImageSegmentation::nullPhotoIsHarmless()
{
    Host host;
    host.controller.setup(QImage(), QFileInfo());
    host.controller.startThreadWithInitialPath(lassoAround(myLeftObject));
    host.controller.startThreadWithPaintSelection(square(30, 30, 20), true, true);
    host.controller.startThreadWithClicker(QPointF(50, 50));
    host.settle();
    QVERIFY(!host.controller.isValid());
    QCOMPARE(host.nonNullMasks(), 0);
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

QTEST_MAIN(TestImageSegmentation)
#include "tst_imagesegmentation.moc"
