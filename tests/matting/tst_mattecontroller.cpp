#include "PXMatte.h"
#include "PXUndoController.h"
#include "SegmentationTestSupport.h"

#include <QUndoStack>
#include <QtTest>

namespace {

// Labels 1 and 3 (the object, the left half) and 2, on a photo whose halves
// are red and blue.
const QImage halves = labelImage({"1322", "1322"}, 20);

QImage alphaOf(const QImage& cutout)
{
    QImage alpha(cutout.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < cutout.height(); ++y)
        for (int x = 0; x < cutout.width(); ++x)
            alpha.scanLine(y)[x] = uchar(qAlpha(cutout.pixel(x, y)));
    return alpha;
}

QImage photoOfHalves(const QSize& size)
{
    QImage photo(size, QImage::Format_ARGB32);
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x)
            photo.setPixel(x, y, x < size.width() / 2 ? qRgb(220, 40, 30) : qRgb(30, 60, 200));
    return photo;
}

} // namespace

class TestMatteController : public QObject
{
    Q_OBJECT

private slots:
    void followsStrokesAndUndo();
    void fullSizePhoto();
};

void TestMatteController::followsStrokesAndUndo()
{
    Host host;
    host.controller.setup(photoOfHalves(halves.size()), QFileInfo());
    host.settle();
    QVERIFY(host.controller.matteCutout().isNull());
    host.craft(halves, {1, 3});
    host.controller.setImage(photoOfHalves(halves.size()));

    int steps = 0;
    const QImage cut = host.controller.matteCutout(QImage(), PXMatteOptions(), [&steps]() { ++steps; });
    QCOMPARE(steps, PXMatte::progressSteps);
    QCOMPARE(cut.size(), halves.size());
    QCOMPARE(qAlpha(cut.pixel(10, 20)), 255);
    QCOMPARE(qAlpha(cut.pixel(70, 20)), 0);
    QVERIFY(host.controller.matteCutout(QImage(), PXMatteOptions(), {}, []() { return true; }).isNull());

    // A background stroke over label 1, as one gesture, then undone.
    QUndoStack* stack = host.controller.undoController()->undoStack();
    stack->clear();
    host.controller.startThreadWithPaintSelection(square(0, 0, 12), false, true);
    QTRY_COMPARE(host.nonNullMasks(), 1);
    host.controller.startThreadWithPaintSelection(QPainterPath(), false, false);
    QTRY_COMPARE(stack->count(), 1);
    host.settle();
    const QImage stroked = host.controller.matteCutout();
    QCOMPARE(qAlpha(stroked.pixel(4, 4)), 0);
    QCOMPARE(qAlpha(stroked.pixel(30, 30)), 255);
    stack->undo();
    QTRY_COMPARE(host.nonNullMasks(), 2);
    host.settle();
    QCOMPARE(alphaOf(host.controller.matteCutout()), alphaOf(cut));
    stack->clear();
}

void TestMatteController::fullSizePhoto()
{
    // The host cut a copy at a quarter of the size: the matte has the
    // original's size and its edge where the original's is.
    Host host;
    host.craft(halves, {1, 3});
    const QImage large = photoOfHalves(halves.size() * 4);
    const QImage cut = host.controller.matteCutout(large);
    QCOMPARE(cut.size(), large.size());
    for (int x = 0; x < large.width(); ++x)
        QCOMPARE(qAlpha(cut.pixel(x, 50)), x < large.width() / 2 ? 255 : 0);
}

QTEST_MAIN(TestMatteController)
#include "tst_mattecontroller.moc"
