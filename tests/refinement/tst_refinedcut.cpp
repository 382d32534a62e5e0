// The refined cut: a crafted disc with a soft edge on a textured background
// must be cut true to its edge, whatever the regions were; user marks hold;
// through the controller, undo and later lassos respect the refined mask.
#include "PXConcurrent.h"
#include "PXRefinedCut.h"
#include "PXUndoController.h"
#include "SegmentationTestSupport.h"

#include <QUndoStack>

#include <cmath>
#include <thread>

namespace {

const QPointF myCentre(80.5, 60.5);
constexpr double myRadius = 36.0;

quint32 noise(int x, int y)
{
    quint32 value = quint32(y * 7919 + x) * 0x9E3779B9u;
    return (value >> 13) % 17;
}

// Coverage of the disc by 4 x 4 samples per pixel: a soft, blended edge.
double coverage(int x, int y)
{
    int inside = 0;
    for (int sy = 0; sy < 4; ++sy)
        for (int sx = 0; sx < 4; ++sx)
            inside += std::hypot(x + (sx + 0.5) / 4 - myCentre.x(), y + (sy + 0.5) / 4 - myCentre.y()) < myRadius;
    return inside / 16.0;
}

QImage discPhoto()
{
    QImage photo(160, 120, QImage::Format_ARGB32);
    for (int y = 0; y < photo.height(); ++y) {
        for (int x = 0; x < photo.width(); ++x) {
            const double a = coverage(x, y);
            const int n = int(noise(x, y));
            const double background[3] = {60 + 30 * std::sin(x / 5.0) + n, 110 + 20 * std::cos(y / 7.0) + n, 70.0 + n};
            const double object[3] = {200.0 + n, 120.0 + n, 40.0 + n};
            photo.setPixel(x, y, qRgb(int(a * object[0] + (1 - a) * background[0]),
                                     int(a * object[1] + (1 - a) * background[1]), int(a * object[2] + (1 - a) * background[2])));
        }
    }
    return photo;
}

// An orange ring on blue, its hole of radius 18 showing the blue.
QImage ringPhoto()
{
    QImage photo(160, 120, QImage::Format_ARGB32);
    for (int y = 0; y < photo.height(); ++y) {
        for (int x = 0; x < photo.width(); ++x) {
            const int n = int(noise(x, y));
            const double r = std::hypot(x + 0.5 - myCentre.x(), y + 0.5 - myCentre.y());
            const QRgb colour = r < 18.0 || r >= myRadius ? qRgb(40, 70, 190) : qRgb(210, 120, 40);
            photo.setPixel(x, y, qRgb(qRed(colour) + n, qGreen(colour) + n, qBlue(colour) + n));
        }
    }
    return photo;
}

// Stones of 5 x 5 pixels, one grey each, tinted from dark to light brown;
// the disc shows the same stones shifted and @p shade times as light, as
// an object in the background's own texture.
QImage camouflagePhoto(double shade)
{
    const auto stone = [](int x, int y) {
        const quint32 cell = quint32((y / 5) * 977 + x / 5) * 0x9E3779B9u;
        return (double((cell >> 11) % 120) + noise(x, y) % 5) / 125.0;
    };
    QImage photo(160, 120, QImage::Format_ARGB32);
    for (int y = 0; y < photo.height(); ++y) {
        for (int x = 0; x < photo.width(); ++x) {
            const double a = coverage(x, y);
            const double t = stone(x, y);
            const double u = stone(x + 2, y + 3);
            constexpr double dark[3] = {70.0, 55.0, 40.0};
            constexpr double light[3] = {230.0, 205.0, 165.0};
            double rgb[3];
            for (int c = 0; c < 3; ++c) {
                const double range = light[c] - dark[c];
                rgb[c] = a * shade * (dark[c] + u * range) + (1 - a) * (dark[c] + t * range);
            }
            photo.setPixel(x, y, qRgb(int(rgb[0]), int(rgb[1]), int(rgb[2])));
        }
    }
    return photo;
}

// Distance in pixels from (x, y) to the nearest of 48 strands that run
// straight out of the disc, 8 to 15 px long; a large value beyond them.
double distanceToStrand(double x, double y)
{
    constexpr int strands = 48;
    const double dx = x - myCentre.x();
    const double dy = y - myCentre.y();
    const double r = std::hypot(dx, dy);
    const double turn = std::atan2(dy, dx) / (2 * M_PI) * strands;
    const int k = int(std::lround(turn));
    const double length = 8.0 + (quint32(k + strands) * 2654435761u >> 7) % 8;
    if (r < myRadius - 1.0 || r > myRadius + length)
        return 1e9;
    return std::abs(turn - k) * 2 * M_PI * r / strands;
}

// An orange disc in a fringe of strands 1.6 px wide on a red-brown ground
// a little darker, which shows between them.
QImage furryDiscPhoto()
{
    QImage photo(160, 120, QImage::Format_ARGB32);
    for (int y = 0; y < photo.height(); ++y) {
        for (int x = 0; x < photo.width(); ++x) {
            int inside = 0;
            for (int sy = 0; sy < 4; ++sy) {
                for (int sx = 0; sx < 4; ++sx) {
                    const double px = x + (sx + 0.5) / 4;
                    const double py = y + (sy + 0.5) / 4;
                    inside += std::hypot(px - myCentre.x(), py - myCentre.y()) < myRadius
                        || distanceToStrand(px, py) < 0.8;
                }
            }
            const double a = inside / 16.0;
            const int n = int(noise(x, y));
            photo.setPixel(x, y, qRgb(int(a * 190 + (1 - a) * 150) + n, int(a * 115 + (1 - a) * 80) + n,
                                     int(a * 50 + (1 - a) * 55) + n));
        }
    }
    return photo;
}

QPainterPath lasso(double grow)
{
    QPainterPath path;
    path.addEllipse(myCentre, myRadius + grow, myRadius + grow);
    return path;
}

// Labels of 8 x 8 cells inside the lasso: region outlines that staircase.
QImage cellLabels(const QPainterPath& path)
{
    QImage labels(160, 120, QImage::Format_ARGB32);
    for (int y = 0; y < labels.height(); ++y)
        for (int x = 0; x < labels.width(); ++x)
            labels.setPixel(x, y, path.contains(QPointF(x + 0.5, y + 0.5)) ? uint(1 + (y / 8) * 20 + x / 8) : 0u);
    return labels;
}

QSet<int> cellsInsideDisc()
{
    QSet<int> cells;
    for (int cy = 0; cy < 15; ++cy)
        for (int cx = 0; cx < 20; ++cx)
            if (std::hypot(cx * 8 + 4 - myCentre.x(), cy * 8 + 4 - myCentre.y()) < myRadius)
                cells.insert(1 + cy * 20 + cx);
    return cells;
}

// The disc as a selection, less @p notch and with @p extra.
QImage discSelection(const QRect& notch, const QRect& extra)
{
    QImage selection(160, 120, QImage::Format_Grayscale8);
    for (int y = 0; y < selection.height(); ++y) {
        for (int x = 0; x < selection.width(); ++x) {
            const bool disc = std::hypot(x + 0.5 - myCentre.x(), y + 0.5 - myCentre.y()) < myRadius;
            selection.scanLine(y)[x] = (disc && !notch.contains(x, y)) || extra.contains(x, y) ? 255 : 0;
        }
    }
    return selection;
}

// A cut that goes on from @p start, its marks reaching 16 px as suits these
// small photos.
PXRefinedCut cutFrom(const QImage& photo, const QPainterPath& path, const QImage& start)
{
    PXRefinedCut cut;
    cut.setPhoto(photo);
    cut.setLasso(path);
    cut.setStartSelection(start);
    PXRefinedCutOptions options;
    options.strokeReach = 16;
    cut.setOptions(options);
    return cut;
}

// Pixels more than 1.5 px from the true edges (of the disc, and of its hole
// when @p hole is given) that are on the wrong side.
int wrongPixels(const QImage& photoSizedObject, bool (*isObject)(const QImage&, int, int), double hole = 0.0)
{
    int wrong = 0;
    for (int y = 0; y < 120; ++y) {
        for (int x = 0; x < 160; ++x) {
            const double r = std::hypot(x + 0.5 - myCentre.x(), y + 0.5 - myCentre.y());
            const double distance = hole > 0.0 ? std::max(r - myRadius, hole - r) : r - myRadius;
            if (std::abs(r - myRadius) > 1.5 && (hole <= 0.0 || std::abs(r - hole) > 1.5)
                && isObject(photoSizedObject, x, y) != (distance < 0))
                ++wrong;
        }
    }
    return wrong;
}

bool selected(const QImage& selection, int x, int y)
{
    return selection.constScanLine(y)[x] != 0;
}

bool transparent(const QImage& mask, int x, int y)
{
    return qAlpha(mask.pixel(x, y)) == 0;
}

} // namespace

