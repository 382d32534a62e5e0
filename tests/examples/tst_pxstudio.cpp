#include "PXHostTestPhotos.h"
#include "PXPointList.h"
#include "PXSelectionMask.h"
#include "PXStudioView.h"
#include "PXStudioWindow.h"

#include <PXImageSegmentation.h>
#include <PXSettings.h>
#include <PXUndoController.h>

#include <QAction>
#include <QFile>
#include <QPainter>
#include <QProcess>
#include <QProgressBar>
#include <QScopeGuard>
#include <QSettings>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTest>
#include <QUndoStack>

#include <memory>

// The studio driven by mouse events under the offscreen platform. The coffee
// photo is cut once and refined by the tests that follow; the other tests use
// a small drawn photo, which cuts quickly.
class TestPXStudio : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { m_coffee.reset(); }
    void commandLine_data();
    void commandLine();
    void lassoShowsTheCutOut();
    void paintThenUndoAndRedo();
    void exportWritesTheCutOutAtPhotoSize();
    void lassosCombineAndEveryEditIsOneUndoStep();
    void scissorsOutlineBecomesTheLasso();
    void escapeCancelsTheCut();
    void plainCutIsRememberedAndKeepsPaintInside();

private:
    void mouse(PXStudioWindow& window, QEvent::Type type, const QPointF& photoPoint, Qt::MouseButton button,
        Qt::MouseButtons buttons, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    void drag(PXStudioWindow& window, const QList<QPointF>& points, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    void drawLasso(PXStudioWindow& window, const QList<QPointF>& points, Qt::KeyboardModifiers modifiers = {})
    {
        chooseTool(window, "tool.lasso");
        drag(window, points, modifiers);
    }
    static bool waitUntilIdle(PXStudioWindow& window);
    QAction* action(PXStudioWindow& window, const char* name) const
    {
        return window.findChild<QAction*>(QString::fromLatin1(name));
    }
    void chooseTool(PXStudioWindow& window, const char* name) { action(window, name)->trigger(); }
    std::unique_ptr<PXStudioWindow> smallWindow(const QString& photo = QString());

    QTemporaryDir m_dir;
    QString m_tiles;
    std::unique_ptr<PXStudioWindow> m_coffee;
    QImage m_coffeePhoto;
    QPointF m_inside; // a point of the cup that the cut took as object
};

static QList<QPointF> shippedLasso()
{
    QFile file(QStringLiteral(PX_PHOTOS_DIR "/coffee.lasso"));
    QList<QPointF> points;
    QString error;
    if (file.open(QIODevice::ReadOnly))
        PXPointList::parse(QString::fromUtf8(file.readAll()), &points, &error);
    return points;
}

static bool near(QRgb a, QRgb b, int tolerance)
{
    return qAbs(qRed(a) - qRed(b)) <= tolerance && qAbs(qGreen(a) - qGreen(b)) <= tolerance
        && qAbs(qBlue(a) - qBlue(b)) <= tolerance;
}

// What the view shows over a photo pixel: the tint where the mask covers it.
static QRgb blended(QRgb photo, QRgb maskPixel, const PXStudioView& view)
{
    const qreal a = qAlpha(maskPixel) / 255.0 * view.tintOpacity();
    const QColor tint = view.tintColour();
    auto mix = [a](int under, int over) { return qRound(under * (1 - a) + over * a); };
    return qRgb(mix(qRed(photo), tint.red()), mix(qGreen(photo), tint.green()), mix(qBlue(photo), tint.blue()));
}

void TestPXStudio::initTestCase()
{
    QVERIFY(m_dir.isValid());
    PXSettings::setStorageFile(m_dir.filePath(QStringLiteral("settings.ini")));
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, m_dir.path());

    m_tiles = m_dir.filePath(QStringLiteral("tiles.png"));
    QVERIFY(tilesPhoto().save(m_tiles));

    m_coffeePhoto = QImage(QStringLiteral(PX_PHOTOS_DIR "/coffee.png")).convertToFormat(QImage::Format_RGB32);
    m_coffee = std::make_unique<PXStudioWindow>();
    m_coffee->resize(1000, 720);
    m_coffee->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_coffee.get()));
    QVERIFY(m_coffee->openPhoto(QStringLiteral(PX_PHOTOS_DIR "/coffee.png")));
    m_coffee->view()->setZoom(1);
}

