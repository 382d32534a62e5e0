// The controller as a host sees it on a 1200 x 800 photo with a lasso over
// 60 % of it: from the lasso to the first mask, a paint stroke of radius 40
// across the object, a hover preview and a click, each to the moment the host
// has the new mask.
//
// Machines running this are shared, so next to the times the counters give
// ratios to baselines measured in the same run: the worker alone for the
// lasso and the cut, one plain copy of the mask for the refinement tools.
#include "PXBenchmarkSupport.h"
#include "PXImageSegmentation.h"
#include "PXInitialSegmentationWorker.h"
#include "WorkerTestPhoto.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QPainter>
#include <QPainterPathStroker>
#include <QRandomGenerator>
#include <QThreadPool>
#include <QTimer>

#include <benchmark/benchmark.h>


namespace {

constexpr int myWidth = 1200;
constexpr int myHeight = 800;

/** Grey-blue background with a gradient, a figure of four shapes, mild noise. */
QImage benchPhoto()
{
    QImage image(myWidth, myHeight, QImage::Format_RGB32);
    {
        QPainter painter(&image);
        QLinearGradient gradient(0, 0, myWidth, myHeight);
        gradient.setColorAt(0, QColor(90, 110, 140));
        gradient.setColorAt(1, QColor(60, 80, 100));
        painter.fillRect(image.rect(), gradient);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(210, 170, 60));
        painter.drawEllipse(QRectF(420, 220, 360, 380));
        painter.setBrush(QColor(190, 60, 50));
        painter.drawRect(QRectF(480, 300, 120, 140));
        painter.setBrush(QColor(40, 150, 70));
        painter.drawEllipse(QRectF(620, 420, 120, 120));
        painter.setBrush(QColor(240, 240, 230));
        painter.drawRect(QRectF(540, 160, 120, 90));
    }
    QRandomGenerator random(7);
    for (int y = 0; y < myHeight; ++y) {
        auto* row = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < myWidth; ++x) {
            const int noise = random.bounded(-5, 6);
            row[x] = qRgb(qBound(0, qRed(row[x]) + noise, 255),
                          qBound(0, qGreen(row[x]) + noise, 255),
                          qBound(0, qBlue(row[x]) + noise, 255));
        }
    }
    return image;
}

/** An octagon round the middle whose bounding box is 60 % of the photo. */
QPainterPath benchLasso()
{
    return WorkerTestPhoto::lasso(myWidth, myHeight, 0.6);
}

/** A brush stroke of radius 40 from one side of the figure to the other. */
QPainterPath benchStroke()
{
    QPainterPath line;
    line.moveTo(400, 380);
    line.cubicTo(520, 320, 680, 460, 800, 400);
    QPainterPathStroker stroker;
    stroker.setWidth(80);
    stroker.setCapStyle(Qt::RoundCap);
    return stroker.createStroke(line);
}

double milliseconds(const QElapsedTimer& timer)
{
    return double(timer.nsecsElapsed()) / 1e6;
}

/** Makes @p request and waits for its mask, its queued hand-over to this thread included. */
template <typename Request>
void requestMask(PXImageSegmentation& controller, Request request)
{
    requestMask(controller, request, Qt::QueuedConnection, 10000);
}

/** A controller that has made its first cut of the bench photo. */
struct CutPhoto
{
    CutPhoto()
    {
        controller.setup(benchPhoto(), QFileInfo());
        requestMask(controller, [this]() { controller.startThreadWithInitialPath(benchLasso()); });
        controller.wait();
    }

    PXImageSegmentation controller;
};

double workerMilliseconds(const QImage& photo, const QPainterPath& lasso)
{
    constexpr int Rounds = 3;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < Rounds; ++i) {
        PXInitialSegmentationWorker worker(photo, QFileInfo());
        worker.startInitialSegmentation(lasso).waitForFinished();
        benchmark::DoNotOptimize(worker.labels().constBits());
    }
    const double elapsed = milliseconds(timer) / Rounds;
    QCoreApplication::processEvents();
    return elapsed;
}

