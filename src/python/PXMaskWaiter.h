#pragma once

#include <QImage>

#include <condition_variable>
#include <functional>
#include <mutex>

/**
 * Turns the controller's sendNewMask() into a return value without an event
 * loop in the waiting thread: offer() is connected with Qt::DirectConnection,
 * so it runs on whatever thread emits (the controller's own, mostly), and
 * wait() blocks the caller on a condition variable.
 *
 * Call order: arm() before the request that should produce a mask, then
 * wait(). Null masks (reset() emits them) are not answers.
 */
class PXMaskWaiter
{
public:
    /** Forgets any earlier mask; the next non-null offer() is the answer. */
    void arm();
    /** Any thread. */
    void offer(const QImage& mask);
    /**
     * Blocks until a mask came after arm() or @p timeoutMs passed, asking
     * @p interrupted every few milliseconds whether to give up. Returns the
     * mask, or a null image on timeout or interruption.
     */
    QImage wait(int timeoutMs, const std::function<bool()>& interrupted);

private:
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    QImage m_mask;
    bool m_armed = false;
};