class TestRefinedCut : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void followsTheEdge_data();
    void followsTheEdge();
    void findsAnObjectInTheBackgroundsTexture();
    void cutsAlongStrands();
    void marksHoldTheirSide();
    void holeShowingTheBackgroundStays();
    void strokeResolvesToTheEdge();
    void strokeUnteachesWhatItCorrects();
    void controllerRefinesUndoesAndKeepsStrokes();
    void strokesStayInsideTheLasso();
};

void TestRefinedCut::followsTheEdge_data()
{
    QTest::addColumn<QImage>("labels");
    QTest::addColumn<QSet<int>>("object");
    QTest::addColumn<double>("grow");
    QTest::newRow("staircase regions") << cellLabels(lasso(10)) << cellsInsideDisc() << 10.0;
    QTest::newRow("regions lost the object") << cellLabels(lasso(10)) << QSet<int>() << 10.0;
    QTest::newRow("no regions, wide lasso") << QImage() << QSet<int>() << 20.0;
}

void TestRefinedCut::followsTheEdge()
{
    QFETCH(QImage, labels);
    QFETCH(QSet<int>, object);
    QFETCH(double, grow);
    PXRefinedCut cut;
    cut.setPhoto(discPhoto());
    cut.setLasso(lasso(grow));
    cut.setRegions(labels, object);
    int steps = 0;
    cut.setProgressFunction([&steps]() { ++steps; });
    const QImage selection = cut.run();
    QCOMPARE(selection.size(), QSize(160, 120));
    QCOMPARE(selection.format(), QImage::Format_Grayscale8);
    QCOMPARE(wrongPixels(selection, selected), 0);
    QCOMPARE(steps, PXRefinedCut::progressSteps);

    // Off the main thread with the pool counted full, every pass runs in
    // order in the calling thread: the mask must not change.
    const int threads = PXConcurrent::maxRunningThreads;
    PXConcurrent::maxRunningThreads = 0;
    QImage sequential;
    std::thread([&]() { sequential = cut.run(); }).join();
    PXConcurrent::maxRunningThreads = threads;
    QCOMPARE(sequential, selection);

    // Set up before the object is known, as the controller does: the same
    // mask. A setter afterwards starts over: no lasso selects nothing.
    PXRefinedCut early;
    early.setPhoto(discPhoto());
    early.setLasso(lasso(grow));
    early.setRegions(labels, QSet<int>());
    early.prepare();
    early.setObjectLabels(object);
    QCOMPARE(early.run(), selection);
    early.setLasso(QPainterPath());
    QImage nothing(selection.size(), QImage::Format_Grayscale8);
    nothing.fill(0);
    QCOMPARE(early.run(), nothing);

    cut.setCancelFunction([]() { return true; });
    QVERIFY(cut.run().isNull());
}

