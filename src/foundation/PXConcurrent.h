#pragma once

#include "PXHandOver.h"
#include "pximagecutter_export.h"

#include <QtConcurrent/QtConcurrentMap>

#include <type_traits>

/**
 * The one place where the library schedules data-parallel work.
 *
 * A pass cuts its work into a QList of slices (plain structures carrying
 * shared copies of their inputs, their own bounds and a disjoint part of the
 * output) and maps a plain kernel over them with blockingMap() or
 * blockingMapped(). Both return when every slice is done.
 *
 * The application's main thread always maps on QThreadPool::globalInstance().
 * Any other thread does so too unless the pool already runs at least
 * maxRunningThreads tasks; then the slices run in order in the calling thread,
 * so that nested passes (started from a pool task or a segmentation thread)
 * never queue behind their own parents. Both ways give the same results.
 *
 * A pool thread that waits for its nested pass gives its place in the pool
 * back for the time being: otherwise passes started from every pool thread at
 * once would wait for slices that no thread is left to run.
 *
 * Each slice observes the caller's inputs and publishes its output through a
 * PXHandOver, so the order QtConcurrent provides is visible to ThreadSanitizer.
 */
class PXIMAGECUTTER_EXPORT PXConcurrent
{
public:
    /** 3 x QThread::idealThreadCount(), set when the library is loaded. */
    static int maxRunningThreads;

    /** Whether a map called from this thread now would run sequentially. */
    static bool runsSequentially();

    /** Calls @p function on every element of @p sequence (in place). */
    template <typename Sequence, typename Function>
    static void blockingMap(Sequence& sequence, Function function)
    {
        if (runsSequentially()) {
            // In place, like the pool path, so both give the same results.
            for (auto& element : sequence)
                function(element);
            return;
        }
        const PoolWait wait;
        PXHandOver handOver;
        handOver.publish();
        QtConcurrent::blockingMap(sequence, [&](typename Sequence::value_type& element) {
            const PXHandOver::Turn turn(handOver);
            function(element);
        });
        handOver.observe();
    }

    /** The list of @p function(element), in the order of @p sequence. */
    template <typename Result, typename Sequence, typename Function>
    static Result blockingMapped(Sequence sequence, Function function)
    {
        using Item = std::decay_t<
            std::invoke_result_t<Function, const typename Sequence::value_type&>>;
        if (runsSequentially()) {
            Result result;
            result.reserve(sequence.size());
            for (const auto& element : std::as_const(sequence))
                result.append(function(element));
            return result;
        }
        const PoolWait wait;
        PXHandOver handOver;
        handOver.publish();
        Result result = QtConcurrent::blockingMappedReduced<Result>(
            sequence,
            [&](const typename Sequence::value_type& element) -> Item {
                const PXHandOver::Turn turn(handOver);
                return function(element);
            },
            [&](Result& reduced, const Item& item) {
                const PXHandOver::Turn turn(handOver);
                reduced.append(item);
            },
            QtConcurrent::OrderedReduce);
        handOver.observe();
        return result;
    }

private:
    PXConcurrent() = delete;

    // While alive, a global pool thread's place counts as free (see above).
    class PXIMAGECUTTER_EXPORT PoolWait
    {
    public:
        PoolWait();
        ~PoolWait();

    private:
        bool m_released;
    };
};