double maskCopyMilliseconds(const QImage& mask)
{
    constexpr int Rounds = 10;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < Rounds; ++i) {
        QImage copy = mask.copy();
        benchmark::DoNotOptimize(copy.constBits());
    }
    return milliseconds(timer) / Rounds;
}

void reportRatio(benchmark::State& state, double total, const char* baselineName,
                 double baseline)
{
    const double mean = total / double(state.iterations());
    state.counters["ms"] = mean;
    state.counters[baselineName] = baseline;
    state.counters["ratio"] = mean / baseline;
}

void BM_LassoToMask(benchmark::State& state)
{
    const QImage photo = benchPhoto();
    const QPainterPath lasso = benchLasso();
    const double worker = workerMilliseconds(photo, lasso);

    PXImageSegmentation controller;
    controller.setup(photo, QFileInfo());
    double total = 0;
    QElapsedTimer timer;
    for (auto _ : state) {
        timer.start();
        requestMask(controller, [&]() { controller.startThreadWithInitialPath(lasso); });
        const double elapsed = milliseconds(timer);
        state.SetIterationTime(elapsed / 1000);
        total += elapsed;
        controller.wait();
    }
    reportRatio(state, total, "worker_ms", worker);
}
BENCHMARK(BM_LassoToMask)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

// The controller's own share of the lasso: one initial cut on the worker's
// results, in the calling thread.
void BM_InitialCut(benchmark::State& state)
{
    CutPhoto cut;
    const double worker = workerMilliseconds(benchPhoto(), benchLasso());
    double total = 0;
    QElapsedTimer timer;
    for (auto _ : state) {
        timer.start();
        cut.controller.cutObjectInitial();
        const double elapsed = milliseconds(timer);
        state.SetIterationTime(elapsed / 1000);
        total += elapsed;
    }
    QCoreApplication::processEvents();
    reportRatio(state, total, "worker_ms", worker);
}
BENCHMARK(BM_InitialCut)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_PaintStroke(benchmark::State& state)
{
    CutPhoto cut;
    const QPainterPath stroke = benchStroke();
    const double copy = maskCopyMilliseconds(cut.controller.maskForeground());
    double total = 0;
    bool isForeground = false;
    QElapsedTimer timer;
    for (auto _ : state) {
        timer.start();
        requestMask(cut.controller, [&]() {
            cut.controller.startThreadWithPaintSelection(stroke, isForeground, false);
        });
        const double elapsed = milliseconds(timer);
        state.SetIterationTime(elapsed / 1000);
        total += elapsed;
        isForeground = !isForeground;
        cut.controller.wait();
    }
    reportRatio(state, total, "mask_copy_ms", copy);
}
BENCHMARK(BM_PaintStroke)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_HoverPreview(benchmark::State& state)
{
    CutPhoto cut;
    const double copy = maskCopyMilliseconds(cut.controller.maskForeground());
    double total = 0;
    bool isForeground = false;
    QElapsedTimer timer;
    for (auto _ : state) {
        timer.start();
        requestMask(cut.controller, [&]() {
            const QSet<int> clusters = cut.controller.superpixels(QPoint(600, 400), 80);
            cut.controller.startThreadWithPaintSelectionHover(clusters, isForeground);
        });
        const double elapsed = milliseconds(timer);
        state.SetIterationTime(elapsed / 1000);
        total += elapsed;
        isForeground = !isForeground;
        cut.controller.wait();
    }
    reportRatio(state, total, "mask_copy_ms", copy);
}
BENCHMARK(BM_HoverPreview)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_Click(benchmark::State& state)
{
    CutPhoto cut;
    const double copy = maskCopyMilliseconds(cut.controller.maskForeground());
    double total = 0;
    QElapsedTimer timer;
    for (auto _ : state) {
        timer.start();
        cut.controller.startThreadWithClicker(QPointF(600, 400));
        QThreadPool::globalInstance()->waitForDone();
        const QImage mask = cut.controller.maskForeground();
        benchmark::DoNotOptimize(mask.constBits());
        const double elapsed = milliseconds(timer);
        state.SetIterationTime(elapsed / 1000);
        total += elapsed;
    }
    reportRatio(state, total, "mask_copy_ms", copy);
}
BENCHMARK(BM_Click)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
