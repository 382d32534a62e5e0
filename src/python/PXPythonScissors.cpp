#include "PXPythonScissors.h"

#include "PXPointList.h"
#include "PXPythonErrors.h"
#include "PXPythonHost.h"

#include <PXIntelligentScissors.h>

#include <QElapsedTimer>
#include <QThread>

#include <algorithm>
#include <stdexcept>

PXPythonScissors::PXPythonScissors(const QImage& photo)
    : m_size(photo.size())
{
    PXPythonHost& host = PXPythonHost::instance();
    host.run([&] {
        m_scissors = new PXIntelligentScissors;
        m_scissors->setup(photo);
    });
    m_releaseKey = host.addRelease([this] { release(); });
}

PXPythonScissors::~PXPythonScissors()
{
    PXPythonHost& host = PXPythonHost::instance();
    host.removeRelease(m_releaseKey);
    try {
        host.run([this] { release(); });
    } catch (const std::runtime_error&) {
        // The host has shut down and released these scissors already.
    }
}

void PXPythonScissors::release()
{
    delete std::exchange(m_scissors, nullptr);
}

QList<QPoint> PXPythonScissors::wire(const QPointF& seed, const QPointF& target, int timeoutMs,
    const Interrupted& interrupted)
{
    const std::lock_guard<std::mutex> locker(m_calls);
    PXPythonHost& host = PXPythonHost::instance();
    host.run([&] { m_scissors->initializeSeed(seed); });
    QElapsedTimer waiting;
    waiting.start();
    for (;;) {
        bool reached = false;
        host.run([&] { reached = m_scissors->containsWireToPoint(target); });
        if (reached)
            break;
        const bool stopped = interrupted && interrupted();
        if (stopped || waiting.elapsed() > timeoutMs) {
            host.run([this] { m_scissors->stopRunning(); });
            if (stopped)
                throw PXPythonErrors::Interrupted("interrupted; the search was stopped");
            throw PXPythonErrors::Timeout("the wire was not found within the timeout; the search was stopped");
        }
        QThread::msleep(2);
    }
    QList<QPoint> traced;
    // Left running, as pxcut leaves it: the next seed restarts the search.
    host.run([&] { traced = m_scissors->bestWire(target); });
    // The scissors trace back from the target; a wire reads from its seed.
    std::reverse(traced.begin(), traced.end());
    return PXPointList::joinedWire(traced, seed.toPoint(), target.toPoint(), m_size);
}
