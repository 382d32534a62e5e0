#include "PXIntelligentScissorsWorker.h"

#include <QSignalSpy>
#include <QtTest>

#include <atomic>

namespace {

// Counts its bodies and, if asked, runs until told to stop.
class Worker : public PXIntelligentScissorsWorker
{
public:
    Worker() : PXIntelligentScissorsWorker(QStringLiteral("Test Worker")) {}
    ~Worker() override { stop(true); }

    std::atomic<int> bodies {0};
    std::atomic<int> concurrent {0};
    std::atomic<int> mostConcurrent {0};
    bool loops = true;

    void runningThread() override
    {
        ++bodies;
        const int now = ++concurrent;
        if (now > mostConcurrent)
            mostConcurrent = now;
        while (loops && isExecuting())
            QThread::usleep(100);
        --concurrent;
    }
};

} // namespace

class TestPXIntelligentScissorsWorker : public QObject
{
    Q_OBJECT

private slots:
    void incrementProgress_data()
    {
        QTest::addColumn<int>("total");
        QTest::addColumn<int>("steps");
        QTest::addColumn<QList<double>>("reports");
        QTest::newRow("250") << 250 << 7 << QList<double> {2.0f / 250.0f, 4.0f / 250.0f, 6.0f / 250.0f};
        QTest::newRow("99 never reports") << 99 << 99 << QList<double> {};
    }
    void incrementProgress()
    {
        QFETCH(int, total);
        QFETCH(int, steps);
        QFETCH(QList<double>, reports);
        Worker worker;
        worker.setTotalProgress(total);
        QSignalSpy spy(&worker, &PXIntelligentScissorsWorker::progressChanged);
        for (int i = 0; i < steps; ++i)
            worker.incrementProgress();
        QCOMPARE(spy.size(), reports.size());
        for (int i = 0; i < reports.size(); ++i)
            QCOMPARE(spy.at(i).at(0).toDouble(), reports.at(i));
    }

    void restartNeverRunsTwoBodies()
    {
        Worker worker;
        worker.setTotalProgress(1000);
        for (int i = 0; i < 5; ++i) {
            worker.startThread();
            QVERIFY(worker.isExecuting());
            worker.incrementProgress();
        }
        worker.startThread();
        QCOMPARE(worker.progress(), 0);
        worker.stoppingThread();
        QVERIFY(!worker.isExecuting());
        QVERIFY(worker.isFinished());
        QCOMPARE(worker.bodies.load(), 6);
        QCOMPARE(worker.mostConcurrent.load(), 1);
    }

    void flagClearsWhenTheBodyReturns()
    {
        Worker worker;
        worker.stop(); // on an idle worker: returns at once
        QCOMPARE(worker.bodies.load(), 0);
        worker.loops = false;
        worker.startThread();
        QVERIFY(worker.wait(10000));
        QVERIFY(!worker.isExecuting());
    }
};

QTEST_GUILESS_MAIN(TestPXIntelligentScissorsWorker)
#include "tst_pxintelligentscissorsworker.moc"
