#pragma once

// What every program of the suite shares: the two photo sizes with a lasso
// over 60 % of each, waiting for a controller's mask, and the process's
// resident memory.
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

/** Makes @p request and runs the event loop until a non-null mask arrives. */
template <typename Request>
void requestMask(PXImageSegmentation& controller, Request request)
{
    QEventLoop loop;
    QObject::connect(
        &controller, &PXImageSegmentation::sendNewMask, &loop,
        [&loop](const QImage& mask) {
            if (!mask.isNull())
                loop.quit();
        },
        Qt::DirectConnection);
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    request();
    loop.exec();
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

inline double residentMiB()
{
    long pages = 0;
    long resident = 0;
    if (FILE* file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        std::fclose(file);
    }
    return resident * double(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

/** The process's peak resident memory so far; the suite runs each benchmark in a process of its own. */
inline double peakResidentMiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

} // namespace PXSuiteScene
