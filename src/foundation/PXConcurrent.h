#pragma once

#include "pximagecutter_export.h"

#include <QList>

#include <functional>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

/**
 * The one place where the library schedules data-parallel work.
 *
 * A pass cuts its work into a QList of slices (plain structures carrying
 * shared copies of their inputs, their own bounds and a disjoint part of the
 * output) and maps a plain kernel over them with blockingMap() or
 * blockingMapped(). Both return when every slice is done.
 *
 * The calling thread runs slices itself and free threads of
 * QThreadPool::globalInstance() join in as soon as they start: a pass never
 * waits for a pool thread to wake before its work begins, and passes nested
 * in pool tasks finish however busy the pool is. The application's main
 * thread always takes help from the pool; any other thread does too unless
 * the pool already runs at least maxRunningThreads tasks, and then runs the
 * slices in order alone. Every way gives the same results.
 */
class PXIMAGECUTTER_EXPORT PXConcurrent
{
public:
    /** 3 x QThread::idealThreadCount(), set when the library is loaded. */
    static int maxRunningThreads;

    /** Whether a map called from this thread now would run sequentially. */
    static bool runsSequentially();

    /** A half-open interval [first, second) of rows or items: one slice of a pass. */
    using Range = std::pair<qsizetype, qsizetype>;
    /** [@p begin, @p end) cut into ranges of @p size, the last one shorter if need be. */
    static QList<Range> ranges(qsizetype begin, qsizetype end, qsizetype size);

    /** Calls @p function on every element of @p sequence (in place). */
    template <typename Sequence, typename Function>
    static void blockingMap(Sequence& sequence, Function function)
    {
        // Detached here, once, so slices on other threads never copy the list.
        const auto first = sequence.begin();
        runSlices(qsizetype(sequence.size()), [&](qsizetype index) { std::invoke(function, first[index]); });
    }

    /** The list of @p function(element), in the order of @p sequence. */
    template <typename Result, typename Sequence, typename Function>
    static Result blockingMapped(const Sequence& sequence, Function function)
    {
        using Item = std::decay_t<std::invoke_result_t<Function, const typename Sequence::value_type&>>;
        const auto first = sequence.cbegin();
        std::vector<std::optional<Item>> items(std::size_t(sequence.size()));
        runSlices(qsizetype(sequence.size()),
            [&](qsizetype index) { items[std::size_t(index)].emplace(std::invoke(function, first[index])); });
        Result result;
        result.reserve(sequence.size());
        for (std::optional<Item>& item : items)
            result.append(std::move(*item));
        return result;
    }

private:
    PXConcurrent() = delete;

    // Calls slice(0) .. slice(count - 1) once each, here and on free pool
    // threads; returns when all have returned.
    static void runSlices(qsizetype count, const std::function<void(qsizetype)>& slice);
};
