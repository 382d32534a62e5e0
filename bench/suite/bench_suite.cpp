// The suite: every stage from photo to mask and the live wire, on a 1200 x 800
// and a 4000 x 3000 photo with a lasso over 60 % of it, each benchmark giving
// its goal next to its time. bench/run_suite.sh runs each benchmark in a
// process of its own, so "peak_MiB" is that benchmark's peak resident memory,
// and turns the results into a table.
//
// Times are the median of the iterations; ratios are against baselines taken
// in the same process, since the machines this runs on are shared.
#include "PXSuiteScene.h"

#include "PXEdgeDetectorSobelColor.h"
#include "PXImage.h"
#include "PXInitialSegmentationWorker.h"
#include "PXRegionGrowing.h"
#include "PXSlic.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThreadPool>

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/mman.h>
#include <sys/wait.h>
#include <vector>

using namespace PXSuiteScene;

namespace {

double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/**
 * Wall and processor time of each timed stretch. On a loaded machine the
 * processor time, summed over all threads, is the steadier of the two.
 */
class Samples
{
public:
    void start()
    {
        m_start = Clock::now();
        m_processorStart = processorMilliseconds();
    }

    /** Ends a stretch begun by start() and makes it the iteration's time. */
    void stop(benchmark::State& state)
    {
        wall.push_back(millisecondsSince(m_start));
        processor.push_back(processorMilliseconds() - m_processorStart);
        state.SetIterationTime(wall.back() / 1000);
    }

