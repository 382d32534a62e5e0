#include "PXInitialSegmentationWorker.h"
#include "WorkerTestPhoto.h"

#include <QFileInfo>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QtTest>

#include <cmath>
#include <limits>

namespace {

constexpr int PhotoWidth = 240;
constexpr int PhotoHeight = 160;

QImage testPhoto()
{
    return WorkerTestPhoto::photo(PhotoWidth, PhotoHeight);
}

QPainterPath testLasso()
{
    return WorkerTestPhoto::lasso(PhotoWidth, PhotoHeight, 0.6);
}

// A hand-drawn lasso of many small random steps round an ellipse: it crosses
// itself all along, which the path clipper handles in quadratic time or worse.
QPainterPath jitteryLasso(int points, QPointF centre, QSizeF radii)
{
    QRandomGenerator random(7);
    double drift = 0;
    QPolygonF polygon;
    for (int i = 0; i < points; ++i) {
        drift = qBound(-15.0, drift + random.bounded(3.0) - 1.5, 15.0);
        const double angle = 2 * M_PI * i / points;
        polygon << centre + QPointF((radii.width() + drift) * std::cos(angle), (radii.height() + drift) * std::sin(angle))
                + QPointF(random.bounded(4.0) - 2, random.bounded(4.0) - 2);
    }
    QPainterPath path;
    path.addPolygon(polygon);
    path.closeSubpath();
    return path;
}

} // namespace

class TestInitialSegmentationWorker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void progressProtocol();
    void stopEndsAtThePhaseBoundary();
    void jitteryLassoGrowsQuickly();
    void badInput_data();
    void badInput();
};

void TestInitialSegmentationWorker::progressProtocol()
{
    PXInitialSegmentationWorker worker(testPhoto(), QFileInfo());
    QCOMPARE(worker.totalSteps(), 4 + 5);
    QSignalSpy reset(&worker, &PXInitialSegmentationWorker::resetProgress);
    QSignalSpy progress(&worker, &PXInitialSegmentationWorker::updateProgress);
    QSignalSpy finished(&worker, &PXInitialSegmentationWorker::finished);
    worker.startInitialSegmentation(testLasso());
    QVERIFY(finished.wait(30000));
    // Stage signals reach the worker queued, in its own thread.
    QTRY_COMPARE(progress.count(), 9);
    for (int i = 0; i < progress.count(); ++i)
        QCOMPARE(progress.at(i), (QList<QVariant>{i + 1, 9}));
    QCOMPARE(reset.count(), 1);

    // A worker runs once.
    worker.startInitialSegmentation(testLasso()).waitForFinished();
    QCoreApplication::processEvents();
    QCOMPARE(reset.count(), 1);
    QCOMPARE(finished.count(), 1);
}

// Such a lasso once kept the growing step busy for minutes; it now grows on a
// raster and still holds what the hand enclosed.
void TestInitialSegmentationWorker::jitteryLassoGrowsQuickly()
{
    const QRect photo(0, 0, 1200, 800);
    const QPainterPath lasso = jitteryLasso(20000, QPointF(600, 400), QSizeF(380, 250));
    const QPainterPath grown = PXInitialSegmentationWorker(QImage(), QFileInfo()).growPainterPath(lasso, photo, 10);
    QVERIFY(QRectF(photo).contains(grown.boundingRect()));
    for (int i = 0; i < lasso.elementCount(); i += 997)
        QVERIFY(grown.contains(QPointF(lasso.elementAt(i))));
    QVERIFY(grown.contains(QPointF(600, 400)));
    QVERIFY(!grown.contains(QPointF(600, 115)));
}

// A stop lands at the next phase boundary: from the run's first signal
// before SLIC, from SLIC's first step after it (SLIC ends, nothing follows).
void TestInitialSegmentationWorker::stopEndsAtThePhaseBoundary()
{
    PXInitialSegmentationWorker first(testPhoto(), QFileInfo());
    connect(&first, &PXInitialSegmentationWorker::resetProgress, &first, [&first] { first.stop(); },
        Qt::DirectConnection);
    QSignalSpy firstProgress(&first, &PXInitialSegmentationWorker::updateProgress);
    first.startInitialSegmentation(testLasso()).waitForFinished();
    QCoreApplication::processEvents();
    QCOMPARE(firstProgress.count(), 0);
    QVERIFY(first.labels().isNull());

    PXInitialSegmentationWorker worker(WorkerTestPhoto::photo(800, 800), QFileInfo());
    // SLIC's steps reach the worker queued: the stop lands as soon as this
    // thread takes the first one, while SLIC still runs.
    connect(&worker, &PXInitialSegmentationWorker::updateProgress, &worker,
        [&worker](int current) {
            if (current == 1)
                worker.stop();
        },
        Qt::DirectConnection);
    QSignalSpy progress(&worker, &PXInitialSegmentationWorker::updateProgress);
    QSignalSpy finished(&worker, &PXInitialSegmentationWorker::finished);
    QFuture<void> future = worker.startInitialSegmentation(WorkerTestPhoto::lasso(800, 800, 0.6));
    QVERIFY(progress.wait(30000));
    future.waitForFinished();
    QCoreApplication::processEvents();
    QVERIFY(!worker.isRunning());
    QCOMPARE(finished.count(), 0);
    QVERIFY(!worker.labels().isNull());
    QVERIFY(worker.neighbours().isEmpty());
}

void TestInitialSegmentationWorker::badInput_data()
{
    QTest::addColumn<QImage>("photo");
    QTest::addColumn<QPainterPath>("lasso");

    const QImage photo = testPhoto();
    QPainterPath nanLasso;
    nanLasso.moveTo(std::numeric_limits<qreal>::quiet_NaN(), 5);
    nanLasso.lineTo(30, std::numeric_limits<qreal>::quiet_NaN());

    QTest::newRow("null photo") << QImage() << testLasso();
    QTest::newRow("NaN lasso") << photo << nanLasso;
}

// Bad input finishes like any other and leaves no label out of range.
void TestInitialSegmentationWorker::badInput()
{
    QFETCH(QImage, photo);
    QFETCH(QPainterPath, lasso);
    PXInitialSegmentationWorker worker(photo, QFileInfo());
    QSignalSpy finished(&worker, &PXInitialSegmentationWorker::finished);
    worker.startInitialSegmentation(lasso).waitForFinished();
    QCOMPARE(finished.count(), 1);
    const QImage labels = worker.labels();
    const int records = int(worker.superpixel().size());
    for (int y = 0; y < labels.height(); ++y) {
        const auto* row = reinterpret_cast<const qint32*>(labels.constScanLine(y));
        for (int x = 0; x < labels.width(); ++x)
            QVERIFY(row[x] >= 0 && row[x] < records);
    }
}

QTEST_MAIN(TestInitialSegmentationWorker)
#include "tst_initialsegmentationworker.moc"
