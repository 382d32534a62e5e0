#include "PXConcurrent.h"

#include "PXHandOver.h"

#include <QCoreApplication>
#include <QThread>
#include <QThreadPool>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

int PXConcurrent::maxRunningThreads = 3 * QThread::idealThreadCount();

namespace {

// What the caller and its helpers share. A helper may start after the pass
// has ended; it then claims no slice and never touches the caller's kernel,
// which lives only as long as the pass.
struct Pass {
    const std::function<void(qsizetype)>* slice = nullptr;
    qsizetype count = 0;
    // Claimed by fetch_add; released by the caller once the fields above are set.
    std::atomic<qsizetype> next {0};
    std::mutex mutex;
    std::condition_variable allDone;
    qsizetype done = 0;

    void work()
    {
        for (;;) {
            const qsizetype index = next.fetch_add(1, std::memory_order_acq_rel);
            if (index >= count)
                return;
            (*slice)(index);
            const std::lock_guard<std::mutex> lock(mutex);
            if (++done == count)
                allDone.notify_all();
        }
    }
};

// Orders a helper's start after its set-up where the pool hands it over.
PXHandOver theHelperStart;

} // namespace

bool PXConcurrent::runsSequentially()
{
    const QCoreApplication* application = QCoreApplication::instance();
    if (application && QThread::currentThread() == application->thread())
        return false;
    return QThreadPool::globalInstance()->activeThreadCount() >= maxRunningThreads;
}

QList<PXConcurrent::Range> PXConcurrent::ranges(qsizetype begin, qsizetype end, qsizetype size)
{
    const qsizetype step = std::max<qsizetype>(1, size);
    QList<Range> result;
    for (qsizetype first = begin; first < end; first += step)
        result.append({first, std::min(first + step, end)});
    return result;
}

void PXConcurrent::runSlices(qsizetype count, const std::function<void(qsizetype)>& slice)
{
    if (count <= 0)
        return;
    if (count == 1 || runsSequentially()) {
        for (qsizetype index = 0; index < count; ++index)
            slice(index);
        return;
    }
    auto pass = std::make_shared<Pass>();
    pass->slice = &slice;
    pass->count = count;
    pass->next.store(0, std::memory_order_release);
    // One helper per further core; a busy pool starts fewer, never queues them.
    const qsizetype helpers = std::min<qsizetype>(count - 1, QThread::idealThreadCount() - 1);
    for (qsizetype h = 0; h < helpers; ++h) {
        std::function<void()> helper = [pass] {
            theHelperStart.observe();
            pass->work();
        };
        theHelperStart.publish();
        if (!QThreadPool::globalInstance()->tryStart(std::move(helper)))
            break;
    }
    pass->work();
    const auto finished = [&] {
        const std::lock_guard<std::mutex> lock(pass->mutex);
        return pass->done == count;
    };
    if (finished())
        return;
    // A pool thread left waiting for helpers gives its place back meanwhile,
    // so passes the helpers start in turn find a free thread.
    QThreadPool* pool = QThreadPool::globalInstance();
    const bool inPool = pool->contains(QThread::currentThread());
    if (inPool)
        pool->releaseThread();
    {
        std::unique_lock<std::mutex> lock(pass->mutex);
        pass->allDone.wait(lock, [&] { return pass->done == count; });
    }
    if (inPool)
        pool->reserveThread();
}
