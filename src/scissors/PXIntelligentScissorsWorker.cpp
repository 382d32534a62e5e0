#include "PXIntelligentScissorsWorker.h"

#include <QMutexLocker>

PXIntelligentScissorsWorker::PXIntelligentScissorsWorker(const QString& name)
    : m_name(name)
{
    setObjectName(name);
}

PXIntelligentScissorsWorker::~PXIntelligentScissorsWorker()
{
    // Subclasses stop their bodies in their own destructors, while their
    // members still exist; this only covers a worker that was never started
    // by a subclass that forgot to.
    stop(true);
}

void PXIntelligentScissorsWorker::clearRunning()
{
    QMutexLocker locker(&m_mutex);
    m_running.store(false, std::memory_order_release);
}

void PXIntelligentScissorsWorker::startThread()
{
    if (isExecuting()) {
        clearRunning();
        interruptWait();
    }
    if (QThread::currentThread() == this)
        return;
    // A body told to stop without waiting may still be finishing.
    join();
    {
        QMutexLocker locker(&m_mutex);
        m_running.store(true, std::memory_order_release);
    }
    m_progress.store(0, std::memory_order_relaxed);
    start(QThread::InheritPriority);
}

void PXIntelligentScissorsWorker::stop()
{
    if (isExecuting()) {
        clearRunning();
        interruptWait();
    }
}

void PXIntelligentScissorsWorker::stop(bool wait)
{
    if (isExecuting()) {
        clearRunning();
        interruptWait();
    }
    if (wait && QThread::currentThread() != this)
        join();
}

void PXIntelligentScissorsWorker::join()
{
    QThread::wait();
    m_handOver.observe();
}

void PXIntelligentScissorsWorker::stoppingThread()
{
    stop(true);
}

void PXIntelligentScissorsWorker::interruptWait()
{
}

void PXIntelligentScissorsWorker::run()
{
    runningThread();
    if (isExecuting())
        clearRunning();
    m_handOver.publish();
}

void PXIntelligentScissorsWorker::setTotalProgress(int total)
{
    m_stepSize = total / 100;
    m_total.store(total, std::memory_order_relaxed);
}

void PXIntelligentScissorsWorker::incrementProgress()
{
    const int progress = m_progress.load(std::memory_order_relaxed) + 1;
    m_progress.store(progress, std::memory_order_relaxed);
    if (++m_stepCounter == m_stepSize) {
        m_stepCounter = 0;
        emit progressChanged(static_cast<double>(static_cast<float>(progress)
            / static_cast<float>(m_total.load(std::memory_order_relaxed))));
    }
}

void PXIntelligentScissorsWorker::setProgress(int value)
{
    const int progress = m_progress.load(std::memory_order_relaxed);
    if (value == progress)
        return;
    m_stepCounter += value - progress;
    m_progress.store(value, std::memory_order_relaxed);
    if (m_stepCounter >= m_stepSize) {
        if (m_stepSize != 0)
            m_stepCounter %= m_stepSize;
        // The raw value, unlike incrementProgress(); hosts rely on both units.
        emit progressChanged(value);
    }
}
