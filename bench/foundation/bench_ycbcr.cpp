// YCbCr conversion of a photo (PXImage construction) against a memcpy of the
// same bytes, timed in the same run. The counter "ratio" is conversion time
// over copy time; the goal for a 12 MP photo on 2 cores is at most 3.
#include <PXImage.h>

#include <benchmark/benchmark.h>

#include <QRandomGenerator>

#include <chrono>
#include <cstring>
#include <vector>

namespace {

QImage randomPhoto(int width, int height)
{
    QImage photo(width, height, QImage::Format_RGB32);
    QRandomGenerator random(42);
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<quint32*>(photo.scanLine(y));
        for (int x = 0; x < width; ++x)
            line[x] = random.generate() | 0xFF000000u;
    }
    return photo;
}

double secondsOf(const std::chrono::steady_clock::duration& duration)
{
    return std::chrono::duration<double>(duration).count();
}

void conversionAgainstCopy(benchmark::State& state, const char* features)
{
    if (features)
        qputenv("PX_CPU_FEATURES", features);
    else
        qunsetenv("PX_CPU_FEATURES");
    const QImage photo = randomPhoto(int(state.range(0)), int(state.range(1)));
    const auto bytes = size_t(photo.sizeInBytes());
    std::vector<uchar> copy(bytes);
    double copySeconds = 0;
    double conversionSeconds = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        std::memcpy(copy.data(), photo.constBits(), bytes);
        benchmark::DoNotOptimize(copy.data());
        auto copied = std::chrono::steady_clock::now();
        const PXImage image(photo, QFileInfo());
        benchmark::DoNotOptimize(image.imageYCbCr().constBits());
        auto converted = std::chrono::steady_clock::now();
        copySeconds += secondsOf(copied - start);
        conversionSeconds += secondsOf(converted - copied);
        state.SetIterationTime(secondsOf(converted - copied));
    }
    state.counters["copy_ms"] = benchmark::Counter(copySeconds * 1e3 / double(state.iterations()));
    state.counters["ratio"] = benchmark::Counter(conversionSeconds / copySeconds);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
    qunsetenv("PX_CPU_FEATURES");
}

void BM_YCbCrConversion(benchmark::State& state)
{
    conversionAgainstCopy(state, nullptr);
}

void BM_YCbCrConversionScalar(benchmark::State& state)
{
    conversionAgainstCopy(state, "none");
}

} // namespace

BENCHMARK(BM_YCbCrConversion)->Args({ 1200, 800 })->Args({ 4000, 3000 })->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_YCbCrConversionScalar)->Args({ 1200, 800 })->Args({ 4000, 3000 })->UseManualTime()->Unit(benchmark::kMillisecond);
