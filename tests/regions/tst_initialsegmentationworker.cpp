#include "PXInitialSegmentationWorker.h"
#include "WorkerTestPhoto.h"

#include <QFileInfo>
#include <QSignalSpy>
#include <QtTest>

#include <cmath>
#include <limits>
#include <memory>

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

// Runs a worker to the end in the calling thread's view.
std::unique_ptr<PXInitialSegmentationWorker> segment(const QImage& photo, const QPainterPath& lasso)
{
    auto worker = std::make_unique<PXInitialSegmentationWorker>(photo, QFileInfo());
    worker->startInitialSegmentation(lasso).waitForFinished();
    return worker;
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
    void snapsToImageBorder();
    void growPainterPath();
    void jitteryLassoIsQuickAndStoppable();
    void stopEndsAtThePhaseBoundary();
    void deleteRightAfterStop();
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
    QCOMPARE(finished.count(), 1);
    QVERIFY(!worker.isRunning());

    // A worker runs once.
    worker.startInitialSegmentation(testLasso()).waitForFinished();
    QCoreApplication::processEvents();
    QCOMPARE(reset.count(), 1);
    QCOMPARE(finished.count(), 1);
}

// On a 1000-pixel-wide photo the margin is 20: 19 snaps to 0, 981 to 1000.
void TestInitialSegmentationWorker::snapsToImageBorder()
{
    const QImage photo = WorkerTestPhoto::photo(1000, 100);
    QPainterPath lasso;
    lasso.moveTo(19, 30);
    lasso.lineTo(20, 50);
    lasso.lineTo(981, 1);
    lasso.lineTo(980, 98);
    lasso.lineTo(500, 99);
    lasso.closeSubpath();
    const auto worker = segment(photo, lasso);
    const QPainterPath path = worker->path();
    QCOMPARE(path.elementCount(), lasso.elementCount());
    const QList<QPointF> expected{{0, 30}, {20, 50}, {1000, 0}, {980, 98}, {500, 100}, {0, 30}};
    for (int i = 0; i < expected.size(); ++i)
        QCOMPARE(QPointF(path.elementAt(i)), expected.at(i));
    QCOMPARE(worker->pathExpanded().boundingRect(), QRectF(0, 0, 1000, 100));

    // The diagnostic picture paints every pixel in its region's mean colour.
    const QImage picture = worker->drawClustersWithTransparentColorsAndContours();
    const QImage labels = worker->labels();
    for (const QPoint& point : {QPoint(0, 0), QPoint(500, 50), QPoint(999, 99)})
        QCOMPARE(picture.pixel(point), worker->superpixel().at(labels.pixel(point) & 0xFFFF).averageRgb());
}

void TestInitialSegmentationWorker::growPainterPath()
{
    PXInitialSegmentationWorker worker{QImage(), QFileInfo()};
    QPainterPath square;
    square.addRect(QRectF(100, 100, 100, 100));
    const QPainterPath grown = worker.growPainterPath(square, QRect(0, 0, 400, 400), 10);
    QCOMPARE(grown.boundingRect(), QRectF(90, 90, 120, 120));
    QVERIFY(grown.contains(QPointF(150, 150)));
    const QPainterPath clipped = worker.growPainterPath(square, QRect(0, 0, 205, 400), 10);
    QCOMPARE(clipped.boundingRect(), QRectF(90, 90, 115, 120));
}