void TestRefinedCut::findsAnObjectInTheBackgroundsTexture()
{
    // No regions to start from: the colours alone, a few levels apart,
    // must part the disc from its background.
    PXRefinedCut cut;
    cut.setPhoto(camouflagePhoto(1.08));
    cut.setLasso(lasso(10));
    const QImage selection = cut.run();
    const double discArea = M_PI * myRadius * myRadius;
    const int wrong = wrongPixels(selection, selected);
    QVERIFY2(wrong < 0.15 * discArea, qPrintable(QString::number(wrong)));
}

void TestRefinedCut::cutsAlongStrands()
{
    // Regions that took the fringe in whole. The strands' edges lie all
    // along the outline: judged against the contrast there instead of the
    // lasso's, they would look weak, and the cut would smooth the strands
    // away with the gaps.
    PXRefinedCut cut;
    cut.setPhoto(furryDiscPhoto());
    cut.setLasso(lasso(20));
    QImage labels(160, 120, QImage::Format_ARGB32);
    for (int y = 0; y < labels.height(); ++y)
        for (int x = 0; x < labels.width(); ++x)
            labels.setPixel(x, y, std::hypot(x + 0.5 - myCentre.x(), y + 0.5 - myCentre.y()) < myRadius + 12 ? 1u : 2u);
    cut.setRegions(labels, {1});
    const QImage selection = cut.run();
    int gaps = 0;
    int gapsSelected = 0;
    int strandsSelected = 0;
    int strands = 0;
    for (int y = 0; y < 120; ++y) {
        for (int x = 0; x < 160; ++x) {
            const double r = std::hypot(x + 0.5 - myCentre.x(), y + 0.5 - myCentre.y());
            if (r < myRadius + 2 || r > myRadius + 7)
                continue;
            const double d = distanceToStrand(x + 0.5, y + 0.5);
            if (d > 1.6) {
                ++gaps;
                gapsSelected += selected(selection, x, y);
            } else if (d < 0.3) {
                ++strands;
                strandsSelected += selected(selection, x, y);
            }
        }
    }
    QVERIFY2(gapsSelected < gaps / 4, qPrintable(QStringLiteral("%1 of %2").arg(gapsSelected).arg(gaps)));
    QVERIFY2(strandsSelected > strands / 2, qPrintable(QStringLiteral("%1 of %2").arg(strandsSelected).arg(strands)));
}

