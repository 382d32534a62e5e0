// The initial segmentation worker end to end (working image, snapping and
// growing the lasso, SLIC with the Sobel detector in parallel, region
// growing), and each stage on its own to show its share.
//
// Machines running this are shared, so next to the times the counters give
// ratios to a baseline measured in the same run: one plain copy of the photo.
#include "PXBenchmarkSupport.h"
#include "PXEdgeDetectorSobelColor.h"
#include "PXImage.h"
#include "PXInitialSegmentationWorker.h"
#include "PXRegionGrowing.h"
#include "PXSlic.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>

namespace {

// One pass through the stages in sequence, each timed on its own.
struct StageTimes
{
    double workingImage = 0;
    double snapAndGrow = 0;
    double sobel = 0;
    double slic = 0;
    double regionGrowing = 0;
};

StageTimes measureStages(const BenchScene& input)
{
    StageTimes times;
    QElapsedTimer timer;

    timer.start();
    PXImage image(input.photo, QFileInfo());
    times.workingImage = milliseconds(timer);

    PXInitialSegmentationWorker helper{QImage(), QFileInfo()};
    timer.start();
    const QPainterPath grown = helper.growPainterPath(input.lasso, image.rect(), 10);
    benchmark::DoNotOptimize(grown.elementCount());
    times.snapAndGrow = milliseconds(timer);

    PXEdgeDetectorSobelColor detector;
    detector.setup(&image);
    timer.start();
    detector.start();
    detector.wait();
    times.sobel = milliseconds(timer);

    PXSlic slic;
    timer.start();
    slic.setup(&image, input.lasso);
    slic.run();
    times.slic = milliseconds(timer);

    PXRegionGrowing growing;
    timer.start();
    growing.setup(&image, input.lasso, detector.sobel(), detector.mean());
    growing.setClusterData(slic.clusterInformations(), slic.superPixelAssignments());
    growing.run();
    times.regionGrowing = milliseconds(timer);
    return times;
}

void BM_InitialSegmentationWorker(benchmark::State& state)
{
    const BenchScene& input = benchScene(int(state.range(0)), int(state.range(1)));
    double workerMilliseconds = 0;
    QElapsedTimer timer;
    for (auto _ : state) {
        timer.start();
        PXInitialSegmentationWorker worker(input.photo, QFileInfo());
        worker.startInitialSegmentation(input.lasso).waitForFinished();
        benchmark::DoNotOptimize(worker.labels().constBits());
        workerMilliseconds += milliseconds(timer);
        state.PauseTiming();
        // Drops the queued progress notifications of this worker.
        QCoreApplication::processEvents();
        state.ResumeTiming();
    }

    // Stage shares, averaged over a few sequential passes outside the timing.
    constexpr int Passes = 3;
    StageTimes sum;
    for (int i = 0; i < Passes; ++i) {
        const StageTimes times = measureStages(input);
        sum.workingImage += times.workingImage / Passes;
        sum.snapAndGrow += times.snapAndGrow / Passes;
        sum.sobel += times.sobel / Passes;
        sum.slic += times.slic / Passes;
        sum.regionGrowing += times.regionGrowing / Passes;
    }
    const double sequential = sum.workingImage + sum.snapAndGrow + sum.sobel + sum.slic + sum.regionGrowing;
    const double baseline = copyMilliseconds(input.photo, 5);

    state.counters["image_ms"] = sum.workingImage;
    state.counters["grow_ms"] = sum.snapAndGrow;
    state.counters["sobel_ms"] = sum.sobel;
    state.counters["slic_ms"] = sum.slic;
    state.counters["regions_ms"] = sum.regionGrowing;
    state.counters["image_share"] = sum.workingImage / sequential;
    state.counters["grow_share"] = sum.snapAndGrow / sequential;
    state.counters["sobel_share"] = sum.sobel / sequential;
    state.counters["slic_share"] = sum.slic / sequential;
    state.counters["regions_share"] = sum.regionGrowing / sequential;
    state.counters["copy_ms"] = baseline;
    state.counters["stages_per_copy"] = sequential / baseline;
    state.counters["worker_per_copy"] = workerMilliseconds / double(state.iterations()) / baseline;
}

} // namespace

BENCHMARK(BM_InitialSegmentationWorker)
    ->Args({1200, 800})
    ->Args({4000, 3000})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