void TestPXStudio::mouse(PXStudioWindow& window, QEvent::Type type, const QPointF& photoPoint,
    Qt::MouseButton button, Qt::MouseButtons buttons, Qt::KeyboardModifiers modifiers)
{
    QWidget* viewport = window.view()->viewport();
    const QPointF local = window.view()->mapFromScene(photoPoint);
    QMouseEvent event(type, local, viewport->mapToGlobal(local), button, buttons, modifiers);
    QCoreApplication::sendEvent(viewport, &event);
}

void TestPXStudio::drag(PXStudioWindow& window, const QList<QPointF>& points, Qt::KeyboardModifiers modifiers)
{
    mouse(window, QEvent::MouseButtonPress, points.first(), Qt::LeftButton, Qt::LeftButton, modifiers);
    for (const QPointF& p : points.mid(1))
        mouse(window, QEvent::MouseMove, p, Qt::NoButton, Qt::LeftButton, modifiers);
    mouse(window, QEvent::MouseButtonRelease, points.last(), Qt::LeftButton, Qt::NoButton, modifiers);
}

bool TestPXStudio::waitUntilIdle(PXStudioWindow& window)
{
    const bool idle = QTest::qWaitFor([&window] { return !window.isBusy(); }, 45000);
    // Results the controller emitted last are still queued.
    QCoreApplication::processEvents();
    return idle;
}

std::unique_ptr<PXStudioWindow> TestPXStudio::smallWindow(const QString& photo)
{
    auto window = std::make_unique<PXStudioWindow>();
    window->resize(640, 480);
    window->show();
    if (!QTest::qWaitForWindowExposed(window.get()) || !window->openPhoto(photo.isEmpty() ? m_tiles : photo))
        return nullptr;
    window->view()->setZoom(2);
    return window;
}

void TestPXStudio::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("output");

    QTest::newRow("help") << QStringList { "--help" } << 0 << "usage: pxstudio [PHOTO]";
    QTest::newRow("version") << QStringList { "--version" } << 0 << "pxstudio 1.";
    QTest::newRow("unknown option") << QStringList { "--nope" } << 2 << "pxstudio: unexpected argument '--nope'";
    QTest::newRow("screenshot") << QStringList { "--screenshot", "shot.png" } << 0 << QString();
}

void TestPXStudio::commandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, output);

    QProcess process;
    process.setWorkingDirectory(m_dir.path());
    process.start(QStringLiteral(PXSTUDIO_PATH), arguments);
    QVERIFY(process.waitForFinished(40000));
    QCOMPARE(process.exitCode(), exitCode);
    QVERIFY(QString::fromLocal8Bit(process.readAllStandardOutput() + process.readAllStandardError()).contains(output));
    if (arguments.first() == QLatin1String("--screenshot"))
        QCOMPARE(QImage(m_dir.filePath(QStringLiteral("shot.png"))).size(), QSize(860, 580));
}