void TestInitialSegmentationWorker::jitteryLassoIsQuickAndStoppable()
{
    const QImage photo = WorkerTestPhoto::photo(1200, 800);
    const QPainterPath lasso = jitteryLasso(20000, QPointF(600, 400), QSizeF(380, 250));
    const QPainterPath grown = PXInitialSegmentationWorker(QImage(), QFileInfo()).growPainterPath(lasso, photo.rect(), 10);
    QVERIFY2(grown.elementCount() < 20000, qPrintable(QString::number(grown.elementCount())));
    QVERIFY(QRectF(photo.rect()).contains(grown.boundingRect()));
    for (int i = 0; i < lasso.elementCount(); i += 997)
        QVERIFY(grown.contains(QPointF(lasso.elementAt(i))));
    QVERIFY(grown.contains(QPointF(600, 400)));
    QVERIFY(!grown.contains(QPointF(600, 115)));

#if defined(__SANITIZE_THREAD__)
    QSKIP("The cut takes minutes under ThreadSanitizer; the guards below are for hangs.");
#endif
    // Not timed: a cut that hangs in the lasso's geometry fails either QTRY.
    PXInitialSegmentationWorker worker(photo, QFileInfo());
    QSignalSpy finished(&worker, &PXInitialSegmentationWorker::finished);
    worker.startInitialSegmentation(lasso);
    QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 1, 40000);
    QVERIFY(worker.superpixel().size() > 2);

    PXInitialSegmentationWorker stopped(photo, QFileInfo());
    connect(&stopped, &PXInitialSegmentationWorker::resetProgress, &stopped, [&stopped] { stopped.stop(); },
        Qt::DirectConnection);
    QFuture<void> run = stopped.startInitialSegmentation(lasso);
    QTRY_VERIFY_WITH_TIMEOUT(run.isFinished(), 20000);
    QVERIFY(stopped.labels().isNull());
}

// A stop lands at the next phase boundary: from the run's first signal
// before SLIC, from SLIC's first step after it (SLIC ends, nothing follows),
// and before the pool began, before anything.
void TestInitialSegmentationWorker::stopEndsAtThePhaseBoundary()
{
    PXInitialSegmentationWorker first(testPhoto(), QFileInfo());
    connect(&first, &PXInitialSegmentationWorker::resetProgress, &first, [&first] { first.stop(); },
        Qt::DirectConnection);
    QSignalSpy firstProgress(&first, &PXInitialSegmentationWorker::updateProgress);
    first.startInitialSegmentation(testLasso()).waitForFinished();
    QCoreApplication::processEvents();
    QCOMPARE(firstProgress.count(), 0);
    QVERIFY(!first.isRunning());
    QVERIFY(first.labels().isNull());
    QVERIFY(!first.path().isEmpty());

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

    PXInitialSegmentationWorker early(testPhoto(), QFileInfo());
    QSignalSpy reset(&early, &PXInitialSegmentationWorker::resetProgress);
    early.stop();
    early.startInitialSegmentation(testLasso()).waitForFinished();
    QCOMPARE(reset.count(), 0);
    QVERIFY(early.labels().isNull());
}

// The destructor waits for the run and the edge detector it may leave behind.
void TestInitialSegmentationWorker::deleteRightAfterStop()
{
    for (int i = 0; i < 3; ++i) {
        auto* worker = new PXInitialSegmentationWorker(testPhoto(), QFileInfo());
        worker->startInitialSegmentation(testLasso());
        if (i > 0)
            QThread::msleep(i * 3);
        worker->stop();
        delete worker;
    }
    auto* neverStarted = new PXInitialSegmentationWorker(testPhoto(), QFileInfo());
    delete neverStarted;
}

void TestInitialSegmentationWorker::badInput_data()
{
    QTest::addColumn<QImage>("photo");
    QTest::addColumn<QPainterPath>("lasso");

    const QImage photo = testPhoto();
    QPainterPath outside;
    outside.addRect(QRectF(-500, -400, 100, 80));
    QPainterPath farAway;
    farAway.addRect(QRectF(1e7, 1e7, 50, 50));
    QPainterPath nanLasso;
    nanLasso.moveTo(std::numeric_limits<qreal>::quiet_NaN(), 5);
    nanLasso.lineTo(30, std::numeric_limits<qreal>::quiet_NaN());
    QPainterPath line;
    line.moveTo(50, 50);
    line.lineTo(120, 50);
    QImage indexed = photo.convertToFormat(QImage::Format_Indexed8);

    QTest::newRow("null photo") << QImage() << testLasso();
    QTest::newRow("1x1 photo") << WorkerTestPhoto::photo(1, 1) << testLasso();
    QTest::newRow("3x2 photo") << WorkerTestPhoto::photo(3, 2) << testLasso();
    QTest::newRow("indexed photo") << indexed << testLasso();
    QTest::newRow("empty lasso") << photo << QPainterPath();
    QTest::newRow("lasso outside") << photo << outside;
    QTest::newRow("lasso far away") << photo << farAway;
    QTest::newRow("NaN lasso") << photo << nanLasso;
    QTest::newRow("flat lasso") << photo << line;
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
