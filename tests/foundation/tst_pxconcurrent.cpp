#include "PXConcurrent.h"

#include <QSemaphore>
#include <QSet>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>
#include <QTest>
#include <QThread>

namespace {

struct Slice
{
    int index;
    int* output;
};

void square(Slice& slice)
{
    *slice.output = slice.index * slice.index;
}

struct MapRun
{
    QList<int> mapped;
    QList<int> written;
    QSet<QThread*> threads;
    bool sequential = false;
};

// Maps 50 slices in place and 50 into a list, recording the threads used.
MapRun runMaps()
{
    MapRun run;
    run.sequential = PXConcurrent::runsSequentially();
    run.written = QList<int>(50, -1);
    QList<Slice> slices;
    for (int i = 0; i < 50; ++i)
        slices.append(Slice { i, &run.written[i] });
    PXConcurrent::blockingMap(slices, square);

    QMutex mutex;
    QList<int> inputs;
    for (int i = 0; i < 50; ++i)
        inputs.append(i);
    run.mapped = PXConcurrent::blockingMapped<QList<int>>(inputs, [&](const int& value) {
        QMutexLocker locker(&mutex);
        run.threads.insert(QThread::currentThread());
        return value * 3;
    });
    return run;
}

} // namespace

class TestPXConcurrent : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { PXConcurrent::maxRunningThreads = 3 * QThread::idealThreadCount(); }

    // Regression: every pool thread starting a nested pass at once used to wait
    // forever for slices no thread was left to run. First, while the pool is
    // fresh: later cases leave threads behind that can hide the hang.
    void passesFromEveryPoolThreadFinish()
    {
        QThreadPool* pool = QThreadPool::globalInstance();
        const int threads = pool->maxThreadCount();
        QSemaphore allRunning;
        QList<QFuture<int>> tasks;
        for (int t = 0; t < threads; ++t) {
            tasks.append(QtConcurrent::run([&allRunning, threads] {
                allRunning.release();
                allRunning.acquire(threads); // every pool thread is busy now
                allRunning.release(threads);
                QList<int> inputs(64);
                // Slow slices, so that no pass ends before the others have begun.
                const QList<int> doubled = PXConcurrent::blockingMapped<QList<int>>(inputs,
                    [](const int& value) {
                        QThread::msleep(1);
                        return value + 2;
                    });
                QList<int> outputs(64, 1);
                PXConcurrent::blockingMap(outputs, [](int& value) {
                    QThread::msleep(1);
                    value *= 3;
                });
                return int(doubled.size() + outputs.count(3));
            }));
        }
        for (QFuture<int>& task : tasks)
            QCOMPARE(task.result(), 128);
        QTRY_COMPARE(pool->activeThreadCount(), 0);
        QCOMPARE(pool->maxThreadCount(), threads);
    }

    void mappedKeepsOrder()
    {
        const MapRun run = runMaps();
        for (int i = 0; i < 50; ++i) {
            QCOMPARE(run.mapped[i], 3 * i);
            QCOMPARE(run.written[i], i * i);
        }
    }

    void busyPoolRunsWorkerThreadsSequentially()
    {
        PXConcurrent::maxRunningThreads = 0;
        QVERIFY(!PXConcurrent::runsSequentially()); // the main thread always uses the pool
        MapRun run;
        QThread* worker = QThread::create([&run] { run = runMaps(); });
        worker->start();
        QVERIFY(worker->wait(10000));
        QVERIFY(run.sequential);
        QCOMPARE(run.threads, QSet<QThread*>({ worker }));
        for (int i = 0; i < 50; ++i) {
            QCOMPARE(run.mapped[i], 3 * i);
            QCOMPARE(run.written[i], i * i);
        }
        delete worker;
    }
};

QTEST_GUILESS_MAIN(TestPXConcurrent)
#include "tst_pxconcurrent.moc"
