#include "PXHostTestPhotos.h"
#include "PXPointList.h"
#include "PXStudioView.h"
#include "PXStudioWindow.h"

#include <PXImageSegmentation.h>
#include <PXSettings.h>
#include <PXUndoController.h>

#include <QAction>
#include <QDir>
#include <QFile>
#include <QMimeData>
#include <QPainter>
#include <QProgressBar>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>
#include <QUndoStack>
#include <QUrl>

#include <memory>

// The studio driven by mouse events under the offscreen platform. The coffee
// photo is cut once and refined by the tests that follow; the other tests use
// a small drawn photo, which cuts quickly.
class TestPXStudio : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void lassoShowsTheCutOut();
    void paintThenUndoAndRedo();
    void clickIsOneUndoableEdit();
    void hoverPreviewsWithoutChangingTheMask();
    void colourAndInversion();
    void contoursToggle();
    void screenshot();
    void exportWritesTheCutOutAtPhotoSize();
    void scissorsOutlineBecomesTheLasso();
    void escapeCancelsTheCut();
    void droppedFileOpens();
    void zoomAndPan();

private:
    QPoint at(PXStudioWindow& window, const QPointF& photoPoint) const;
    void mouse(PXStudioWindow& window, QEvent::Type type, const QPointF& photoPoint, Qt::MouseButton button,
        Qt::MouseButtons buttons);
    void drag(PXStudioWindow& window, const QList<QPointF>& points);
    void drawLasso(PXStudioWindow& window, const QList<QPointF>& points);
    bool waitUntilIdle(PXStudioWindow& window);
    QAction* action(PXStudioWindow& window, const char* name) const;
    void chooseTool(PXStudioWindow& window, const char* name);
    std::unique_ptr<PXStudioWindow> smallWindow();

    QTemporaryDir m_dir;
    QString m_tiles;
    std::unique_ptr<PXStudioWindow> m_coffee;
    QImage m_coffeePhoto;
    // A point of the cup that the cut took as object.
    QPointF m_inside;
};