void TestPXStudio::lassoShowsTheCutOut()
{
    PXStudioWindow& window = *m_coffee;
    const QList<QPointF> lasso = shippedLasso();
    QVERIFY(lasso.size() >= 3);
    drawLasso(window, lasso);
    QVERIFY(window.findChild<QProgressBar*>()->isVisible());
    QVERIFY(waitUntilIdle(window));
    QVERIFY(!window.findChild<QProgressBar*>()->isVisible());

    const QImage mask = window.view()->mask().convertToFormat(QImage::Format_ARGB32);
    QCOMPARE(qAlpha(mask.pixel(5, 395)), 255); // table, outside the lasso
    const QList<QPointF> cup { { 188, 110 }, { 290, 150 }, { 395, 100 }, { 250, 230 } };
    const auto found = std::find_if(cup.begin(), cup.end(), [&mask](QPointF p) { return qAlpha(mask.pixel(p.toPoint())) == 0; });
    QVERIFY2(found != cup.end(), "the cut holds none of the cup's sample points");
    m_inside = *found;

    // The screen shows the photo where the mask is clear and the tinted
    // photo where it is not. Samples sit where photo and mask are even, so a
    // rounding of the view's offset cannot move them onto an edge or its outline.
    const QImage screen = window.view()->viewport()->grab().toImage().convertToFormat(QImage::Format_RGB32);
    auto even = [&mask, this](int x, int y) {
        for (int d = 0; d < 25; ++d) {
            const QPoint q(x + d % 5 - 2, y + d / 5 - 2);
            if (mask.pixel(q) != mask.pixel(x, y) || !near(m_coffeePhoto.pixel(q), m_coffeePhoto.pixel(x, y), 6))
                return false;
        }
        return true;
    };
    int object = 0;
    int background = 0;
    for (int y = 10; y < 390; y += 7) {
        for (int x = 10; x < 590; x += 7) {
            if (!even(x, y))
                continue;
            const QRgb shown = screen.pixel(window.view()->mapFromScene(QPointF(x + 0.5, y + 0.5)));
            const QRgb expected = blended(m_coffeePhoto.pixel(x, y), mask.pixel(x, y), *window.view());
            QVERIFY2(near(shown, expected, 8), qPrintable(QStringLiteral("at %1,%2").arg(x).arg(y)));
            (qAlpha(mask.pixel(x, y)) == 0 ? object : background) += 1;
        }
    }
    QVERIFY(object > 20);
    QVERIFY(background > 20);
}

void TestPXStudio::paintThenUndoAndRedo()
{
    PXStudioWindow& window = *m_coffee;
    QVERIFY(!m_inside.isNull());
    QUndoStack* stack = PXUndoController::instanceForFotoEditor()->undoStack();
    const int commands = stack->count();
    const QImage before = window.view()->mask();

    chooseTool(window, "tool.paint");
    action(window, "target.background")->trigger();
    window.setBrushRadius(6);
    drag(window, { m_inside - QPointF(10, 0), m_inside, m_inside + QPointF(10, 0) });
    QVERIFY(waitUntilIdle(window));
    QTRY_COMPARE(stack->count(), commands + 1);
    QCOMPARE(qAlpha(window.view()->mask().pixel(m_inside.toPoint())), 255);
    QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier);
    QTRY_COMPARE(window.view()->mask(), before);
    QCOMPARE(window.segmentation()->maskForeground(), before);
    action(window, "redo")->trigger();
    QTRY_COMPARE(qAlpha(window.view()->mask().pixel(m_inside.toPoint())), 255);
    action(window, "undo")->trigger();
    QTRY_COMPARE(window.view()->mask(), before);
}

void TestPXStudio::exportWritesTheCutOutAtPhotoSize()
{
    const QString target = m_dir.filePath(QStringLiteral("cup.png"));
    QVERIFY(m_coffee->exportCutOut(target));
    const QImage cutout(target);
    QCOMPARE(cutout.size(), QSize(600, 400));
    QVERIFY(cutout.hasAlphaChannel());
    QCOMPARE(qAlpha(cutout.pixel(5, 395)), 0);
    QCOMPARE(cutout.pixel(m_inside.toPoint()), m_coffeePhoto.pixel(m_inside.toPoint()));

    // Soft edge: remembered, shown, and the export is the matte's.
    action(*m_coffee, "softEdge")->trigger();
    const auto hardAgain = qScopeGuard([this] { action(*m_coffee, "softEdge")->trigger(); });
    QVERIFY(QSettings(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("PXImageCutter"),
        QStringLiteral("pxstudio")).value(QStringLiteral("cut/softEdge")).toBool());
    QVERIFY(m_coffee->exportCutOut(target));
    const QImage soft = QImage(target).convertToFormat(QImage::Format_ARGB32);
    QCOMPARE(soft, m_coffee->segmentation()->matteCutout(m_coffeePhoto));
    const QImage shown = m_coffee->view()->mask();
    for (const QPoint point : { m_inside.toPoint(), QPoint(5, 395) })
        QCOMPARE(qAlpha(shown.pixel(point)), 255 - qAlpha(soft.pixel(point)));
}