    std::vector<double> wall;
    std::vector<double> processor;

private:
    Clock::time_point m_start;
    double m_processorStart = 0;
};

/** Times, goal and peak memory of one benchmark, for the table. */
void report(benchmark::State& state, const Samples& samples, double goalMilliseconds)
{
    const std::vector<double>& times = samples.wall;
    state.counters["ms"] = median(times);
    state.counters["max_ms"] = times.empty() ? 0 : *std::max_element(times.begin(), times.end());
    state.counters["cpu_ms"] = median(samples.processor);
    state.counters["goal_ms"] = goalMilliseconds;
    state.counters["peak_MiB"] = peakResidentMiB();
}

bool isLarge(const benchmark::State& state)
{
    return state.range(0) != 0;
}

// The working image against a copy of the same bytes into fresh memory, both
// through the same allocator. Every run counts: "worst_ratio" is the largest.
void WorkingImage(benchmark::State& state)
{
    const QImage& photo = scene(int(state.range(0))).photo;
    const auto bytes = size_t(photo.sizeInBytes());
    Samples times;
    double worstRatio = 0;
    double copySum = 0;
    for (auto _ : state) {
        // Fresh pages every time: a buffer the allocator hands back from the
        // last run would make every other baseline a warm copy.
        auto start = Clock::now();
        void* target = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (target == MAP_FAILED) {
            state.SkipWithError("no memory for the copy");
            return;
        }
        std::memcpy(target, photo.constBits(), bytes);
        benchmark::DoNotOptimize(target);
        const double copy = millisecondsSince(start);
        munmap(target, bytes);
        times.start();
        {
            const PXImage image(photo, QFileInfo());
            benchmark::DoNotOptimize(image.imageYCbCr().constBits());
        }
        times.stop(state);
        copySum += copy;
        worstRatio = std::max(worstRatio, times.wall.back() / copy);
    }
    report(state, times, 0);
    state.counters["copy_ms"] = copySum / double(state.iterations());
    state.counters["worst_ratio"] = worstRatio;
    state.counters["goal_ratio"] = 2;
}
BENCHMARK(WorkingImage)->Apply(photoArguments)->Iterations(10);

void Sobel(benchmark::State& state)
{
    PXImage image(scene(int(state.range(0))).photo, QFileInfo());
    Samples times;
    for (auto _ : state) {
        PXEdgeDetectorSobelColor detector;
        detector.setup(&image);
        times.start();
        detector.start();
        detector.wait();
        times.stop(state);
    }
    report(state, times, 0);
}
BENCHMARK(Sobel)->Apply(photoArguments)->Iterations(3);

void Slic(benchmark::State& state)
{
    const Scene& input = scene(int(state.range(0)));
    PXImage image(input.photo, QFileInfo());
    Samples times;
    for (auto _ : state) {
        PXSlic slic;
        times.start();
        slic.setup(&image, input.lasso);
        slic.run();
        times.stop(state);
    }
    report(state, times, isLarge(state) ? 0 : 30);
}
BENCHMARK(Slic)->Apply(photoArguments)->Iterations(3);

void RegionGrowing(benchmark::State& state)
{
    const Scene& input = scene(int(state.range(0)));
    PXImage image(input.photo, QFileInfo());
    PXEdgeDetectorSobelColor detector;
    detector.setup(&image);
    detector.start();
    detector.wait();
    PXSlic slic;
    slic.setup(&image, input.lasso);
    slic.run();
    const QList<PXSuperPixel> superpixels = slic.clusterInformations();
    const QImage labels = slic.superPixelAssignments();
    Samples times;
    for (auto _ : state) {
        PXRegionGrowing growing;
        times.start();
        growing.setup(&image, input.lasso, detector.sobel(), detector.mean());
        growing.setClusterData(superpixels, labels);
        growing.run();
        times.stop(state);
    }
    report(state, times, 0);
}
BENCHMARK(RegionGrowing)->Apply(photoArguments)->Iterations(3);

void InitialSegmentationWorker(benchmark::State& state)
{
    const Scene& input = scene(int(state.range(0)));
    Samples times;
    for (auto _ : state) {
        times.start();
        PXInitialSegmentationWorker worker(input.photo, QFileInfo());
        worker.startInitialSegmentation(input.lasso).waitForFinished();
        benchmark::DoNotOptimize(worker.labels().constBits());
        times.stop(state);
        // Drops the queued progress notifications of this worker.
        QCoreApplication::processEvents();
    }
    report(state, times, isLarge(state) ? 0 : 50);
}
BENCHMARK(InitialSegmentationWorker)->Apply(photoArguments)->Iterations(3);

void LassoToMask(benchmark::State& state)
{
    const Scene& input = scene(int(state.range(0)));
    PXImageSegmentation controller;
    controller.setup(input.photo, QFileInfo());
    Samples times;
    for (auto _ : state) {
        times.start();
        requestMask(controller, [&]() { controller.startThreadWithInitialPath(input.lasso); });
        times.stop(state);
        controller.wait();
    }
    report(state, times, isLarge(state) ? 700 : 60);
}
BENCHMARK(LassoToMask)->Apply(photoArguments)->Iterations(3);

QPointF centre(const QImage& photo)
{
    return QPointF(photo.width() / 2.0, photo.height() / 2.0);
}

// Times @p request, told whether to add to the object, to its mask on a cut
// photo, the side alternating from one iteration to the next.
template <typename Request>
void timeAlternating(benchmark::State& state, const Scene& input, Request request)
{
    CutPhoto cut(input);
    bool isForeground = false;
    Samples times;
    for (auto _ : state) {
        times.start();
        requestMask(cut.controller, [&]() { request(cut.controller, isForeground); });
        times.stop(state);
        isForeground = !isForeground;
        cut.controller.wait();
    }
    report(state, times, isLarge(state) ? 0 : 5);
}

// A brush of radius 40 (scaled with the photo) across the middle.
void PaintStroke(benchmark::State& state)
{
    const Scene& input = scene(int(state.range(0)));
    const QPainterPath stroke = benchStroke(input.photo.width() / 1200.0);
    timeAlternating(state, input, [&stroke](PXImageSegmentation& controller, bool isForeground) {
        controller.startThreadWithPaintSelection(stroke, isForeground, false);
    });
}
BENCHMARK(PaintStroke)->Apply(photoArguments)->Iterations(10);

void HoverPreview(benchmark::State& state)
{
    const Scene& input = scene(int(state.range(0)));
    const QPoint point = centre(input.photo).toPoint();
    timeAlternating(state, input, [point](PXImageSegmentation& controller, bool isForeground) {
        controller.startThreadWithPaintSelectionHover(controller.superpixels(point, 80), isForeground);
    });
}
BENCHMARK(HoverPreview)->Apply(photoArguments)->Iterations(10);

// The clicker runs on the pool and publishes no signal of its own; its result
// is the mask once the pool is done.
void Click(benchmark::State& state)
{
    const Scene& input = scene(int(state.range(0)));
    CutPhoto cut(input);
    const QPointF point = centre(input.photo);
    Samples times;
    for (auto _ : state) {
        times.start();
        cut.controller.startThreadWithClicker(point);
        QThreadPool::globalInstance()->waitForDone();
        benchmark::DoNotOptimize(cut.controller.maskForeground().constBits());
        times.stop(state);
    }
    report(state, times, isLarge(state) ? 0 : 5);
}
BENCHMARK(Click)->Apply(photoArguments)->Iterations(10);

void ScissorsSetup(benchmark::State& state)
{
    const QImage& photo = scene(int(state.range(0))).photo;
    Samples times;
    for (auto _ : state) {
        PXIntelligentScissors scissors;
        times.start();
        scissors.setup(photo);
        times.stop(state);
    }
    report(state, times, isLarge(state) ? 0 : 5);
}
BENCHMARK(ScissorsSetup)->Apply(photoArguments)->Iterations(5);

// From the seed click until every pixel of the photo has its wire, costs
// included; "finished_ms" is until the search has also covered the padding.
// "growth_MiB" is the resident memory added by setup and the whole search,
// measured from a process whose block pool is still empty.
void ScissorsSeed(benchmark::State& state)
{
    const QImage& photo = scene(int(state.range(0))).photo;
    Samples times;
    double finished = 0;
    double growth = 0;
    for (auto _ : state) {
        const double before = residentMiB();
        PXIntelligentScissors scissors;
        scissors.setup(photo);
        const auto start = Clock::now();
        times.start();
        scissors.initializeSeed(centre(photo));
        waitUntilPhotoReachable(scissors, photo);
        times.stop(state);
        scissors.wireCalculator()->wait();
        finished += millisecondsSince(start);
        if (growth == 0)
            growth = residentMiB() - before;
    }
    report(state, times, isLarge(state) ? 500 : 30);
    state.counters["finished_ms"] = finished / double(state.iterations());
    state.counters["growth_MiB"] = growth;
    state.counters["goal_growth_MiB"] = isLarge(state) ? 0 : 48;
}
BENCHMARK(ScissorsSeed)->Apply(photoArguments)->Iterations(3);

#ifdef PX_PXCUT
// pxcut on its shipped photo as a user runs it: the whole process, from exec
// to exit, with its peak resident memory.
void Pxcut(benchmark::State& state)
{
    QTemporaryDir output;
    Samples times;
    double peak = 0;
    for (auto _ : state) {
        times.start();
        const pid_t child = fork();
        if (child == 0) {
            const int null = ::open("/dev/null", O_WRONLY);
            dup2(null, STDOUT_FILENO);
            dup2(null, STDERR_FILENO);
            const QByteArray directory = output.path().toLocal8Bit();
            execl(PX_PXCUT, PX_PXCUT, "cut", "--out", directory.constData(), static_cast<char*>(nullptr));
            _exit(127);
        }
        int status = 0;
        rusage usage{};
        wait4(child, &status, 0, &usage);
        times.stop(state);
        // The child's processor time, not this process's.
        times.processor.back() = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3
            + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
        peak = std::max(peak, double(usage.ru_maxrss) / 1024.0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
            state.SkipWithError("pxcut failed");
    }
    report(state, times, 300);
    state.counters["peak_MiB"] = peak;
    state.counters["goal_peak_MiB"] = 150;
}
BENCHMARK(Pxcut)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
#endif

} // namespace
