#include "PXMaskWaiter.h"

#include <chrono>

void PXMaskWaiter::arm()
{
    std::lock_guard<std::mutex> locker(m_mutex);
    m_mask = QImage();
    m_armed = true;
}

void PXMaskWaiter::offer(const QImage& mask)
{
    if (mask.isNull())
        return;
    {
        std::lock_guard<std::mutex> locker(m_mutex);
        if (!m_armed)
            return;
        m_mask = mask;
        m_armed = false;
    }
    m_arrived.notify_all();
}

QImage PXMaskWaiter::wait(int timeoutMs, const std::function<bool()>& interrupted)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::unique_lock<std::mutex> locker(m_mutex);
    // Short slices, so Ctrl-C in the interpreter ends a long wait.
    while (m_mask.isNull()) {
        const Clock::time_point now = Clock::now();
        if (now >= deadline)
            break;
        m_arrived.wait_until(locker, std::min(deadline, now + std::chrono::milliseconds(50)));
        if (m_mask.isNull() && interrupted) {
            locker.unlock();
            const bool stop = interrupted();
            locker.lock();
            if (stop)
                break;
        }
    }
    m_armed = false;
    return std::exchange(m_mask, QImage());
}