void TestPXStudio::scissorsOutlineBecomesTheLasso()
{
    const auto window = smallWindow();
    QVERIFY(window);
    chooseTool(*window, "tool.scissors");
    const QList<QPointF> seeds { { 40, 15 }, { 125, 15 }, { 125, 105 }, { 40, 105 } };
    for (const QPointF& seed : seeds) {
        mouse(*window, QEvent::MouseMove, seed, Qt::NoButton, Qt::NoButton);
        // The wire to the next seed is ready once the search has reached it.
        QTest::qWait(20);
        mouse(*window, QEvent::MouseButtonPress, seed, Qt::LeftButton, Qt::LeftButton);
        mouse(*window, QEvent::MouseButtonRelease, seed, Qt::LeftButton, Qt::NoButton);
    }
    mouse(*window, QEvent::MouseButtonDblClick, seeds.last(), Qt::LeftButton, Qt::LeftButton);
    mouse(*window, QEvent::MouseButtonRelease, seeds.last(), Qt::LeftButton, Qt::NoButton);
    QVERIFY(waitUntilIdle(*window));
    const QImage mask = window->view()->mask();
    QCOMPARE(qAlpha(mask.pixel(80, 60)), 0);
    QCOMPARE(qAlpha(mask.pixel(5, 5)), 255);
}

void TestPXStudio::escapeCancelsTheCut()
{
    const auto window = smallWindow();
    QVERIFY(window);
    drawLasso(*window, tilesLasso());
    QVERIFY(window->isBusy());
    QTest::keyClick(window.get(), Qt::Key_Escape);
    QVERIFY(!window->isBusy());
    QVERIFY(!window->findChild<QProgressBar*>()->isVisible());
    QCOMPARE(window->statusText(), QStringLiteral("Cancelled."));
    // The stopped cut's results never reach the screen.
    QTest::qWait(300);
    QVERIFY(window->view()->mask().isNull());

    // The studio is ready for the next lasso.
    drawLasso(*window, tilesLasso());
    QVERIFY(waitUntilIdle(*window));
    QCOMPARE(qAlpha(window->view()->mask().pixel(80, 60)), 0);
}