void TestRefinedCut::marksHoldTheirSide()
{
    QImage marks(160, 120, QImage::Format_Grayscale8);
    marks.fill(PXRefinedCut::NoMark);
    const QRect hole(76, 56, 6, 6);
    const QRect extra(80, 14, 4, 4); // background between disc and lasso
    for (int y = 0; y < 120; ++y) {
        for (int x = 0; x < 160; ++x) {
            if (hole.contains(x, y))
                marks.scanLine(y)[x] = PXRefinedCut::BackgroundMark;
            if (extra.contains(x, y))
                marks.scanLine(y)[x] = PXRefinedCut::ObjectMark;
        }
    }
    PXRefinedCut cut;
    cut.setPhoto(discPhoto());
    cut.setLasso(lasso(14));
    cut.setRegions(cellLabels(lasso(14)), cellsInsideDisc());
    cut.setMarks(marks);
    // Marks that reach no further than themselves: a background mark in the
    // middle of the disc would otherwise claim the disc up to its edge.
    PXRefinedCutOptions options;
    options.strokeReach = 0;
    cut.setOptions(options);
    const QImage selection = cut.run();
    for (int y = 0; y < 120; ++y) {
        for (int x = 0; x < 160; ++x) {
            if (hole.contains(x, y))
                QVERIFY(!selected(selection, x, y));
            if (extra.contains(x, y))
                QVERIFY(selected(selection, x, y));
        }
    }
    QVERIFY(selected(selection, 60, 60)); // the rest of the disc is still the object
    QVERIFY(!selected(selection, 10, 10));
}

void TestRefinedCut::holeShowingTheBackgroundStays()
{
    // Regions that found the ring (1) and left its middle (2) out with the
    // rest (3): holes the first guess left out may join the object, but not
    // one whose colours the outside of the lasso explains.
    QImage labels(160, 120, QImage::Format_ARGB32);
    for (int y = 0; y < labels.height(); ++y) {
        for (int x = 0; x < labels.width(); ++x) {
            const double r = std::hypot(x + 0.5 - myCentre.x(), y + 0.5 - myCentre.y());
            labels.setPixel(x, y, r < 18.0 ? 2u : (r < myRadius ? 1u : 3u));
        }
    }
    PXRefinedCut cut;
    cut.setPhoto(ringPhoto());
    cut.setLasso(lasso(10));
    cut.setRegions(labels, {1});
    const QImage selection = cut.run();
    QCOMPARE(wrongPixels(selection, selected, 18.0), 0);
}

