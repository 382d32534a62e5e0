// The same photo and lassos give the same bytes whatever the core count, the
// hash seed or how often they run in one process: region labels and
// neighbours, the final masks and the live wires. Child processes (this
// program with --digest) carry the environment variations.

#include "GoldenDigest.h"
#include "PXInitialSegmentationWorker.h"
#include "PXIntelligentScissors.h"
#include "SegmentationTestSupport.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QProcess>
#include <QtTest>

#include <cmath>
#include <cstdio>

namespace {

// Runs the event loop until @p done; false after a minute.
template <typename Condition>
bool waitFor(Condition done)
{
    const QDeadlineTimer deadline(60000);
    while (!done() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    return done();
}

// A polygon, and one with enough points to be grown on a raster.
QList<QPainterPath> lassos()
{
    QPolygonF wobbly;
    for (int i = 0; i < 300; ++i) {
        const double angle = 2 * M_PI * i / 300;
        const double radius = 140 + 5 * std::sin(37 * angle);
        wobbly << QPointF(290 + 1.4 * radius * std::cos(angle), 200 + radius * std::sin(angle));
    }
    QList<QPainterPath> paths(2);
    paths[0].addPolygon(QPolygonF({{62, 220}, {160, 68}, {330, 2}, {462, 105}, {478, 318}, {250, 399}}));
    paths[1].addPolygon(wobbly);
    return paths;
}

QByteArray digestOfEverything()
{
    const QImage photo(QStringLiteral(PX_PHOTOS_DIR "/coffee.png"));
    GoldenDigest digest;
    for (const QPainterPath& lasso : lassos()) {
        PXInitialSegmentationWorker worker(photo, QFileInfo());
        worker.startInitialSegmentation(lasso).waitForFinished();
        digest << worker.labels() << worker.neighbours();
        Host host;
        host.controller.setup(photo, QFileInfo());
        host.forget();
        host.controller.startThreadWithInitialPath(lasso);
        if (!waitFor([&host] { return host.nonNullMasks() == 1; }))
            return "no mask";
        digest << host.lastMask();
    }
    // The refined cut of the first lasso, a paint stroke that re-solves it
    // and a click.
    Host host;
    host.controller.setRefinedCut(true);
    host.controller.setup(photo, QFileInfo());
    host.forget();
    host.controller.startThreadWithInitialPath(lassos().first());
    if (!waitFor([&host] { return host.nonNullMasks() == 1; }))
        return "no refined mask";
    digest << host.lastMask();
    QPainterPath dot;
    dot.addEllipse(QPointF(300, 120), 6, 6);
    host.controller.startThreadWithPaintSelection(dot, false, false);
    if (!waitFor([&host] { return host.nonNullMasks() == 2; }))
        return "no stroke mask";
    host.controller.startThreadWithClicker(QPointF(200, 250));
    host.controller.wait();
    QThreadPool::globalInstance()->waitForDone();
    digest << host.lastMask() << host.controller.maskForeground();

    PXIntelligentScissors scissors;
    scissors.setup(photo);
    scissors.initializeSeed(QPointF(300, 200));
    for (const QPointF target : {QPointF(20, 20), QPointF(580, 380), QPointF(101, 350)}) {
        if (!waitFor([&] { return scissors.containsWireToPoint(target); }))
            return "no wire";
        digest << scissors.bestWire(target);
    }
    return digest.hex();
}

QByteArray childDigest(const QByteArray& cores, const QByteArray& hashSeed)
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PX_CORE_COUNT", cores);
    environment.insert("QT_HASH_SEED", hashSeed);
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), {"--digest"});
    if (!child.waitForFinished(120000) || child.exitCode() != 0)
        return "child failed";
    return child.readAllStandardOutput().trimmed();
}

} // namespace

class TestDeterminism : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sameBytesEveryWay();
};

void TestDeterminism::sameBytesEveryWay()
{
    const QByteArray here = digestOfEverything();
    QCOMPARE(here.size(), 40);
    QCOMPARE(digestOfEverything(), here);
    QCOMPARE(childDigest("1", "0"), here);
    QCOMPARE(childDigest("2", "1"), here);
    QCOMPARE(childDigest("5", "0"), here);
}

int main(int argc, char** argv)
{
    QApplication application(argc, argv);
    // Child mode: print the digest of one run.
    if (argc > 1 && qstrcmp(argv[1], "--digest") == 0)
        return std::printf("%s\n", digestOfEverything().constData()) > 0 ? 0 : 1;
    TestDeterminism test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_determinism.moc"