void TestPXStudio::lassosCombineAndEveryEditIsOneUndoStep()
{
    // Two tile blocks side by side: one lasso for each.
    QImage two(320, 120, QImage::Format_RGB32);
    QPainter(&two).drawImage(0, 0, tilesPhoto());
    QPainter(&two).drawImage(160, 0, tilesPhoto());
    const QString photo = m_dir.filePath(QStringLiteral("two.png"));
    QVERIFY(two.save(photo));
    const auto window = smallWindow(photo);
    QVERIFY(window);
    window->view()->setZoom(1);
    QUndoStack* stack = PXUndoController::instanceForFotoEditor()->undoStack();
    QList<QPointF> right;
    for (const QPointF& p : tilesLasso())
        right.append(p + QPointF(160, 0));
    auto selected = [&window](int x) { return qAlpha(window->view()->mask().pixel(x, 60)) < 128; };
    auto key = [&window](Qt::Key key, Qt::KeyboardModifiers modifiers) {
        QTest::keyClick(window.get(), key, modifiers);
        return waitUntilIdle(*window);
    };

    drawLasso(*window, tilesLasso());
    QVERIFY(waitUntilIdle(*window));
    QVERIFY(selected(80) && !selected(240));
    drawLasso(*window, right, Qt::ShiftModifier);
    QVERIFY(waitUntilIdle(*window));
    QTRY_VERIFY(selected(80) && selected(240));
    drawLasso(*window, tilesLasso(), Qt::AltModifier);
    QVERIFY(waitUntilIdle(*window));
    QTRY_VERIFY(!selected(80) && selected(240));
    QCOMPARE(stack->count(), 3);
    // Undo after a lasso brings back the selection before it.
    QVERIFY(key(Qt::Key_Z, Qt::ControlModifier));
    QTRY_VERIFY(selected(80) && selected(240));
    QTest::keySequence(window.get(), QKeySequence::Redo);
    QTRY_VERIFY(!selected(80) && selected(240));

    // Grow, shrink and feather by the amount, one step each.
    auto* amount = window->findChild<QSpinBox*>(QStringLiteral("amount"));
    QTest::keyClick(amount, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClicks(amount, QStringLiteral("3"));
    window->view()->setFocus();
    const int commands = stack->count();
    auto share = [&window] { return PXSelectionMask::selectedShare(PXSelectionMask::fromMask(window->view()->mask())); };
    const qreal before = share();
    QVERIFY(key(Qt::Key_BracketRight, Qt::ControlModifier));
    QVERIFY(share() > before);
    QVERIFY(key(Qt::Key_BracketLeft, Qt::ControlModifier));
    QVERIFY(key(Qt::Key_F, Qt::ControlModifier | Qt::AltModifier));
    QCOMPARE(stack->count(), commands + 3);
    const QImage feathered = PXSelectionMask::fromMask(window->view()->mask());
    const uchar* row = feathered.constScanLine(60);
    QVERIFY(std::any_of(row, row + 320, [](uchar value) { return value > 20 && value < 235; }));

    // Every step undoes, back to before the first lasso.
    while (stack->canUndo())
        QVERIFY(key(Qt::Key_Z, Qt::ControlModifier));
    QTRY_VERIFY(window->view()->mask().isNull());
}

// Refine edges is on by default and remembered; with it off, the cut is the
// plain one and a paint stroke into the object that touches the region
// outside the lasso is ignored, as it would select all of that region.
void TestPXStudio::plainCutIsRememberedAndKeepsPaintInside()
{
    auto window = smallWindow();
    QVERIFY(window);
    QVERIFY(action(*window, "refine")->isChecked());
    QVERIFY(window->segmentation()->refinedCut());
    action(*window, "refine")->trigger();
    window = smallWindow();
    QVERIFY(window);
    QVERIFY(!action(*window, "refine")->isChecked());
    QVERIFY(!window->segmentation()->refinedCut());

    drawLasso(*window, tilesLasso());
    QVERIFY(waitUntilIdle(*window));
    QUndoStack* stack = PXUndoController::instanceForFotoEditor()->undoStack();
    const int commands = stack->count();
    const QImage before = window->view()->mask();
    QCOMPARE(qAlpha(before.pixel(5, 5)), 255);

    chooseTool(*window, "tool.paint");
    window->setBrushTargetIsObject(true);
    window->setBrushRadius(4);
    // Across the grown lasso's left edge (x 25 at this height).
    drag(*window, { { 27, 60 }, { 22, 60 } });
    QVERIFY(waitUntilIdle(*window));
    QTest::qWait(50);
    QVERIFY2(window->statusText().contains(QStringLiteral("outside the lasso")), qPrintable(window->statusText()));
    QCOMPARE(qAlpha(window->view()->mask().pixel(5, 5)), 255);
    QCOMPARE(PXSelectionMask::selectedShare(PXSelectionMask::fromMask(window->view()->mask())),
        PXSelectionMask::selectedShare(PXSelectionMask::fromMask(before)));
    QCOMPARE(stack->count(), commands);

    // Inside a region of its own the brush still paints.
    chooseTool(*window, "tool.click");
    mouse(*window, QEvent::MouseButtonPress, { 80, 60 }, Qt::LeftButton, Qt::LeftButton);
    mouse(*window, QEvent::MouseButtonRelease, { 80, 60 }, Qt::LeftButton, Qt::NoButton);
    QVERIFY(waitUntilIdle(*window));
    QTRY_COMPARE(qAlpha(window->view()->mask().pixel(80, 60)), 255);
    chooseTool(*window, "tool.paint");
    drag(*window, { { 79, 60 }, { 81, 60 } });
    QVERIFY(waitUntilIdle(*window));
    QTRY_COMPARE(qAlpha(window->view()->mask().pixel(80, 60)), 0);
    QVERIFY(!window->statusText().contains(QStringLiteral("outside the lasso")));

    action(*window, "refine")->trigger();
    window = smallWindow();
    QVERIFY(window && window->segmentation()->refinedCut());
}

QTEST_MAIN(TestPXStudio)
#include "tst_pxstudio.moc"