void TestRefinedCut::strokeResolvesToTheEdge()
{
    // The disc with a blue leg below it, a colour the disc has nowhere: a
    // selection that missed the leg keeps missing it, until one small dot
    // marks it and the solve brings the whole leg back to its edges.
    QImage photo = discPhoto();
    const QRect leg(76, 90, 9, 22);
    for (int y = leg.top(); y <= leg.bottom(); ++y)
        for (int x = leg.left(); x <= leg.right(); ++x)
            photo.setPixel(x, y, qRgb(40 + int(noise(x, y)), 60, 210));
    QPainterPath legLasso;
    legLasso.addRect(QRectF(leg).adjusted(-6, -6, 6, 6));
    const QPainterPath lassoWithLeg = lasso(6).united(legLasso);
    // A notch at the disc's top, beyond the stroke's reach, stays as it was:
    // a stroke changes the cut near its marks only.
    const QRect notch(70, 28, 20, 14);
    PXRefinedCut cut = cutFrom(photo, lassoWithLeg, discSelection(notch, QRect()));
    const QImage unmarked = cut.run();
    QVERIFY(!selected(unmarked, 80, 105));

    QImage marks(photo.size(), QImage::Format_Grayscale8);
    marks.fill(PXRefinedCut::NoMark);
    marks.scanLine(100)[80] = PXRefinedCut::ObjectMark;
    cut.setMarks(marks);
    const QImage marked = cut.run();
    for (int y = leg.top() + 1; y < leg.bottom(); ++y) {
        QVERIFY(selected(marked, leg.left() + 1, y));
        QVERIFY(selected(marked, leg.right() - 1, y));
        // Below the disc, nothing beside the leg.
        if (y > 100) {
            QVERIFY(!selected(marked, leg.left() - 2, y));
            QVERIFY(!selected(marked, leg.right() + 2, y));
        }
    }
    QVERIFY(!selected(marked, 80, leg.bottom() + 3));
    QVERIFY(selected(marked, 80, 60));
    for (int y = notch.top(); y <= notch.bottom(); ++y)
        for (int x = notch.left(); x <= notch.right(); ++x)
            QVERIFY(!selected(marked, x, y));
}

void TestRefinedCut::strokeUnteachesWhatItCorrects()
{
    // Purple stripes beside the disc, colours found nowhere else, that the
    // last solve took in. One dot on them must take them all out, though
    // its pull does not cross their edges: near it they no longer teach the
    // object model the colours they taught it.
    QImage photo = discPhoto();
    const QRect stripes(119, 46, 24, 28);
    for (int y = stripes.top(); y <= stripes.bottom(); ++y)
        for (int x = stripes.left(); x <= stripes.right(); ++x)
            photo.setPixel(x, y, (x / 2) % 2 ? qRgb(170, 40, 180) : qRgb(70, 15, 80));
    QPainterPath stripesLasso;
    stripesLasso.addRect(QRectF(stripes).adjusted(-6, -6, 6, 6));
    PXRefinedCut cut = cutFrom(photo, lasso(6).united(stripesLasso), discSelection(QRect(), stripes));
    QImage marks(photo.size(), QImage::Format_Grayscale8);
    marks.fill(PXRefinedCut::NoMark);
    marks.scanLine(60)[131] = PXRefinedCut::BackgroundMark;
    cut.setMarks(marks);
    const QImage selection = cut.run();
    int kept = 0;
    for (int y = stripes.top(); y <= stripes.bottom(); ++y)
        for (int x = stripes.left(); x <= stripes.right(); ++x)
            kept += selected(selection, x, y);
    QCOMPARE(kept, 0);
    QCOMPARE(wrongPixels(selection, selected), 0);
}

