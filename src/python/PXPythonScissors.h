#pragma once

#include <QImage>
#include <QList>
#include <QPoint>
#include <QPointF>

#include <functional>
#include <mutex>

class PXIntelligentScissors;

/**
 * The live wire from Python: a PXIntelligentScissors on the module's host
 * thread, asked for one wire at a time. Calls are made without the GIL from
 * any thread and are serialised per object.
 */
class PXPythonScissors
{
public:
    using Interrupted = std::function<bool()>;

    /** @p photo at full resolution, QImage::Format_ARGB32. */
    explicit PXPythonScissors(const QImage& photo);
    ~PXPythonScissors();
    PXPythonScissors(const PXPythonScissors&) = delete;
    PXPythonScissors& operator=(const PXPythonScissors&) = delete;

    /**
     * The wire from @p seed to @p target as `pxcut wire` writes it: from the
     * seed's pixel to the target's, every point inside the photo. Both points
     * must lie in the photo. Throws PXPythonErrors::Timeout or ::Interrupted.
     */
    QList<QPoint> wire(const QPointF& seed, const QPointF& target, int timeoutMs, const Interrupted& interrupted);

private:
    void release();

    std::mutex m_calls;
    PXIntelligentScissors* m_scissors = nullptr;
    QSize m_size;
    int m_releaseKey = 0;
};
