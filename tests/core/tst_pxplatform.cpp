#include "PXCpuFeatures.h"
#include "PXPlatformIndependent.h"

#include <QTest>
#include <QThread>

class TestPXPlatform : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        qunsetenv("PX_CORE_COUNT");
        qunsetenv("PX_CPU_FEATURES");
    }

    void coreCountOverride_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<int>("expected"); // 0: the machine's count
        QTest::newRow("positive") << QByteArray("5") << 5;
        QTest::newRow("zero is ignored") << QByteArray("0") << 0;
        QTest::newRow("garbage is ignored") << QByteArray("lots") << 0;
    }
    void coreCountOverride()
    {
        QFETCH(QByteArray, value);
        QFETCH(int, expected);
        qputenv("PX_CORE_COUNT", value);
        const int machine = qMax(1, QThread::idealThreadCount());
        QCOMPARE(PXPlatformIndependent::instance()->numberOfCores(), expected ? expected : machine);
    }

    void featureRestriction_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<bool>("allowSse");
        QTest::addColumn<bool>("allowAvx");
        QTest::newRow("none") << QByteArray("none") << false << false;
        QTest::newRow("sse") << QByteArray("sse") << true << false;
        QTest::newRow("avx") << QByteArray("avx") << false << true;
        QTest::newRow("unknown name is ignored") << QByteArray("neon") << true << true;
    }
    void featureRestriction()
    {
        QFETCH(QByteArray, value);
        QFETCH(bool, allowSse);
        QFETCH(bool, allowAvx);
        const bool hasSse = pxCpuHasFeature(CPU_FEATURE_SSE);
        const bool hasAvx = pxCpuHasFeature(CPU_FEATURE_AVX);
        qputenv("PX_CPU_FEATURES", value);
        // Never more than the processor has.
        QCOMPARE(pxCpuHasFeature(CPU_FEATURE_SSE), hasSse && allowSse);
        QCOMPARE(pxCpuHasFeature(CPU_FEATURE_AVX), hasAvx && allowAvx);
    }
};

QTEST_GUILESS_MAIN(TestPXPlatform)
#include "tst_pxplatform.moc"
