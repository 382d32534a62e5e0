#pragma once

// What every program of the suite shares: the two photo sizes with a lasso
// over 60 % of each, waiting for a controller's mask, and the process's
// resident memory.
#include "PXBenchmarkSupport.h"
#include "PXImageSegmentation.h"
#include "PXIntelligentScissors.h"
#include "PXIntelligentScissorsWireCalculator.h"
#include "WorkerTestPhoto.h"

#include <QEventLoop>
#include <QImage>
#include <QObject>
#include <QPainterPath>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace PXSuiteScene {

using Clock = std::chrono::steady_clock;

inline double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/** Processor time of all the process's threads. */
inline double processorMilliseconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

struct Scene
{
    QImage photo;
    QPainterPath lasso;
};

/** Argument 0 is the 1200 x 800 photo, 1 the 4000 x 3000 one. */
inline const Scene& scene(int which)
{
    static const Scene small{WorkerTestPhoto::photo(1200, 800), WorkerTestPhoto::lasso(1200, 800, 0.6)};
    static const Scene large{WorkerTestPhoto::photo(4000, 3000), WorkerTestPhoto::lasso(4000, 3000, 0.6)};
    return which == 0 ? small : large;
}

inline void photoArguments(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("photo")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}

/** Makes @p request and waits for its mask; the hand-over to this thread is not timed. */
template <typename Request>
void requestMask(PXImageSegmentation& controller, Request request)
{
    requestMask(controller, request, Qt::DirectConnection, 60000);
}

/** Polls until every reduced pixel of the photo itself is settled; the padding may still be searched. */
inline void waitUntilPhotoReachable(const PXIntelligentScissors& scissors, const QImage& image)
{
    const PXIntelligentScissorsWireCalculator* wire = scissors.wireCalculator();
    const unsigned int width = (image.width() + 1) / 2;
    const unsigned long count = static_cast<unsigned long>(width) * ((image.height() + 1) / 2);
    unsigned long next = 0;
    while (next < count) {
        const unsigned int x = 2 * (next % width);
        const unsigned int y = 2 * (next / width);
        if (wire->isReachable(x, y) || !wire->isExecuting())
            ++next;
        else
            std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
}

/** The process's peak resident memory so far; the suite runs each benchmark in a process of its own. */
inline double peakResidentMiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

} // namespace PXSuiteScene
