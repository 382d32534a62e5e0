#include "PXHostTestPhotos.h"
#include "PXPointList.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

// pxcut as people run it: a separate process, its exit status, its messages
// and the files it leaves behind.
class TestPXCut : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void badInputWritesNothing_data();
    void badInputWritesNothing();
    void cutsTheTiles();
    void refinementSteps_data();
    void refinementSteps();
    void scalesToTheMaximalLength();
    void shippedPhotoByDefault();
    void tracesWires();

private:
    struct Run {
        int exitCode = -1;
        QString out;
        QString err;
    };
    Run run(const QStringList& arguments);
    QString path(const QString& name) const { return m_dir->filePath(name); }
    QImage output(const QString& name) const { return QImage(QDir(path("out")).filePath(name)); }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_tiles;
};

static QString lassoText()
{
    QStringList points;
    for (const QPointF& p : tilesLasso())
        points.append(PXPointList::format(p));
    return points.join(QLatin1Char(' '));
}

void TestPXCut::initTestCase()
{
    QVERIFY(QFileInfo(QStringLiteral(PXCUT_PATH)).isExecutable());
}

void TestPXCut::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_tiles = path("tiles.png");
    QVERIFY(tilesPhoto().save(m_tiles));
}

TestPXCut::Run TestPXCut::run(const QStringList& arguments)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // No display and no platform chosen: pxcut must fall back to offscreen on its own.
    for (const char* name : { "QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY" })
        environment.remove(QString::fromLatin1(name));
    // Settings come from a store of the test's own.
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), path("config"));
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(m_dir->path());
    process.start(QStringLiteral(PXCUT_PATH), arguments);
    Run result;
    if (!process.waitForFinished(50000)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2;
    result.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    result.err = QString::fromLocal8Bit(process.readAllStandardError());
    return result;
}

void TestPXCut::badInputWritesNothing_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");

    const QString tiles = QStringLiteral("tiles.png");
    QTest::newRow("missing photo") << QStringList { "cut", "nope.png", "--lasso", "1,1 5,1 5,5" } << 1
                                   << "cannot read the photo nope.png: no such file";
    QTest::newRow("unreadable photo") << QStringList { "cut", "garbage.png", "--lasso", "1,1 5,1 5,5" } << 1
                                      << "cannot read the photo garbage.png";
    QTest::newRow("malformed lasso") << QStringList { "cut", tiles, "--lasso", "10,10 20;20 30,30" } << 2
                                     << "--lasso: malformed point '20;20' (expected x,y)";
    QTest::newRow("two-point lasso") << QStringList { "cut", tiles, "--lasso", "10,10 20,20" } << 1
                                     << "--lasso: a lasso needs at least 3 points, got 2";
    QTest::newRow("lasso outside") << QStringList { "cut", tiles, "--lasso", "10,10 170,20 30,30" } << 1
                                   << "point 2 of the lasso (170,20) lies outside the 160x120 photo";
    QTest::newRow("click outside") << QStringList { "cut", tiles, "--lasso", lassoText(), "--click", "80,120" } << 1
                                   << "--click (80,120) lies outside the 160x120 photo";
    QTest::newRow("paint outside") << QStringList { "cut", tiles, "--lasso", lassoText(), "--paint", "fg", "3",
        "1,1", "--paint", "bg", "3", "10,10 -1,10" } << 1
                                   << "point 2 of --paint #2 (-1,10) lies outside the 160x120 photo";
    QTest::newRow("no lasso beside the photo") << QStringList { "cut", tiles } << 1
                                               << "no lasso: give --lasso or --lasso-file, or put tiles.lasso beside";
    QTest::newRow("missing lasso file") << QStringList { "cut", tiles, "--lasso-file", "none.lasso" } << 1
                                        << "cannot read the lasso file none.lasso";
    QTest::newRow("malformed lasso file") << QStringList { "cut", tiles, "--lasso-file", "bad.lasso" } << 1
                                          << "bad.lasso: malformed point 'x'";
    QTest::newRow("unknown option") << QStringList { "cut", tiles, "--colour", "red" } << 2
                                    << "cut: unknown option '--colour'";
    QTest::newRow("no command") << QStringList {} << 2 << "missing command: cut or wire";
    QTest::newRow("seed outside") << QStringList { "wire", tiles, "--seed", "5,500", "--to", "5,5" } << 1
                                  << "--seed (5,500) lies outside the 160x120 photo";
    QTest::newRow("to without seed") << QStringList { "wire", tiles, "--to", "5,5" } << 2
                                     << "--to 5,5 has no --seed before it";
}

