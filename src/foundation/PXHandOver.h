#pragma once

#include <atomic>

/**
 * Makes the order between a thread and whoever waits for it explicit where
 * the library relies on Qt to provide it.
 *
 * QThread::wait() does order the thread's work before its return, but once
 * the thread has ended it decides so under a lock inside Qt that
 * ThreadSanitizer cannot see when Qt itself is not built with it. The thread
 * calls publish() after its work, the waiter observe() before touching it;
 * outside such a build this costs one atomic operation each.
 */
class PXHandOver
{
public:
    void publish() { m_count.fetch_add(1, std::memory_order_release); }
    void observe() const { static_cast<void>(m_count.load(std::memory_order_acquire)); }

private:
    std::atomic<unsigned int> m_count {0};
};