void TestRefinedCut::controllerRefinesUndoesAndKeepsStrokes()
{
    Host host;
    host.controller.setRefinedCut(true);
    QVERIFY(host.controller.refinedCut());
    host.controller.setup(discPhoto(), QFileInfo());
    host.forget();
    host.controller.startThreadWithInitialPath(lasso(6));
    QTRY_COMPARE_WITH_TIMEOUT(host.nonNullMasks(), 1, 30000);
    host.settle();
    const QImage refined = host.lastMask();
    QCOMPARE(wrongPixels(refined, transparent), 0);
    const QList<QVariant> lastProgress = host.progress.last();
    QCOMPARE(lastProgress.at(0).toInt(), host.controller.totalSteps());

    // A background scribble across the disc, as one gesture: its pixels stay
    // background in the next refined cut, until the gesture is undone.
    QUndoStack* stack = host.controller.undoController()->undoStack();
    stack->clear();
    QPainterPath stroke;
    stroke.addRect(QRectF(70, 50, 20, 8));
    host.controller.startThreadWithScribble(stroke, false, true);
    QTRY_COMPARE(host.nonNullMasks(), 2);
    host.controller.startThreadWithScribble(QPainterPath(), false, false);
    QTRY_COMPARE(stack->count(), 1);
    const auto cutAgain = [&](int masks) {
        host.controller.startThreadWithInitialPath(lasso(6));
        QTRY_COMPARE_WITH_TIMEOUT(host.nonNullMasks(), masks, 30000);
        host.settle();
    };
    cutAgain(3);
    QCOMPARE(host.lastMask().pixel(80, 54), myMaskColour);

    stack->undo();
    QTRY_COMPARE(host.lastMask(), refined);
    // A stroke after the undo starts from the mask the undo brought back,
    // not from the last refined answer: an object dot on the object
    // changes nothing.
    QPainterPath dot;
    dot.addEllipse(QPointF(60, 60), 4, 4);
    host.controller.startThreadWithPaintSelection(dot, true, true);
    QTRY_COMPARE(host.nonNullMasks(), 5);
    host.controller.startThreadWithPaintSelection(QPainterPath(), true, false);
    host.settle();
    QCOMPARE(host.lastMask(), refined);
    stack->undo();
    QTRY_COMPARE(host.nonNullMasks(), 6);
    cutAgain(7);
    QCOMPARE(host.lastMask(), refined);
    stack->clear();

    host.controller.setRefinedCut(false);
    QVERIFY(!host.controller.refinedCut());
}

void TestRefinedCut::strokesStayInsideTheLasso()
{
    Host host;
    host.controller.setRefinedCut(true);
    host.controller.setup(discPhoto(), QFileInfo());
    host.forget();
    host.controller.startThreadWithInitialPath(lasso(6));
    QTRY_COMPARE_WITH_TIMEOUT(host.nonNullMasks(), 1, 30000);
    host.settle();
    const QImage before = host.lastMask();
    const QImage lassoImage = host.controller.createImageWithLassoPath();

    // Object strokes across the lasso's line, by paint, scribble and click:
    // each re-solves, and nothing outside the grown lasso joins the object.
    QUndoStack* stack = host.controller.undoController()->undoStack();
    stack->clear();
    QPainterPath band;
    band.addRect(QRectF(0, 52, 160, 8));
    host.controller.startThreadWithPaintSelection(band, true, true);
    QTRY_COMPARE(host.nonNullMasks(), 2);
    host.controller.startThreadWithPaintSelection(QPainterPath(), true, false);
    QTRY_COMPARE(stack->count(), 1);
    host.controller.startThreadWithScribble(band.translated(0, 20), true, true);
    QTRY_COMPARE(host.nonNullMasks(), 3);
    host.controller.startThreadWithScribble(QPainterPath(), true, false);
    QTRY_COMPARE(stack->count(), 2);
    host.settle();
    host.controller.startThreadWithClicker(QPointF(3, 3));
    host.settle();
    const QImage after = host.controller.maskForeground();
    for (int y = 0; y < 120; ++y) {
        for (int x = 0; x < 160; ++x) {
            if (lassoImage.pixel(x, y) != 0xFFFFFFFFu)
                QVERIFY2(!transparent(after, x, y), qPrintable(QStringLiteral("%1,%2").arg(x).arg(y)));
        }
    }
    QVERIFY(transparent(after, 80, 60));

    // Undo takes the strokes back with their marks: the mask before them.
    while (stack->canUndo())
        stack->undo();
    QTRY_COMPARE(host.controller.maskForeground(), before);
    stack->clear();
}

QTEST_MAIN(TestRefinedCut)
#include "tst_refinedcut.moc"