void TestPXCut::badInputWritesNothing()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, message);

    QFile garbage(path("garbage.png"));
    QVERIFY(garbage.open(QIODevice::WriteOnly));
    garbage.write("not a picture at all");
    garbage.close();
    QFile badLasso(path("bad.lasso"));
    QVERIFY(badLasso.open(QIODevice::WriteOnly));
    badLasso.write("1,1 2,2\nx 3,3\n");
    badLasso.close();

    const Run result = run(arguments);
    QCOMPARE(result.exitCode, exitCode);
    QVERIFY2(result.err.contains(QStringLiteral("pxcut: ") + message), qPrintable(result.err));
    QVERIFY(result.out.isEmpty());
    QVERIFY(!QFileInfo::exists(path("out")));
}

void TestPXCut::cutsTheTiles()
{
    const Run result = run({ "cut", m_tiles, "--lasso", lassoText() });
    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.out.contains(QStringLiteral("tiles.png 160x120 (worked on 160x120): ")), qPrintable(result.out));
    QVERIFY(result.out.contains(QStringLiteral(" regions, object ")));

    const QImage mask = output("mask.png");
    const QImage cutout = output("cutout.png");
    const QImage overlay = output("overlay.png");
    QCOMPARE(mask.size(), QSize(160, 120));
    QCOMPARE(cutout.size(), QSize(160, 120));
    QCOMPARE(overlay.size(), QSize(160, 120));
    // The library's mask: opaque (its default colour, black) outside, clear over the tiles.
    QCOMPARE(mask.pixel(80, 60), 0u);
    QCOMPARE(mask.pixel(5, 5), qRgb(0, 0, 0));
    QCOMPARE(cutout.pixel(80, 60), tilesCentre());
    QCOMPARE(qAlpha(cutout.pixel(5, 5)), 0);
    QCOMPARE(overlay.pixel(80, 60), tilesCentre());
    QCOMPARE(overlay.pixel(5, 5), qRgb(64, 64, 64)); // grey under half-opaque black
}

void TestPXCut::refinementSteps_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QPoint>("probe");
    QTest::addColumn<QRgb>("expected");

    const QRgb clear = 0;
    const QRgb black = qRgb(0, 0, 0);
    QTest::newRow("click toggles the centre out") << QStringList { "--click", "80,60" } << QPoint(80, 60) << black;
    QTest::newRow("paint background") << QStringList { "--paint", "bg", "4", "70,60 90,60" } << QPoint(80, 60)
                                      << black;
    QTest::newRow("scribble object outside") << QStringList { "--scribble", "fg", "5", "10,10 20,10" }
                                             << QPoint(15, 10) << clear;
    QTest::newRow("scribble background inside") << QStringList { "--scribble", "bg", "3", "80,60" }
                                                << QPoint(80, 60) << black;
    QTest::newRow("invert") << QStringList { "--invert" } << QPoint(5, 5) << clear;
    QTest::newRow("mask colour") << QStringList { "--mask-color", "#00ff00" } << QPoint(5, 5) << qRgb(0, 255, 0);
    QTest::newRow("smooth keeps the cut") << QStringList { "--smooth", "3", "--mask-color", "#0000ff" }
                                          << QPoint(80, 60) << clear;
    QTest::newRow("smooth keeps the background") << QStringList { "--smooth", "3", "--mask-color", "#0000ff" }
                                                 << QPoint(20, 20) << qRgb(0, 0, 255);
    QTest::newRow("refined cut") << QStringList { "--refine", "--compare" } << QPoint(80, 60) << clear;
}

