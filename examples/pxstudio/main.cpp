// pxstudio: an interactive studio for cutting objects out of photos with the
// library: lasso, click, paint, scribble and intelligent scissors, with undo.
//
//   pxstudio [PHOTO] [--screenshot FILE]
//
// Without PHOTO the shipped coffee photo is opened.
#include "PXPointList.h"
#include "PXStudioView.h"
#include "PXStudioWindow.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMouseEvent>
#include <QElapsedTimer>
#include <QThread>

#include <functional>

#include <cstdio>

namespace {

const char* myUsage =
    "usage: pxstudio [PHOTO] [--screenshot FILE]\n"
    "       pxstudio --help | --version\n"
    "\n"
    "Opens PHOTO (default: the shipped coffee photo) for cutting out. Lassos give the\n"
    "refined cut, whose outline follows the object's edges, unless Tools > Refine edges\n"
    "is unchecked (the choice is remembered); then they give the plain cut of whole regions.\n"
    "--screenshot FILE  cuts PHOTO with the lasso file beside it (PHOTO's-name.lasso),\n"
    "                   shows the paint brush's preview over it and saves the window\n"
    "                   as FILE, then quits; runs without a display.\n"
    "Help > Keys and mouse (F1) lists the tools.\n";

bool waitUntil(const std::function<bool()>& done, int milliseconds)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > milliseconds)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(5);
    }
    return true;
}

// The window with a cut in progress, for the README: the lasso shipped beside
// the photo, then the paint brush hovering over the object.
int screenshot(PXStudioWindow& window, const QString& photo, const QString& file)
{
    const QFileInfo info(photo);
    QFile lassoFile(info.dir().filePath(info.completeBaseName() + QStringLiteral(".lasso")));
    QList<QPointF> lasso;
    QString error;
    if (!lassoFile.open(QIODevice::ReadOnly) || !PXPointList::parse(QString::fromUtf8(lassoFile.readAll()), &lasso, &error)
        || lasso.size() < 3) {
        std::fprintf(stderr, "pxstudio: --screenshot needs %s\n", qPrintable(lassoFile.fileName()));
        return 1;
    }
    window.resize(860, 580);
    window.show();
    if (!waitUntil([&window] { return window.isVisible(); }, 5000) || !window.openPhoto(photo))
        return 1;
    const QSize working = window.photo().working().size();
    const qreal sx = qreal(working.width()) / window.photo().photo().width();
    const qreal sy = qreal(working.height()) / window.photo().photo().height();
    window.cut(PXPointList::closedPolygon(PXPointList::scaled(lasso, sx, sy)));
    if (!waitUntil([&window] { return !window.isBusy(); }, 60000))
        return 1;
    window.findChild<QAction*>(QStringLiteral("tool.paint"))->trigger();
    window.setBrushRadius(14);
    // The brush over the middle of the lasso, previewing what it would add.
    const QPointF centre = PXPointList::closedPolygon(PXPointList::scaled(lasso, sx, sy)).boundingRect().center();
    QWidget* viewport = window.view()->viewport();
    const QPoint at = window.view()->mapFromScene(centre);
    QMouseEvent move(QEvent::MouseMove, at, viewport->mapToGlobal(at), Qt::NoButton, Qt::NoButton, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &move);
    waitUntil([&window] { return !window.isBusy(); }, 10000);
    QElapsedTimer settle;
    settle.start();
    waitUntil([&settle] { return settle.elapsed() > 200; }, 1000);
    if (!window.grab().save(file)) {
        std::fprintf(stderr, "pxstudio: cannot write %s\n", qPrintable(file));
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    QString photo = QStringLiteral(PX_PHOTOS_DIR "/coffee.png");
    QString shot;
    bool photoGiven = false;
    for (int i = 1; i < argc; ++i) {
        const QString argument = QString::fromLocal8Bit(argv[i]);
        if (argument == QLatin1String("--help") || argument == QLatin1String("-h")) {
            std::printf("%s", myUsage);
            return 0;
        }
        if (argument == QLatin1String("--version")) {
            std::printf("pxstudio %s\n", PX_VERSION);
            return 0;
        }
        if (argument == QLatin1String("--screenshot") && i + 1 < argc) {
            shot = QString::fromLocal8Bit(argv[++i]);
        } else if (argument.startsWith(QLatin1Char('-')) || photoGiven) {
            std::fprintf(stderr, "pxstudio: unexpected argument '%s'\n\n%s", qPrintable(argument), myUsage);
            return 2;
        } else {
            photo = argument;
            photoGiven = true;
        }
    }
    // A screenshot needs no display.
    if (!shot.isEmpty() && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("pxstudio"));

    PXStudioWindow window;
    if (!shot.isEmpty())
        return screenshot(window, photo, shot);
    if (QFileInfo::exists(photo) || photoGiven)
        window.openPhoto(photo);
    window.show();
    return application.exec();
}
