#pragma once

#include <atomic>

/**
 * Makes the order between two threads explicit where the library relies on
 * Qt to provide it.
 *
 * QThread::wait(), QFuture::waitForFinished() and QtConcurrent's blocking
 * maps do order the work they wait for before their return, but through
 * locks inside Qt that ThreadSanitizer cannot see when Qt itself is not
 * built with it. The thread that hands work over calls publish() after it,
 * the one that takes it over calls observe() before touching it; outside
 * such a build this costs one atomic operation each.
 */
class PXHandOver
{
public:
    void publish() { m_count.fetch_add(1, std::memory_order_release); }
    void observe() const { static_cast<void>(m_count.load(std::memory_order_acquire)); }

    /** One stretch of work: observe() when it starts, publish() when it ends. */
    class Turn
    {
    public:
        explicit Turn(PXHandOver& handOver)
            : m_handOver(handOver)
        {
            handOver.observe();
        }
        ~Turn() { m_handOver.publish(); }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        PXHandOver& m_handOver;
    };

private:
    std::atomic<unsigned int> m_count {0};
};