void TestPXCut::refinementSteps()
{
    QFETCH(QStringList, steps);
    QFETCH(QPoint, probe);
    QFETCH(QRgb, expected);

    const Run result = run(QStringList { "cut", m_tiles, "--lasso", lassoText() } + steps);
    QVERIFY2(result.exitCode == 0, qPrintable(result.err));
    QCOMPARE(output("mask.png").pixel(probe), expected);
    if (steps.contains(QStringLiteral("--compare")))
        QCOMPARE(output("compare.png").width(), 2 * output("mask.png").width());
}

void TestPXCut::scalesToTheMaximalLength()
{
    QDir().mkpath(path("config/PXImageCutter"));
    QFile settings(path("config/PXImageCutter/pxcut.ini"));
    QVERIFY(settings.open(QIODevice::WriteOnly));
    settings.write("[ImageCutter]\nmaxFotoLength=80\n");
    settings.close();

    const Run result = run({ "cut", m_tiles, "--lasso", lassoText(), "--click", "80,60", "--click", "80,60" });
    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.out.contains(QStringLiteral("(worked on 80x60)")), qPrintable(result.out));
    const QImage mask = output("mask.png");
    QCOMPARE(mask.size(), QSize(160, 120));
    QCOMPARE(qAlpha(mask.pixel(80, 60)), 0);
    QCOMPARE(qAlpha(mask.pixel(5, 5)), 255);
}

void TestPXCut::shippedPhotoByDefault()
{
    const Run result = run({ "cut" });
    QVERIFY2(result.exitCode == 0, qPrintable(result.err));
    QVERIFY2(result.out.startsWith(QStringLiteral("coffee.png 600x400")), qPrintable(result.out));
    for (const char* name : { "mask.png", "cutout.png", "overlay.png" })
        QCOMPARE(output(QString::fromLatin1(name)).size(), QSize(600, 400));
    // The lasso shipped beside the photo encloses the cup; the corners are table.
    const QImage mask = output("mask.png");
    QCOMPARE(qAlpha(mask.pixel(5, 395)), 255);
    QCOMPARE(qAlpha(mask.pixel(595, 5)), 255);
}

void TestPXCut::tracesWires()
{
    const Run result = run({ "wire", m_tiles, "--seed", "50,60", "--to", "80,30", "--seed", "80,30", "--to",
        "110,60", "--out", "w" });
    QVERIFY2(result.exitCode == 0, qPrintable(result.err));
    QVERIFY(result.out.contains(QStringLiteral("2 wires")));
    QCOMPARE(QImage(path("w/wire.png")).size(), QSize(160, 120));

    QFile file(path("w/wire.json"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QJsonObject document = QJsonDocument::fromJson(file.readAll()).object();
    QCOMPARE(document.value("width").toInt(), 160);
    const QJsonArray wires = document.value("wires").toArray();
    QCOMPARE(wires.size(), 2);
    const QJsonArray points = wires.at(0).toObject().value("points").toArray();
    // The scissors search on a half-size copy: a wire reads from its seed to
    // its target through the centres of 2x2 blocks, one block per step.
    QVERIFY(points.size() >= 15);
    auto within = [](const QJsonArray& point, int x, int y, int distance) {
        return qAbs(point.at(0).toInt() - x) <= distance && qAbs(point.at(1).toInt() - y) <= distance;
    };
    QVERIFY(within(points.first().toArray(), 50, 60, 1));
    QVERIFY(within(points.last().toArray(), 80, 30, 1));
    for (qsizetype i = 1; i < points.size(); ++i) {
        const QJsonArray a = points.at(i - 1).toArray();
        QVERIFY(within(points.at(i).toArray(), a.at(0).toInt(), a.at(1).toInt(), 2));
    }
}

QTEST_GUILESS_MAIN(TestPXCut)
#include "tst_pxcut.moc"
