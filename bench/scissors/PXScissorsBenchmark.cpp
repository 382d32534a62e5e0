// Live-wire timings and memory on synthetic photos of 1200 x 800 and
// 4000 x 3000 pixels.
//
// The baseline is a plain Dijkstra (std::priority_queue with lazy deletion,
// flat arrays) over the same 2 x 2-reduced costs of the photo alone; the
// counter "vs_baseline" is the scissors' time divided by the baseline's.
// The search of the scissors also covers the padding (black, the dearest
// cost), which it settles after the photo.
#include "BlockPool.h"
#include "PXBenchmarkSupport.h"
#include "PXIntelligentScissors.h"
#include "PXIntelligentScissorsWireCalculator.h"

#include <benchmark/benchmark.h>

#include <QImage>
#include <QRandomGenerator>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <queue>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Smooth shading, a few bright curves and noise: something to follow.
QImage makePhoto(int width, int height)
{
    QImage photo(width, height, QImage::Format_RGB32);
    QRandomGenerator random(42);
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<QRgb*>(photo.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const double u = double(x) / width;
            const double v = double(y) / height;
            int grey = int(90 + 60 * std::sin(6.0 * u + 3.0 * v) + 30 * std::cos(11.0 * v - 4.0 * u));
            if (std::abs(std::sin(9.0 * u) * 0.3 + 0.5 - v) < 0.004 || std::abs(u - 0.3 - 0.2 * v) < 0.003)
                grey = 250;
            grey += int(random.bounded(21)) - 10;
            grey = qBound(0, grey, 255);
            line[x] = qRgb(grey, qBound(0, grey + 10, 255), qBound(0, grey - 10, 255));
        }
    }
    return photo;
}

const QImage& photo(int which)
{
    static const QImage small = makePhoto(1200, 800);
    static const QImage large = makePhoto(4000, 3000);
    return which == 0 ? small : large;
}

// The reference search on the photo's reduced costs (255 - mean grey of 2 x 2).
double baselineSeconds(const QImage& image, int seedX, int seedY)
{
    const int width = (image.width() + 1) / 2;
    const int height = (image.height() + 1) / 2;
    std::vector<unsigned char> cost(size_t(width) * height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            unsigned int sum = 0;
            unsigned int n = 0;
            for (int dy = 0; dy < 2; ++dy) {
                for (int dx = 0; dx < 2; ++dx) {
                    if (2 * x + dx < image.width() && 2 * y + dy < image.height()) {
                        const QRgb p = image.pixel(2 * x + dx, 2 * y + dy);
                        sum += (qRed(p) + qGreen(p) + qBlue(p)) / 3;
                        ++n;
                    }
                }
            }
            cost[size_t(y) * width + x] = static_cast<unsigned char>(255 - sum / n);
        }
    }
    const auto start = Clock::now();
    std::vector<unsigned int> distance(cost.size(), 0xFFFFFFFFu);
    std::vector<unsigned int> predecessor(cost.size(), 0);
    std::vector<bool> settled(cost.size(), false);
    using Item = std::pair<unsigned int, unsigned int>;
    std::priority_queue<Item, std::vector<Item>, std::greater<Item>> queue;
    const unsigned int seed = unsigned(seedY / 2) * width + unsigned(seedX / 2);
    distance[seed] = 0;
    queue.push({0, seed});
    while (!queue.empty()) {
        const auto [d, i] = queue.top();
        queue.pop();
        if (settled[i])
            continue;
        settled[i] = true;
        const int x = int(i % width);
        const int y = int(i / width);
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                const int nx = x + dx;
                const int ny = y + dy;
                if ((dx == 0 && dy == 0) || nx < 0 || ny < 0 || nx >= width || ny >= height)
                    continue;
                const unsigned int j = unsigned(ny) * width + unsigned(nx);
                const unsigned int c = cost[j];
                const unsigned int total = d + ((dx != 0 && dy != 0) ? unsigned(c * 1.4142135623730951) : c);
                if (!settled[j] && total < distance[j]) {
                    distance[j] = total;
                    predecessor[j] = i;
                    queue.push({total, j});
                }
            }
        }
    }
    benchmark::DoNotOptimize(predecessor.data());
    return seconds(start);
}

