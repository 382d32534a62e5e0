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
    void cutsTheDisc();
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
    QString m_disc;
};

// 160x120: a red disc of radius 30 round (80, 60) on grey.
static QImage discPhoto()
{
    QImage image(160, 120, QImage::Format_RGB32);
    image.fill(qRgb(128, 128, 128));
    QPainter painter(&image);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(220, 30, 30));
    painter.drawEllipse(QPointF(80, 60), 30, 30);
    return image;
}

static const QString discLasso = QStringLiteral("40,15 120,15 125,60 120,105 40,105 35,60");

void TestPXCut::initTestCase()
{
    QVERIFY(QFileInfo(QStringLiteral(PXCUT_PATH)).isExecutable());
}

void TestPXCut::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_disc = path("disc.png");
    QVERIFY(discPhoto().save(m_disc));
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

    const QString disc = QStringLiteral("disc.png");
    QTest::newRow("missing photo") << QStringList { "cut", "nope.png", "--lasso", "1,1 5,1 5,5" } << 1
                                   << "cannot read the photo nope.png: no such file";
    QTest::newRow("unreadable photo") << QStringList { "cut", "garbage.png", "--lasso", "1,1 5,1 5,5" } << 1
                                      << "cannot read the photo garbage.png";
    QTest::newRow("malformed lasso") << QStringList { "cut", disc, "--lasso", "10,10 20;20 30,30" } << 2
                                     << "--lasso: malformed point '20;20' (expected x,y)";
    QTest::newRow("two-point lasso") << QStringList { "cut", disc, "--lasso", "10,10 20,20" } << 1
                                     << "--lasso: a lasso needs at least 3 points, got 2";
    QTest::newRow("lasso outside") << QStringList { "cut", disc, "--lasso", "10,10 170,20 30,30" } << 1
                                   << "point 2 of the lasso (170,20) lies outside the 160x120 photo";
    QTest::newRow("click outside") << QStringList { "cut", disc, "--lasso", discLasso, "--click", "80,120" } << 1
                                   << "--click (80,120) lies outside the 160x120 photo";
    QTest::newRow("paint outside") << QStringList { "cut", disc, "--lasso", discLasso, "--paint", "fg", "3",
        "1,1", "--paint", "bg", "3", "10,10 -1,10" } << 1
                                   << "point 2 of --paint #2 (-1,10) lies outside the 160x120 photo";
    QTest::newRow("no lasso beside the photo") << QStringList { "cut", disc } << 1
                                               << "no lasso: give --lasso or --lasso-file, or put disc.lasso beside";
    QTest::newRow("missing lasso file") << QStringList { "cut", disc, "--lasso-file", "none.lasso" } << 1
                                        << "cannot read the lasso file none.lasso";
    QTest::newRow("malformed lasso file") << QStringList { "cut", disc, "--lasso-file", "bad.lasso" } << 1
                                          << "bad.lasso: malformed point 'x'";
    QTest::newRow("unknown option") << QStringList { "cut", disc, "--colour", "red" } << 2
                                    << "cut: unknown option '--colour'";
    QTest::newRow("no command") << QStringList {} << 2 << "missing command: cut or wire";
    QTest::newRow("seed outside") << QStringList { "wire", disc, "--seed", "5,500", "--to", "5,5" } << 1
                                  << "--seed (5,500) lies outside the 160x120 photo";
    QTest::newRow("to without seed") << QStringList { "wire", disc, "--to", "5,5" } << 2
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

void TestPXCut::cutsTheDisc()
{
    const Run result = run({ "cut", m_disc, "--lasso", discLasso });
    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.out.contains(QStringLiteral("disc.png 160x120 (worked on 160x120): ")), qPrintable(result.out));
    QVERIFY(result.out.contains(QStringLiteral(" regions, object ")));

    const QImage mask = output("mask.png");
    const QImage cutout = output("cutout.png");
    const QImage overlay = output("overlay.png");
    QCOMPARE(mask.size(), QSize(160, 120));
    QCOMPARE(cutout.size(), QSize(160, 120));
    QCOMPARE(overlay.size(), QSize(160, 120));
    // The library's mask: opaque (its default colour, black) outside, clear over the disc.
    QCOMPARE(mask.pixel(80, 60), 0u);
    QCOMPARE(mask.pixel(5, 5), qRgb(0, 0, 0));
    QCOMPARE(cutout.pixel(80, 60), qRgb(220, 30, 30));
    QCOMPARE(qAlpha(cutout.pixel(5, 5)), 0);
    QCOMPARE(overlay.pixel(80, 60), qRgb(220, 30, 30));
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
    QTest::newRow("invert") << QStringList { "--invert" } << QPoint(5, 5) << clear;
    QTest::newRow("mask colour") << QStringList { "--mask-color", "#00ff00" } << QPoint(5, 5) << qRgb(0, 255, 0);
    QTest::newRow("smooth keeps the cut") << QStringList { "--smooth", "3", "--mask-color", "#0000ff" }
                                          << QPoint(80, 60) << clear;
    QTest::newRow("smooth keeps the background") << QStringList { "--smooth", "3", "--mask-color", "#0000ff" }
                                                 << QPoint(20, 20) << qRgb(0, 0, 255);
}

void TestPXCut::refinementSteps()
{
    QFETCH(QStringList, steps);
    QFETCH(QPoint, probe);
    QFETCH(QRgb, expected);

    const Run result = run(QStringList { "cut", m_disc, "--lasso", discLasso } + steps);
    QVERIFY2(result.exitCode == 0, qPrintable(result.err));
    QCOMPARE(output("mask.png").pixel(probe), expected);
}

void TestPXCut::scalesToTheMaximalLength()
{
    QDir().mkpath(path("config/PXImageCutter"));
    QFile settings(path("config/PXImageCutter/pxcut.ini"));
    QVERIFY(settings.open(QIODevice::WriteOnly));
    settings.write("[ImageCutter]\nmaxFotoLength=80\n");
    settings.close();

    const Run result = run({ "cut", m_disc, "--lasso", discLasso, "--click", "80,60", "--click", "80,60" });
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
    const Run result = run({ "wire", m_disc, "--seed", "50,60", "--to", "80,30", "--seed", "80,30", "--to",
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
    QVERIFY(points.size() >= 30); // at least the Chebyshev distance
    // A wire reads from its seed to its target, in 8-connected steps.
    QCOMPARE(points.first().toArray(), QJsonArray({ 50, 60 }));
    QCOMPARE(points.last().toArray(), QJsonArray({ 80, 30 }));
    for (qsizetype i = 1; i < points.size(); ++i) {
        const QJsonArray a = points.at(i - 1).toArray();
        const QJsonArray b = points.at(i).toArray();
        QVERIFY(qAbs(a.at(0).toInt() - b.at(0).toInt()) <= 1 && qAbs(a.at(1).toInt() - b.at(1).toInt()) <= 1);
    }
}

QTEST_GUILESS_MAIN(TestPXCut)
#include "tst_pxcut.moc"
