#pragma once

// What every program of the suite shares: the two photo sizes with a lasso
// over 60 % of each, waiting for a controller's mask, and the process's
// memory and processor time.
#include "PXBenchmarkSupport.h"

#include <chrono>
#include <ctime>
#include <sys/resource.h>

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

using Scene = BenchScene;

/** Argument 0 is the 1200 x 800 photo, 1 the 4000 x 3000 one. */
inline const Scene& scene(int which)
{
    return which == 0 ? benchScene(1200, 800) : benchScene(4000, 3000);
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

/** The process's peak resident memory so far; the suite runs each benchmark in a process of its own. */
inline double peakResidentMiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

} // namespace PXSuiteScene
