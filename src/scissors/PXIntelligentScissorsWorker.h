#pragma once

#include "PXHandOver.h"
#include "pximagecutter_export.h"

#include <QMutex>
#include <QString>
#include <QThread>

#include <atomic>

/**
 * The thread base of the scissors' calculators.
 *
 * A subclass supplies the thread body as runningThread() and polls
 * isExecuting() between units of work. startThread() never lets two bodies
 * of one worker run at once: it stops and joins a running body first.
 *
 * Progress: setTotalProgress() fixes the number of steps of a full run and a
 * report interval of total / 100 steps; incrementProgress() reports
 * progressChanged(progress / total) every interval (never when the total is
 * below 100), while setProgress() reports the raw step count.
 *
 * startThread(), stop(bool), stoppingThread() and the destructor are called
 * from the owner's thread; calling the waiting ones from the worker's own
 * thread only clears the flag (it cannot wait for itself).
 */
class PXIMAGECUTTER_EXPORT PXIntelligentScissorsWorker : public QThread
{
    Q_OBJECT

public:
    /** An idle worker called @p name (also the thread's name). */
    explicit PXIntelligentScissorsWorker(const QString& name);
    /** Stops the body and waits for it. */
    ~PXIntelligentScissorsWorker() override;

    QString name() const { return m_name; }

    /** (Re)starts the body: stops and joins a running one, resets the progress, starts the thread. */
    void startThread();

    /** Tells the body to stop (clears the running flag); does not wait. */
    virtual void stop();
    /** Clears the running flag and, if @p wait, waits for the body to return. */
    void stop(bool wait);
    /** QThread::wait() that also takes over the body's work (see PXHandOver). */
    void join();
    /** Same as stop(true). */
    void stoppingThread();

    /** The running flag: set by startThread(), cleared on stop or when the body returns. */
    bool isExecuting() const { return m_running.load(std::memory_order_acquire); }
    int progress() const { return m_progress.load(std::memory_order_relaxed); }
    int totalProgress() const { return m_total.load(std::memory_order_relaxed); }

    /** Sets the steps of a full run and the report interval total / 100. */
    void setTotalProgress(int total);
    /** One step done; reports the fraction done every interval. */
    void incrementProgress();
    /** Sets the steps done; reports @p value itself once an interval has passed. */
    void setProgress(int value);

signals:
    void progressChanged(double value);

protected:
    void run() override;
    /** The thread body; returns when done or when isExecuting() turns false. */
    virtual void runningThread() = 0;
    /**
     * Called after the running flag was cleared, so that a body sleeping on a
     * wait condition of its own can be woken to notice it.
     */
    virtual void interruptWait();

private:
    PXIMAGECUTTER_NO_EXPORT void clearRunning();

    QString m_name;
    QMutex m_mutex;
    std::atomic<bool> m_running {false};
    std::atomic<int> m_progress {0};
    int m_stepCounter = 0;
    int m_stepSize = 1;
    std::atomic<int> m_total {100};
    PXHandOver m_handOver;
};
