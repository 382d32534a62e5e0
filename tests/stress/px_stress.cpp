// Random host sessions against the segmentation controller and the scissors:
//   px_stress [sessions [first seed]]
// Each session is reproducible from its seed (PX_STRESS_TRACE=1 prints its
// requests). Requests come at random moments, also while the worker or the
// controller thread runs; whenever the session waits for quiet it checks what
// a host relies on. A broken rule prints the seed and step and exits with 1.

#include "PXIntelligentScissors.h"
#include "PXUndoController.h"
#include "SegmentationTestSupport.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QPainter>
#include <QPainterPathStroker>
#include <QRandomGenerator>
#include <QUndoStack>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>

namespace {

constexpr int myWaitLimitMs = 60000; // nothing a host does may wait longer
quint32 mySeed = 0;
int myStep = 0;

void trace(const char* request, int detail)
{
    static const bool enabled = qEnvironmentVariableIsSet("PX_STRESS_TRACE");
    if (enabled)
        std::fprintf(stderr, "seed %u step %d: %s %d\n", mySeed, myStep, request, detail);
}

void check(bool condition, const char* rule)
{
    if (condition)
        return;
    std::fprintf(stderr, "px_stress: seed %u step %d: %s\n", mySeed, myStep, rule);
    std::exit(1);
}

QImage randomPhoto(QRandomGenerator& random)
{
    const bool large = random.bounded(50) == 0;
    const int width = large ? random.bounded(800, 2001) : random.bounded(1, 321);
    const int height = large ? random.bounded(600, 1501) : random.bounded(1, 241);
    QImage photo(width, height, QImage::Format_RGB32);
    photo.fill(QColor::fromRgb(random.generate()));
    QPainter painter(&photo);
    painter.setPen(Qt::NoPen);
    for (int i = 0; i < 5; ++i) {
        painter.setBrush(QColor::fromRgb(random.generate()));
        painter.drawEllipse(QRectF(random.bounded(width), random.bounded(height), random.bounded(width) + 1,
            random.bounded(height) + 1));
    }
    painter.end();
    static const QImage::Format formats[] = {QImage::Format_ARGB32, QImage::Format_RGB32,
        QImage::Format_RGB888, QImage::Format_Grayscale8, QImage::Format_Indexed8};
    trace("photo", width * 10000 + height);
    return photo.convertToFormat(formats[random.bounded(5)]);
}

QPointF randomPoint(QRandomGenerator& random, QSizeF size, double reach = 1.0)
{
    const double margin = (reach - 1) / 2;
    return QPointF((random.generateDouble() * reach - margin) * size.width(),
        (random.generateDouble() * reach - margin) * size.height());
}

// Tiny or empty, crossing itself, partly or wholly outside, with a NaN or
// huge coordinate, drawn by a jittery hand, or a plain polygon.
QPainterPath randomLasso(QRandomGenerator& random, QSizeF size)
{
    QPolygonF polygon;
    const QPointF centre = randomPoint(random, size);
    const double radius = random.bounded(0.6) * std::max(size.width(), size.height()) + 0.5;
    const double odd[] = {std::numeric_limits<double>::quiet_NaN(), 1e7, -1e30, 1e300};
    const int kind = random.bounded(6);
    const int points = kind == 0 ? random.bounded(3) : kind == 4 ? random.bounded(65, 4000) : random.bounded(3, 40);
    for (int i = 0; i < points; ++i) {
        const QPointF ray(std::cos(2 * M_PI * i / points), std::sin(2 * M_PI * i / points));
        if (kind == 0)
            polygon << centre + QPointF(random.bounded(2.0), random.bounded(2.0));
        else if (kind == 1)
            polygon << randomPoint(random, size);
        else if (kind == 2)
            polygon << randomPoint(random, size, random.bounded(2) ? 3.0 : 1.5) + QPointF(size.width(), 0);
        else if (kind == 3 && i == 1)
            polygon << QPointF(odd[random.bounded(4)], centre.y());
        else if (kind == 4)
            polygon << centre + radius * ray + QPointF(random.bounded(6.0) - 3, random.bounded(6.0) - 3);
        else
            polygon << centre + radius * (0.5 + random.bounded(0.5)) * ray;
    }
    QPainterPath path;
    path.addPolygon(polygon);
    if (random.bounded(4))
        path.closeSubpath();
    return path;
}

QPainterPath randomStroke(QRandomGenerator& random, QSizeF size)
{
    QPainterPath line(randomPoint(random, size, 1.2));
    for (int i = random.bounded(1, 12); i > 0; --i)
        line.lineTo(line.currentPosition() + QPointF(random.bounded(40.0) - 20, random.bounded(40.0) - 20));
    QPainterPathStroker brush;
    brush.setWidth(1 + random.bounded(29.0));
    return brush.createStroke(line);
}

// Waits until the pool, the controller thread and queued signals are done.
void settle(Host& host)
{
    for (int round = 0; round < 3; ++round) {
        check(QThreadPool::globalInstance()->waitForDone(myWaitLimitMs), "pool task ends in time");
        QCoreApplication::processEvents();
        check(host.controller.wait(QDeadlineTimer(myWaitLimitMs)), "controller thread ends in time");
        QCoreApplication::processEvents();
    }
}

// Masks are null or the photo's size, holding only 0 and the opaque mask colour.
void checkQuietState(Host& host, QSize size)
{
    const std::unique_ptr<PXMementoSegmentation> state(host.controller.createMemento(false));
    check(!state->foregroundClusters().intersects(state->backgroundClusters()), "object and background disjoint");
    const QImage mask = host.controller.maskForeground();
    check(mask.isNull() || (mask.size() == size && mask.format() == QImage::Format_ARGB32_Premultiplied),
        "mask size and format");
    const QRgb colour = state->maskColor().rgb() | 0xFF000000;
    for (int y = 0; y < mask.height(); ++y) {
        const auto* row = reinterpret_cast<const QRgb*>(mask.constScanLine(y));
        for (int x = 0; x < mask.width(); ++x)
            check(row[x] == 0 || row[x] == colour, "mask holds only 0 and the mask colour");
    }
    for (const QList<QVariant>& arguments : std::as_const(host.masks)) {
        const QImage emitted = arguments.first().value<QImage>();
        check(emitted.isNull() || (emitted.size() == size && emitted.format() == QImage::Format_ARGB32_Premultiplied),
            "emitted mask's size and format");
    }
    host.masks.clear();
}

void controllerSession(QRandomGenerator& random)
{
    QUndoStack* undo = PXUndoController::instanceForFotoEditor()->undoStack();
    undo->clear();
    auto host = std::make_unique<Host>();
    // Half the sessions take the refined cut, whose strokes re-solve it.
    host->controller.setRefinedCut(random.bounded(2) == 0);
    QImage photo = randomPhoto(random);
    host->controller.setup(photo, QFileInfo());
    for (myStep = 0; myStep < random.bounded(3, 12); ++myStep) {
        const bool quiet = random.bounded(3) != 0;
        if (quiet) {
            settle(*host);
            checkQuietState(*host, photo.size());
        }
        const int request = random.bounded(12);
        trace(quiet ? "quiet, request" : "request", request);
        switch (request) {
        case 0:
        case 1:
            host->controller.startThreadWithInitialPath(randomLasso(random, photo.size()));
            if (quiet) {
                settle(*host);
                check(host->masks.size() == 2 && host->masks.first().first().value<QImage>().isNull()
                        && host->nonNullMasks() == 1,
                    "a lasso emits a null mask, then one mask");
            }
            break;
        case 2:
        case 3: { // a gesture: temporary strokes, then the final one
            const bool scribble = random.bounded(2);
            const bool isForeground = random.bounded(2);
            for (int i = random.bounded(0, 5); i >= 0; --i) {
                const QPainterPath stroke = randomStroke(random, photo.size());
                if (scribble)
                    host->controller.startThreadWithScribble(stroke, isForeground, i > 0);
                else
                    host->controller.startThreadWithPaintSelection(stroke, isForeground, i > 0);
                QThread::msleep(random.bounded(3));
            }
            break;
        }
        case 4: // a host clicks only while the controller is idle
            settle(*host);
            host->controller.startThreadWithClicker(randomPoint(random, photo.size(), 1.1));
            break;
        case 5:
            host->controller.startThreadWithPaintSelectionHover(
                host->controller.superpixels(randomPoint(random, photo.size()).toPoint(), random.bounded(1, 40)),
                random.bounded(2));
            break;
        case 6:
            host->controller.setMaskColor(QColor::fromRgba(random.generate()));
            break;
        case 7:
            if (random.bounded(2))
                host->controller.invertMask();
            else if (quiet)
                host->controller.setMaskIsInverted(random.bounded(2));
            break;
        case 8: { // undo and redo give the same bytes each time
            settle(*host);
            const auto bytes = [](const QImage& mask) {
                return QByteArray(reinterpret_cast<const char*>(mask.constBits()), qsizetype(mask.sizeInBytes()));
            };
            if (undo->canUndo()) {
                undo->undo();
                const QByteArray before = bytes(host->controller.maskForeground());
                undo->redo();
                const QByteArray after = bytes(host->controller.maskForeground());
                undo->undo();
                check(bytes(host->controller.maskForeground()) == before, "undo restores the same mask");
                undo->redo();
                check(bytes(host->controller.maskForeground()) == after, "redo restores the same mask");
            }
            break;
        }
        case 9:
            host->controller.cancel();
            break;
        case 10:
            photo = randomPhoto(random);
            host->controller.setup(photo, QFileInfo());
            // Masks of the old photo emitted before are delivered now; none may follow.
            QCoreApplication::processEvents();
            host->masks.clear();
            break;
        default:
            host->controller.pushUndoCommand();
        }
    }
    // Closed at a random moment, often with threads still running.
    QElapsedTimer timer;
    timer.start();
    host.reset();
    check(timer.elapsed() < myWaitLimitMs, "destruction in time");
    QCoreApplication::processEvents();
}

void scissorsSession(QRandomGenerator& random)
{
    auto scissors = std::make_unique<PXIntelligentScissors>();
    QImage photo = randomPhoto(random);
    scissors->setup(photo);
    for (myStep = 0; myStep < random.bounded(3, 15); ++myStep) {
        QElapsedTimer timer;
        timer.start();
        const int request = random.bounded(6);
        trace("scissors request", request);
        if (request < 2) {
            scissors->initializeSeed(randomPoint(random, photo.size(), 1.2));
        } else if (request < 4) {
            scissors->containsWireToPoint(randomPoint(random, photo.size(), 1.5));
            // bestWire() leaves points outside the image to the host. The wire
            // runs through pixels of the padded image, less than 3 times the size.
            const QList<QPoint> wire = scissors->bestWire(randomPoint(random, photo.size() - QSize(1, 1)));
            for (qsizetype i = 0; i < wire.size(); ++i) {
                check(QRect(QPoint(0, 0), photo.size() * 3).contains(wire.at(i)), "wire inside the image");
                const QPoint step = wire.at(i) - wire.at(std::max<qsizetype>(i - 1, 0));
                check(std::abs(step.x()) <= 2 && std::abs(step.y()) <= 2, "wire steps to a neighbour");
            }
        } else if (request == 4) {
            scissors->stopRunning();
        } else {
            scissors->clear();
            if (random.bounded(2))
                photo = randomPhoto(random);
            else
                scissors.reset(new PXIntelligentScissors);
            scissors->setup(photo);
        }
        check(timer.elapsed() < myWaitLimitMs, "scissors call returns in time");
        QThread::msleep(random.bounded(10));
        QCoreApplication::processEvents();
    }
    QElapsedTimer timer;
    timer.start();
    scissors.reset();
    check(timer.elapsed() < myWaitLimitMs, "scissors destruction in time");
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication application(argc, argv);
    // Qt warns about the odd lassos and photos fed to it.
    QLoggingCategory::setFilterRules(QStringLiteral("*.warning=false"));
    const int sessions = argc > 1 ? std::atoi(argv[1]) : 100;
    const quint32 first = argc > 2 ? quint32(std::strtoul(argv[2], nullptr, 10)) : 1;
    for (int i = 0; i < sessions; ++i) {
        mySeed = first + quint32(i);
        QRandomGenerator random(mySeed);
        controllerSession(random);
        scissorsSession(random);
    }
    std::printf("px_stress: %d sessions from seed %u passed\n", sessions, first);
    return 0;
}
