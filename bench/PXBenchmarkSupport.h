#pragma once

// Helpers every benchmark program may use: the synthetic photos with a lasso
// over 60 % of them, waiting for a controller's mask, a controller that has
// made its first cut, and the process's resident memory.

#include "PXImageSegmentation.h"
#include "PXIntelligentScissors.h"
#include "PXIntelligentScissorsWireCalculator.h"
#include "WorkerTestPhoto.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QImage>
#include <QObject>
#include <QPainterPathStroker>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <thread>
#include <unistd.h>

struct BenchScene
{
    QImage photo;
    QPainterPath lasso;
};

/** The synthetic photo of the worker's tests at this size, and its 60 % lasso; made once. */
inline const BenchScene& benchScene(int width, int height)
{
    static std::map<std::pair<int, int>, BenchScene> scenes;
    auto it = scenes.find({width, height});
    if (it == scenes.end()) {
        it = scenes.emplace(std::make_pair(width, height),
                       BenchScene{WorkerTestPhoto::photo(width, height), WorkerTestPhoto::lasso(width, height, 0.6)})
                 .first;
    }
    return it->second;
}

/** A brush of radius 40 across the middle of a 1200-wide photo, scaled by @p scale. */
inline QPainterPath benchStroke(double scale = 1)
{
    QPainterPath line;
    line.moveTo(400 * scale, 380 * scale);
    line.cubicTo(520 * scale, 320 * scale, 680 * scale, 460 * scale, 800 * scale, 400 * scale);
    QPainterPathStroker stroker;
    stroker.setWidth(80 * scale);
    stroker.setCapStyle(Qt::RoundCap);
    return stroker.createStroke(line);
}

inline double milliseconds(const QElapsedTimer& timer)
{
    return double(timer.nsecsElapsed()) / 1e6;
}

/** The mean time of a plain copy of @p image: the baseline of several benchmarks. */
inline double copyMilliseconds(const QImage& image, int rounds)
{
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < rounds; ++i) {
        QImage copy = image.copy();
        benchmark::DoNotOptimize(copy.constBits());
    }
    return milliseconds(timer) / rounds;
}

/**
 * Makes @p request and runs the event loop until a non-null mask arrives, or
 * @p timeoutMs passes. @p connection decides whether the mask's hand-over to
 * this thread is part of what is timed (queued) or not (direct).
 */
template <typename Request>
void requestMask(PXImageSegmentation& controller, Request request, Qt::ConnectionType connection, int timeoutMs)
{
    QEventLoop loop;
    QObject::connect(
        &controller, &PXImageSegmentation::sendNewMask, &loop,
        [&loop](const QImage& mask) {
            if (!mask.isNull())
                loop.quit();
        },
        connection);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    request();
    loop.exec();
}

/** A controller that has made its first cut of the scene. */
struct CutPhoto
{
    explicit CutPhoto(const BenchScene& input)
    {
        controller.setup(input.photo, QFileInfo());
        requestMask(controller, [&]() { controller.startThreadWithInitialPath(input.lasso); },
            Qt::DirectConnection, 60000);
        controller.wait();
    }
    PXImageSegmentation controller;
};

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

/** The process's resident memory now, in MiB. */
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
