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

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThreadPool>

#include <benchmark/benchmark.h>

namespace {

const BenchScene& benchInput()
{
    return benchScene(1200, 800);
}

/** Makes @p request and waits for its mask, its queued hand-over to this thread included. */
template <typename Request>
void requestMask(PXImageSegmentation& controller, Request request)
{
    requestMask(controller, request, Qt::QueuedConnection, 10000);
}

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
    const BenchScene& input = benchInput();
    const double worker = workerMilliseconds(input.photo, input.lasso);

    PXImageSegmentation controller;
    controller.setup(input.photo, QFileInfo());
    double total = 0;
    QElapsedTimer timer;
    for (auto _ : state) {
        timer.start();
        requestMask(controller, [&]() { controller.startThreadWithInitialPath(input.lasso); });
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
    CutPhoto cut(benchInput());
    const double worker = workerMilliseconds(benchInput().photo, benchInput().lasso);
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

// Times @p request, told whether to add to the object, to its mask, the side
// alternating from one iteration to the next.
template <typename Request>
void timeAlternating(benchmark::State& state, Request request)
{
    CutPhoto cut(benchInput());
    const double copy = copyMilliseconds(cut.controller.maskForeground(), 10);
    double total = 0;
    bool isForeground = false;
    QElapsedTimer timer;
    for (auto _ : state) {
        timer.start();
        requestMask(cut.controller, [&]() { request(cut.controller, isForeground); });
        const double elapsed = milliseconds(timer);
        state.SetIterationTime(elapsed / 1000);
        total += elapsed;
        isForeground = !isForeground;
        cut.controller.wait();
    }
    reportRatio(state, total, "mask_copy_ms", copy);
}

void BM_PaintStroke(benchmark::State& state)
{
    const QPainterPath stroke = benchStroke();
    timeAlternating(state, [&stroke](PXImageSegmentation& controller, bool isForeground) {
        controller.startThreadWithPaintSelection(stroke, isForeground, false);
    });
}
BENCHMARK(BM_PaintStroke)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_HoverPreview(benchmark::State& state)
{
    timeAlternating(state, [](PXImageSegmentation& controller, bool isForeground) {
        controller.startThreadWithPaintSelectionHover(controller.superpixels(QPoint(600, 400), 80), isForeground);
    });
}
BENCHMARK(BM_HoverPreview)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_Click(benchmark::State& state)
{
    CutPhoto cut(benchInput());
    const double copy = copyMilliseconds(cut.controller.maskForeground(), 10);
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