static QList<QPointF> shippedLasso()
{
    QFile file(QStringLiteral(PX_PHOTOS_DIR "/coffee.lasso"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QList<QPointF> points;
    QString error;
    PXPointList::parse(QString::fromUtf8(file.readAll()), &points, &error);
    return points;
}

static bool near(QRgb a, QRgb b, int tolerance)
{
    return qAbs(qRed(a) - qRed(b)) <= tolerance && qAbs(qGreen(a) - qGreen(b)) <= tolerance
        && qAbs(qBlue(a) - qBlue(b)) <= tolerance;
}

// What the view shows over a photo pixel: the mask's colour at its opacity.
static QRgb blended(QRgb photo, QRgb maskPixel)
{
    const qreal a = qAlpha(maskPixel) / 255.0 * PXStudioView::myMaskOpacity;
    auto mix = [a](int under, int over) { return qRound(under * (1 - a) + over * a); };
    return qRgb(mix(qRed(photo), qRed(maskPixel)), mix(qGreen(photo), qGreen(maskPixel)),
        mix(qBlue(photo), qBlue(maskPixel)));
}

void TestPXStudio::initTestCase()
{
    QVERIFY(m_dir.isValid());
    PXSettings::setStorageFile(m_dir.filePath(QStringLiteral("settings.ini")));

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

void TestPXStudio::cleanupTestCase()
{
    m_coffee.reset();
}

QPoint TestPXStudio::at(PXStudioWindow& window, const QPointF& photoPoint) const
{
    return window.view()->mapFromScene(photoPoint);
}

void TestPXStudio::mouse(PXStudioWindow& window, QEvent::Type type, const QPointF& photoPoint,
    Qt::MouseButton button, Qt::MouseButtons buttons)
{
    QWidget* viewport = window.view()->viewport();
    const QPointF local = at(window, photoPoint);
    QMouseEvent event(type, local, viewport->mapToGlobal(local), button, buttons, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &event);
}

void TestPXStudio::drag(PXStudioWindow& window, const QList<QPointF>& points)
{
    mouse(window, QEvent::MouseButtonPress, points.first(), Qt::LeftButton, Qt::LeftButton);
    for (const QPointF& p : points.mid(1))
        mouse(window, QEvent::MouseMove, p, Qt::NoButton, Qt::LeftButton);
    mouse(window, QEvent::MouseButtonRelease, points.last(), Qt::LeftButton, Qt::NoButton);
}

void TestPXStudio::drawLasso(PXStudioWindow& window, const QList<QPointF>& points)
{
    chooseTool(window, "tool.lasso");
    drag(window, points);
}

bool TestPXStudio::waitUntilIdle(PXStudioWindow& window)
{
    const bool idle = QTest::qWaitFor([&window] { return !window.isBusy(); }, 45000);
    // Results the controller emitted last are still queued.
    QCoreApplication::processEvents();
    return idle;
}

QAction* TestPXStudio::action(PXStudioWindow& window, const char* name) const
{
    return window.findChild<QAction*>(QString::fromLatin1(name));
}

void TestPXStudio::chooseTool(PXStudioWindow& window, const char* name)
{
    QAction* tool = action(window, name);
    QVERIFY(tool);
    tool->trigger();
}

std::unique_ptr<PXStudioWindow> TestPXStudio::smallWindow()
{
    auto window = std::make_unique<PXStudioWindow>();
    window->resize(640, 480);
    window->show();
    if (!QTest::qWaitForWindowExposed(window.get()) || !window->openPhoto(m_tiles))
        return nullptr;
    window->view()->setZoom(2);
    return window;
}

void TestPXStudio::lassoShowsTheCutOut()
{
    PXStudioWindow& window = *m_coffee;
    const QList<QPointF> lasso = shippedLasso();
    QVERIFY(lasso.size() >= 3);
    drawLasso(window, lasso);
    QVERIFY(window.isBusy());
    QVERIFY(window.findChild<QProgressBar*>()->isVisible());
    QVERIFY(waitUntilIdle(window));
    QVERIFY(!window.findChild<QProgressBar*>()->isVisible());

    const QImage mask = window.view()->mask().convertToFormat(QImage::Format_ARGB32);
    QCOMPARE(mask.size(), QSize(600, 400));
    QCOMPARE(qAlpha(mask.pixel(5, 395)), 255); // table, outside the lasso
    for (const QPointF& candidate : { QPointF(188, 110), QPointF(290, 150), QPointF(395, 100), QPointF(250, 230) }) {
        if (qAlpha(mask.pixel(candidate.toPoint())) == 0) {
            m_inside = candidate;
            break;
        }
    }
    QVERIFY2(!m_inside.isNull(), "the cut holds none of the cup's sample points");

    // The screen shows the photo where the mask is clear and the tinted
    // photo where it is not. Samples sit where photo and mask are even, so a
    // rounding of the view's offset cannot move them onto an edge.
    const QImage screen = window.view()->viewport()->grab().toImage().convertToFormat(QImage::Format_RGB32);
    auto even = [&mask, this](int x, int y) {
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                if (mask.pixel(x + dx, y + dy) != mask.pixel(x, y)
                    || !near(m_coffeePhoto.pixel(x + dx, y + dy), m_coffeePhoto.pixel(x, y), 6))
                    return false;
            }
        }
        return true;
    };
    int object = 0;
    int background = 0;
    for (int y = 10; y < 390; y += 7) {
        for (int x = 10; x < 590; x += 7) {
            if (!even(x, y))
                continue;
            const QRgb shown = screen.pixel(at(window, QPointF(x + 0.5, y + 0.5)));
            const QRgb expected = blended(m_coffeePhoto.pixel(x, y), mask.pixel(x, y));
            QVERIFY2(near(shown, expected, 8),
                qPrintable(QStringLiteral("at %1,%2: %3 instead of %4").arg(x).arg(y).arg(shown, 0, 16).arg(expected, 0, 16)));
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
    QCOMPARE(stack->count(), 0);
    const QImage before = window.view()->mask();

    chooseTool(window, "tool.paint");
    action(window, "target.background")->trigger();
    window.setBrushRadius(6);
    drag(window, { m_inside - QPointF(10, 0), m_inside, m_inside + QPointF(10, 0) });
    QVERIFY(waitUntilIdle(window));
    QTRY_COMPARE(stack->count(), 1);
    const QImage after = window.view()->mask();
    QCOMPARE(qAlpha(after.pixel(m_inside.toPoint())), 255);

    action(window, "undo")->trigger();
    QTRY_COMPARE(window.view()->mask(), before);
    QCOMPARE(window.segmentation()->maskForeground(), before);
    action(window, "redo")->trigger();
    QTRY_COMPARE(qAlpha(window.view()->mask().pixel(m_inside.toPoint())), 255);
    action(window, "undo")->trigger();
    QTRY_COMPARE(window.view()->mask(), before);
}

void TestPXStudio::clickIsOneUndoableEdit()
{
    PXStudioWindow& window = *m_coffee;
    QUndoStack* stack = PXUndoController::instanceForFotoEditor()->undoStack();
    const int commands = stack->index();
    const QImage before = window.view()->mask();
    chooseTool(window, "tool.click");
    mouse(window, QEvent::MouseButtonPress, m_inside, Qt::LeftButton, Qt::LeftButton);
    mouse(window, QEvent::MouseButtonRelease, m_inside, Qt::LeftButton, Qt::NoButton);
    QVERIFY(waitUntilIdle(window));
    QCOMPARE(stack->index(), commands + 1);
    QCOMPARE(qAlpha(window.view()->mask().pixel(m_inside.toPoint())), 255);
    action(window, "undo")->trigger();
    QTRY_COMPARE(window.view()->mask(), before);
}

void TestPXStudio::hoverPreviewsWithoutChangingTheMask()
{
    PXStudioWindow& window = *m_coffee;
    const QImage real = window.view()->mask();
    QCOMPARE(qAlpha(real.pixel(m_inside.toPoint())), 0);
    chooseTool(window, "tool.paint");
    action(window, "target.background")->trigger();
    mouse(window, QEvent::MouseMove, m_inside, Qt::NoButton, Qt::NoButton);
    QTRY_COMPARE(qAlpha(window.view()->mask().pixel(m_inside.toPoint())), 255);
    QCOMPARE(window.segmentation()->maskForeground(), real);

    QEvent leave(QEvent::Leave);
    QCoreApplication::sendEvent(window.view(), &leave);
    QVERIFY(waitUntilIdle(window));
    QTRY_COMPARE(window.view()->mask(), real);
}

void TestPXStudio::colourAndInversion()
{
    PXStudioWindow& window = *m_coffee;
    const QPoint inside = m_inside.toPoint();
    window.setMaskColour(QColor(200, 40, 160));
    QTRY_COMPARE(window.view()->mask().pixel(5, 395), qRgb(200, 40, 160));
    QCOMPARE(qAlpha(window.view()->mask().pixel(inside)), 0);

    action(window, "invert")->trigger();
    QTRY_COMPARE(qAlpha(window.view()->mask().pixel(5, 395)), 0);
    QCOMPARE(window.view()->mask().pixel(inside), qRgb(200, 40, 160));
    action(window, "invert")->trigger();
    QTRY_COMPARE(qAlpha(window.view()->mask().pixel(inside)), 0);
    QVERIFY(waitUntilIdle(window));
}

void TestPXStudio::contoursToggle()
{
    PXStudioWindow& window = *m_coffee;
    QAction* contours = action(window, "contours");
    QVERIFY(!window.view()->hasContours());
    contours->trigger();
    QVERIFY(window.view()->hasContours());
    contours->trigger();
    QVERIFY(!window.view()->hasContours());
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
}

void TestPXStudio::screenshot()
{
    PXStudioWindow& window = *m_coffee;
    window.setMaskColour(QColor(250, 250, 250));
    QVERIFY(waitUntilIdle(window));
    window.resize(860, 580);
    QTRY_COMPARE(window.size(), QSize(860, 580));
    window.view()->fitToWindow();
    chooseTool(window, "tool.paint");
    action(window, "target.object")->trigger();
    window.setBrushRadius(14);
    QCOMPARE(window.view()->brushRadius(), 14);
    mouse(window, QEvent::MouseMove, m_inside, Qt::NoButton, Qt::NoButton);
    QVERIFY(waitUntilIdle(window));
    QVERIFY(window.statusText().startsWith(QStringLiteral("Cut: the object covers ")));

    const QString folder = qEnvironmentVariableIsSet("PX_TEST_ARTIFACT_DIR")
        ? qEnvironmentVariable("PX_TEST_ARTIFACT_DIR")
        : QStringLiteral(PX_TEST_ARTIFACT_DIR);
    QVERIFY(QDir().mkpath(folder));
    const QString file = QDir(folder).filePath(QStringLiteral("pxstudio.png"));
    const QImage shot = window.grab().toImage();
    QCOMPARE(shot.size(), window.size() * window.devicePixelRatio());
    QVERIFY(shot.save(file));
    qInfo("screenshot: %s", qPrintable(file));
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
    QVERIFY(window->isBusy());
    QVERIFY(waitUntilIdle(*window));
    const QImage mask = window->view()->mask();
    QVERIFY(!mask.isNull());
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

void TestPXStudio::droppedFileOpens()
{
    const auto window = smallWindow();
    QVERIFY(window);
    QWidget* viewport = window->view()->viewport();
    QMimeData mime;
    mime.setUrls({ QUrl::fromLocalFile(QStringLiteral(PX_PHOTOS_DIR "/astronaut.png")) });
    const QPoint centre = viewport->rect().center();
    QDragEnterEvent enter(centre, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent drop(centre, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &drop);
    QCOMPARE(window->photo().photo().size(), QSize(512, 512));
    QCOMPARE(window->view()->photoSize(), QSize(512, 512));
    QVERIFY(window->windowTitle().startsWith(QStringLiteral("astronaut.png")));

    // Text and folders are refused.
    QMimeData text;
    text.setText(QStringLiteral("hello"));
    QDragEnterEvent refused(centre, Qt::CopyAction, &text, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &refused);
    QVERIFY(!refused.isAccepted());
    QVERIFY(!window->openPhoto(m_dir.filePath(QStringLiteral("missing.png"))));
    QCOMPARE(window->view()->photoSize(), QSize(512, 512));
}

void TestPXStudio::zoomAndPan()
{
    const auto window = smallWindow();
    QVERIFY(window);
    PXStudioView* view = window->view();
    view->setZoom(1);
    action(*window, "zoomIn")->trigger();
    QCOMPARE(view->zoom(), 1.25);
    action(*window, "zoomOut")->trigger();
    QCOMPARE(view->zoom(), 1.0);

    QWheelEvent wheel(QPointF(50, 50), view->viewport()->mapToGlobal(QPointF(50, 50)), QPoint(), QPoint(0, 240),
        Qt::NoButton, Qt::ControlModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(view->viewport(), &wheel);
    QCOMPARE(view->zoom(), 1.5625);

    view->setZoom(8);
    QScrollBar* horizontal = view->horizontalScrollBar();
    horizontal->setValue(horizontal->maximum() / 2);
    const int start = horizontal->value();
    QWidget* viewport = view->viewport();
    auto send = [viewport](QEvent::Type type, QPointF p, Qt::MouseButton button, Qt::MouseButtons buttons) {
        QMouseEvent event(type, p, viewport->mapToGlobal(p), button, buttons, Qt::NoModifier);
        QCoreApplication::sendEvent(viewport, &event);
    };
    send(QEvent::MouseButtonPress, QPointF(200, 200), Qt::MiddleButton, Qt::MiddleButton);
    send(QEvent::MouseMove, QPointF(150, 200), Qt::NoButton, Qt::MiddleButton);
    send(QEvent::MouseButtonRelease, QPointF(150, 200), Qt::MiddleButton, Qt::NoButton);
    QCOMPARE(horizontal->value(), start + 50);

    action(*window, "fit")->trigger();
    QCOMPARE(view->zoom(), 1.0); // a small photo is not blown up
}

QTEST_MAIN(TestPXStudio)
#include "tst_pxstudio.moc"
