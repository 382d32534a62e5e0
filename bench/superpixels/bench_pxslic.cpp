// SLIC on a 1200 x 800 photo with a lasso over about 60 % of it: the whole
// run() and its four stages for each assignment kernel on all cores, against
// a single-threaded scalar run and a scalar run on all cores measured in the
// same process. The ratios are the numbers to watch; absolute times depend
// on the machine and its load.

#include "PXConcurrent.h"
#include "PXCpuFeatures.h"
#include "PXImage.h"
#include "PXSlic.h"

#include <QPainter>
#include <QPainterPath>
#include <QRandomGenerator>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Smooth shading, flat blobs and a little sensor noise: regions of every size.
const PXImage& photo()
{
    static const PXImage myPhoto = [] {
        QRandomGenerator random(20240229);
        QImage rgb(1200, 800, QImage::Format_RGB32);
        for (int y = 0; y < rgb.height(); ++y) {
            auto* line = reinterpret_cast<QRgb*>(rgb.scanLine(y));
            for (int x = 0; x < rgb.width(); ++x) {
                line[x] = qRgb(int(120 + 60 * std::sin(x / 150.0)), int(110 + 50 * std::cos(y / 120.0)),
                    int(100 + 40 * std::sin((x + y) / 200.0)));
            }
        }
        {
            QPainter painter(&rgb);
            painter.setPen(Qt::NoPen);
            painter.setRenderHint(QPainter::Antialiasing);
            for (int i = 0; i < 80; ++i) {
                painter.setBrush(QColor(random.bounded(256), random.bounded(256), random.bounded(256)));
                const QRectF blob(random.bounded(1200) - 50, random.bounded(800) - 50,
                    20 + random.bounded(300), 20 + random.bounded(200));
                if (i % 3)
                    painter.drawEllipse(blob);
                else
                    painter.drawRect(blob);
            }
        }
        for (int y = 0; y < rgb.height(); ++y) {
            auto* line = reinterpret_cast<QRgb*>(rgb.scanLine(y));
            for (int x = 0; x < rgb.width(); ++x) {
                const int noise = random.bounded(13) - 6;
                line[x] = qRgb(qBound(0, qRed(line[x]) + noise, 255), qBound(0, qGreen(line[x]) + noise, 255),
                    qBound(0, qBlue(line[x]) + noise, 255));
            }
        }
        return PXImage(rgb, QFileInfo());
    }();
    return myPhoto;
}

// An ellipse in a 1050 x 700 box: 60 % of the photo.
QPainterPath lasso()
{
    QPainterPath path;
    path.addEllipse(QRectF(75, 50, 1050, 700));
    return path;
}

struct StageTimes
{
    double processor = 0; ///< processor time of all threads
    double seeding = 0;
    double rounds = 0;
    double clipping = 0;
    double connectivity = 0;
    double total() const { return seeding + rounds + clipping + connectivity; }
};

StageTimes runOnce()
{
    PXImage image = photo();
    PXSlic slic;
    slic.setup(&image, lasso());
    StageTimes times;
    const std::clock_t processorStart = std::clock();
    Clock::time_point start = Clock::now();
    slic.initialize();
    times.seeding = millisecondsSince(start);
    start = Clock::now();
    slic.adjustSuperPixels();
    times.rounds = millisecondsSince(start);
    start = Clock::now();
    slic.clipLabelsToLasso();
    times.clipping = millisecondsSince(start);
    start = Clock::now();
    slic.forceConnectivity();
    times.connectivity = millisecondsSince(start);
    times.processor = 1000.0 * double(std::clock() - processorStart) / CLOCKS_PER_SEC;
    return times;
}

class Environment
{
public:
    Environment(const QByteArray& features, const QByteArray& cores)
    {
        qputenv("PX_CPU_FEATURES", features);
        if (cores.isEmpty())
            qunsetenv("PX_CORE_COUNT");
        else
            qputenv("PX_CORE_COUNT", cores);
    }
    ~Environment()
    {
        qunsetenv("PX_CPU_FEATURES");
        qunsetenv("PX_CORE_COUNT");
    }
};