void setArgs(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("photo")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}

void Setup(benchmark::State& state)
{
    const QImage& image = photo(int(state.range(0)));
    PXIntelligentScissors scissors;
    for (auto _ : state) {
        const auto start = Clock::now();
        scissors.setup(image);
        state.SetIterationTime(seconds(start));
        scissors.clear();
    }
}
BENCHMARK(Setup)->Apply(setArgs)->Iterations(5);

// A fresh setup each time (untimed), so every seed also computes the costs.
void SeedUntilPhotoSettled(benchmark::State& state)
{
    const QImage& image = photo(int(state.range(0)));
    const double photoPixels = double((image.width() + 1) / 2) * double((image.height() + 1) / 2);
    double total = 0;
    double settled = 0;
    for (auto _ : state) {
        PXIntelligentScissors scissors;
        scissors.setup(image);
        const auto start = Clock::now();
        scissors.initializeSeed(QPointF(image.width() / 2, image.height() / 2));
        waitUntilPhotoReachable(scissors, image);
        const double elapsed = seconds(start);
        state.SetIterationTime(elapsed);
        total += elapsed;
        // Padding pixels are settled too; this says how many per photo pixel.
        settled = scissors.wireCalculator()->progress() / photoPixels;
        scissors.stopRunning();
    }
    state.counters["settled_per_photo_pixel"] = settled;
    const double baseline = baselineSeconds(image, image.width() / 2, image.height() / 2);
    state.counters["baseline_ms"] = baseline * 1000.0;
    state.counters["vs_baseline"] = total / double(state.iterations()) / baseline;
}
BENCHMARK(SeedUntilPhotoSettled)->Apply(setArgs)->Iterations(3);

void SeedUntilSearchFinished(benchmark::State& state)
{
    const QImage& image = photo(int(state.range(0)));
    for (auto _ : state) {
        PXIntelligentScissors scissors;
        scissors.setup(image);
        const auto start = Clock::now();
        scissors.initializeSeed(QPointF(image.width() / 2, image.height() / 2));
        scissors.wireCalculator()->wait();
        state.SetIterationTime(seconds(start));
    }
}
BENCHMARK(SeedUntilSearchFinished)->Apply(setArgs)->Iterations(2);

void BestWire(benchmark::State& state)
{
    const QImage& image = photo(int(state.range(0)));
    PXIntelligentScissors scissors;
    scissors.setup(image);
    scissors.initializeSeed(QPointF(image.width() / 2, image.height() / 2));
    scissors.wireCalculator()->wait();
    qsizetype points = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        points = scissors.bestWire(QPointF(3, image.height() - 4)).size();
        state.SetIterationTime(seconds(start));
    }
    state.counters["points"] = double(points);
}
BENCHMARK(BestWire)->ArgName("photo")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Resident memory growth from before setup; the pool is emptied first so that
// earlier runs do not hide it.
void ResidentMemory(benchmark::State& state)
{
    const QImage& image = photo(int(state.range(0)));
    for (auto _ : state) {
        PXScissors::BlockPool::clear();
        const double before = residentMiB();
        PXIntelligentScissors scissors;
        scissors.setup(image);
        state.counters["setup_MiB"] = residentMiB() - before;
        const auto start = Clock::now();
        scissors.initializeSeed(QPointF(image.width() / 2, image.height() / 2));
        waitUntilPhotoReachable(scissors, image);
        state.SetIterationTime(seconds(start));
        state.counters["photo_settled_MiB"] = residentMiB() - before;
        scissors.wireCalculator()->wait();
        state.counters["search_finished_MiB"] = residentMiB() - before;
    }
}
BENCHMARK(ResidentMemory)->Apply(setArgs)->Iterations(1);

} // namespace
