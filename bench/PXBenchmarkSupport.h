#pragma once

// Helpers every benchmark program may use: waiting for a controller's mask
// and reading the process's resident memory.

#include "PXImageSegmentation.h"

#include <QEventLoop>
#include <QImage>
#include <QObject>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

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