double medianRunTime(int runs)
{
    QList<double> times;
    for (int i = 0; i < runs; ++i)
        times.append(runOnce().total());
    std::sort(times.begin(), times.end());
    return times.at(runs / 2);
}

// The scalar kernel on all cores.
double scalarBaseline()
{
    static const double myTime = [] {
        const Environment environment("none", QByteArray());
        return medianRunTime(5);
    }();
    return myTime;
}

// The scalar kernel in one thread: off the main thread, with no room left
// for parallel maps, every pass runs in the calling thread.
double singleThreadBaseline()
{
    static const double myTime = [] {
        const Environment environment("none", "1");
        const int maxRunningThreads = PXConcurrent::maxRunningThreads;
        PXConcurrent::maxRunningThreads = 0;
        double time = 0;
        std::thread thread([&time] { time = medianRunTime(3); });
        thread.join();
        PXConcurrent::maxRunningThreads = maxRunningThreads;
        return time;
    }();
    return myTime;
}

void report(benchmark::State& state, const StageTimes& sum)
{
    const double iterations = double(state.iterations());
    const double total = sum.total() / iterations;
    // Processor time over wall time: how well the cores were used, and on a
    // loaded machine a hint of what an idle one would reach.
    state.counters["cpu_ms"] = sum.processor / iterations;
    state.counters["seeding_ms"] = sum.seeding / iterations;
    state.counters["rounds_ms"] = sum.rounds / iterations;
    state.counters["clipping_ms"] = sum.clipping / iterations;
    state.counters["connectivity_ms"] = sum.connectivity / iterations;
    state.counters["vs_scalar"] = scalarBaseline() / total;
    state.counters["vs_1thread_scalar"] = singleThreadBaseline() / total;
}

void runSlic(benchmark::State& state, const QByteArray& features, const QByteArray& cores)
{
    if (features == "sse" && !pxCpuHasFeature(CPU_FEATURE_SSE)) {
        state.SkipWithError("no SSE4.1 on this processor");
        return;
    }
    if (features == "avx" && !pxCpuHasFeature(CPU_FEATURE_AVX)) {
        state.SkipWithError("no AVX2 on this processor");
        return;
    }
    scalarBaseline();
    singleThreadBaseline();

    const Environment environment(features, cores);
    StageTimes sum;
    for (auto _ : state) {
        const StageTimes times = runOnce();
        state.SetIterationTime(times.total() / 1000.0);
        sum.processor += times.processor;
        sum.seeding += times.seeding;
        sum.rounds += times.rounds;
        sum.clipping += times.clipping;
        sum.connectivity += times.connectivity;
    }
    report(state, sum);
}

void BM_SlicRun_Scalar(benchmark::State& state)
{
    runSlic(state, "none", QByteArray());
}

void BM_SlicRun_SSE(benchmark::State& state)
{
    runSlic(state, "sse", QByteArray());
}

void BM_SlicRun_AVX(benchmark::State& state)
{
    runSlic(state, "avx", QByteArray());
}

} // namespace

// With --benchmark_repetitions the minimum is reported too: on a shared
// machine it is the steadiest of the aggregates.
double minimum(const std::vector<double>& values)
{
    return *std::min_element(values.begin(), values.end());
}

BENCHMARK(BM_SlicRun_Scalar)->UseManualTime()->Unit(benchmark::kMillisecond)->ComputeStatistics("min", minimum);
BENCHMARK(BM_SlicRun_SSE)->UseManualTime()->Unit(benchmark::kMillisecond)->ComputeStatistics("min", minimum);
BENCHMARK(BM_SlicRun_AVX)->UseManualTime()->Unit(benchmark::kMillisecond)->ComputeStatistics("min", minimum);
