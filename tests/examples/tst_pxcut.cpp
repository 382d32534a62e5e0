#include "PXHostTestPhotos.h"
#include "PXPointList.h"

#include <PXImageSegmentation.h>
#include <PXSettings.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
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
    void matteSoftensTheCutOut();
    void refinementSteps_data();
    void refinementSteps();
    void cutModes();
    void plainPaintStaysInsideTheLasso_data();
    void plainPaintStaysInsideTheLasso();
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

    QTemporaryDir m_settings;
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
    // The library run here for comparison reads a settings store of its own.
    QVERIFY(m_settings.isValid());
    PXSettings::setStorageFile(m_settings.filePath(QStringLiteral("settings.ini")));
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
    if (!process.waitForFinished(50000))
        return result;
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
    QTest::newRow("two-point lasso") << QStringList { "cut", tiles, "--lasso", "10,10 20,20" } << 1
                                     << "--lasso: a lasso needs at least 3 points, got 2";
    QTest::newRow("lasso outside") << QStringList { "cut", tiles, "--lasso", "10,10 170,20 30,30" } << 1
                                   << "point 2 of the lasso (170,20) lies outside the 160x120 photo";
    QTest::newRow("no lasso beside the photo") << QStringList { "cut", tiles } << 1
                                               << "no lasso: give --lasso or --lasso-file, or put tiles.lasso beside";
    QTest::newRow("malformed lasso file") << QStringList { "cut", tiles, "--lasso-file", "bad.lasso" } << 1
                                          << "bad.lasso: malformed point 'x'";
    QTest::newRow("output folder under a file") << QStringList { "cut", tiles, "--lasso", lassoText(), "--out",
        "tiles.png/out" } << 1 << "cannot write into tiles.png/out: ";
    QTest::newRow("saved mask without regions") << QStringList { "cut", tiles, "--mask-in", tiles, "--click", "80,60" }
                                                << 1 << "--click needs the regions of a cut";
    QTest::newRow("to without seed") << QStringList { "wire", tiles, "--to", "5,5" } << 2
                                     << "--to 5,5 has no --seed before it";
}

void TestPXCut::badInputWritesNothing()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, message);

    QFile badLasso(path("bad.lasso"));
    QVERIFY(badLasso.open(QIODevice::WriteOnly) && badLasso.write("1,1 2,2\nx 3,3\n") > 0);
    badLasso.close();

    const Run result = run(arguments);
    QCOMPARE(result.exitCode, exitCode);
    QVERIFY2(result.err.contains(QStringLiteral("pxcut: ") + message), qPrintable(result.err));
    QVERIFY(result.out.isEmpty());
    QVERIFY2(!result.err.contains(QStringLiteral("cutting")), "refused only after the work");
    QVERIFY(!QFileInfo::exists(path("out")));
}

void TestPXCut::cutsTheTiles()
{
    const Run result = run({ "cut", m_tiles, "--lasso", lassoText(), "--feather", "6", "--json" });
    QCOMPARE(result.exitCode, 0);
    const QJsonObject summary = QJsonDocument::fromJson(result.out.toUtf8()).object();
    QVERIFY(summary.value("objectFraction").toDouble() > 0.05);
    QCOMPARE(summary.value("files").toArray().size(), 3);

    const QImage mask = output("mask.png");
    const QImage cutout = output("cutout.png");
    const QImage overlay = output("overlay.png");
    // The library's mask: opaque (its default colour, black) outside, clear over the tiles.
    QCOMPARE(mask.pixel(80, 60), 0u);
    QCOMPARE(mask.pixel(5, 5), qRgb(0, 0, 0));
    QCOMPARE(cutout.pixel(80, 60), tilesCentre());
    QCOMPARE(qAlpha(cutout.pixel(5, 5)), 0);
    QCOMPARE(overlay.pixel(80, 60), tilesCentre());
    QCOMPARE(overlay.pixel(5, 5), qRgb(64, 64, 64)); // grey under half-opaque black

    // The feather softens the cut-out across the mask's edge, which stays hard.
    int edge = 80;
    while (edge > 0 && qAlpha(mask.pixel(edge, 60)) == 0)
        --edge;
    QCOMPARE(qAlpha(mask.pixel(edge, 60)), 255);
    for (int x : { edge, edge + 1 })
        QVERIFY2(qAlpha(cutout.pixel(x, 60)) > 0 && qAlpha(cutout.pixel(x, 60)) < 255, qPrintable(QString::number(x)));
    QCOMPARE(qAlpha(cutout.pixel(edge - 4, 60)), 0);
    QCOMPARE(qAlpha(cutout.pixel(edge + 5, 60)), 255);
}

void TestPXCut::matteSoftensTheCutOut()
{
    QCOMPARE(run({ "cut", m_tiles, "--lasso", lassoText(), "--matte", "--feather", "2" }).exitCode, 2);
    const Run result = run({ "cut", m_tiles, "--lasso", lassoText(), "--matte", "--json" });
    QCOMPARE(result.exitCode, 0);
    const QJsonObject summary = QJsonDocument::fromJson(result.out.toUtf8()).object();
    QCOMPARE(summary.value("files").toArray().size(), 4);
    QVERIFY(summary.value("matteSeconds").toDouble() >= 0);
    const QImage matte = output("matte.png");
    const QImage cutout = output("cutout.png");
    QVERIFY(matte.isGrayscale());
    QCOMPARE(matte.size(), cutout.size());
    QCOMPARE(qGray(matte.pixel(80, 60)), 255);
    QCOMPARE(qGray(matte.pixel(5, 5)), 0);
    for (int x = 0; x < cutout.width(); x += 7)
        QCOMPARE(qAlpha(cutout.pixel(x, 60)), qGray(matte.pixel(x, 60)));
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
    // The plain cut paints a scribble's pixels as they are; the refined cut
    // never takes in pixels outside the lasso.
    QTest::newRow("plain scribble object outside") << QStringList { "--plain", "--scribble", "fg", "5", "10,10 20,10" }
                                                   << QPoint(15, 10) << clear;
    QTest::newRow("refined scribble object outside") << QStringList { "--scribble", "fg", "5", "10,10 20,10" }
                                                     << QPoint(15, 10) << black;
    QTest::newRow("invert") << QStringList { "--invert" } << QPoint(5, 5) << clear;
    QTest::newRow("mask colour") << QStringList { "--mask-color", "#00ff00" } << QPoint(5, 5) << qRgb(0, 255, 0);
    QTest::newRow("smooth leaves the border alone") << QStringList { "--smooth", "10", "--mask-color", "#0000ff" }
                                                    << QPoint(0, 0) << qRgb(0, 0, 255);
    QTest::newRow("refined cut, compared") << QStringList { "--refine", "--compare" } << QPoint(80, 60) << clear;
    QTest::newRow("plain cut, compared") << QStringList { "--plain", "--compare" } << QPoint(80, 60) << clear;
}

void TestPXCut::refinementSteps()
{
    QFETCH(QStringList, steps);
    QFETCH(QPoint, probe);
    QFETCH(QRgb, expected);

    const Run result = run(QStringList { "cut", m_tiles, "--lasso", lassoText() } + steps);
    QVERIFY2(result.exitCode == 0, qPrintable(result.err));
    QCOMPARE(output("mask.png").pixel(probe), expected);
    if (steps.contains(QStringLiteral("--compare"))) {
        // Plain on the left, refined on the right, under a caption band: the
        // object shows as the photo, what is cut away as the checkerboard.
        const QImage compare = output("compare.png");
        const int band = compare.height() - 120;
        QVERIFY(band > 0 && compare.width() > 2 * 160);
        for (int left : { 0, int(compare.width()) - 160 }) {
            QCOMPARE(compare.pixel(left + 80, band + 60), tilesCentre());
            const QRgb board[] = { compare.pixel(left + 1, band + 1), compare.pixel(left + 1 + 8, band + 1) };
            QVERIFY(board[0] != board[1] && qRed(board[0]) == qGreen(board[0]) && qRed(board[1]) == qBlue(board[1]));
        }
    }
}

// Without a flag the cut is the refined one; --plain gives the library's own default.
void TestPXCut::cutModes()
{
    PXImageSegmentation library;
    library.setup(tilesPhoto(), QFileInfo(m_tiles));
    QSignalSpy masks(&library, &PXImageSegmentation::sendNewMask);
    library.startThreadWithInitialPath(PXPointList::closedPolygon(tilesLasso()));
    QVERIFY(QTest::qWaitFor([&] { return !masks.isEmpty() && !masks.last().first().value<QImage>().isNull(); }, 20000));
    library.wait();
    const QImage libraryMask = library.maskForeground().convertToFormat(QImage::Format_ARGB32);

    for (const QString& mode : { QStringLiteral("refined"), QStringLiteral("plain") }) {
        QStringList arguments { "cut", m_tiles, "--lasso", lassoText(), "--json" };
        if (mode == QLatin1String("plain"))
            arguments.append(QStringLiteral("--plain"));
        const Run result = run(arguments);
        QVERIFY2(result.exitCode == 0, qPrintable(result.err));
        QCOMPARE(QJsonDocument::fromJson(result.out.toUtf8()).object().value("cut").toString(), mode);
        if (mode == QLatin1String("plain"))
            QCOMPARE(output("mask.png").convertToFormat(QImage::Format_ARGB32), libraryMask);
    }
}

void TestPXCut::plainPaintStaysInsideTheLasso_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<bool>("ignored");
    QTest::addColumn<QPoint>("probe");

    // The lasso's left edge runs at x 35 to 40; the stroke crosses it.
    QTest::newRow("across the lasso") << QStringList { "--paint", "fg", "4", "45,60 25,60" } << true
                                      << QPoint(5, 5);
    QTest::newRow("brush touches the outside") << QStringList { "--paint", "fg", "6", "44,60" } << true
                                               << QPoint(5, 5);
    QTest::newRow("inside a region") << QStringList { "--click", "80,60", "--paint", "fg", "3", "80,60" } << false
                                     << QPoint(80, 60);
}

// In the plain cut a paint stroke into the object that touches the region
// outside the lasso would select all of it; pxcut leaves such a stroke out.
void TestPXCut::plainPaintStaysInsideTheLasso()
{
    QFETCH(QStringList, steps);
    QFETCH(bool, ignored);
    QFETCH(QPoint, probe);

    const QStringList cut { "cut", m_tiles, "--lasso", lassoText(), "--plain", "--json" };
    const Run before = run(cut);
    QCOMPARE(before.exitCode, 0);
    const double share = QJsonDocument::fromJson(before.out.toUtf8()).object().value("objectFraction").toDouble();
    const Run result = run(cut + steps);
    QVERIFY2(result.exitCode == 0, qPrintable(result.err));
    const QJsonObject summary = QJsonDocument::fromJson(result.out.toUtf8()).object();
    QCOMPARE(result.err.contains(QStringLiteral("reaches outside the lasso; ignored")), ignored);
    QCOMPARE(summary.value("warnings").toArray().size(), ignored ? 1 : 0);
    if (ignored)
        QCOMPARE(summary.value("objectFraction").toDouble(), share);
    QCOMPARE(qAlpha(output("mask.png").pixel(probe)), ignored ? 255 : 0);
}

void TestPXCut::scalesToTheMaximalLength()
{
    QVERIFY(QDir().mkpath(path("config/PXImageCutter")));
    QFile settings(path("config/PXImageCutter/pxcut.ini"));
    QVERIFY(settings.open(QIODevice::WriteOnly) && settings.write("[ImageCutter]\nmaxFotoLength=80\n") > 0);
    settings.close();

    const Run result = run({ "cut", m_tiles, "--lasso", lassoText(), "--click", "80,60", "--click", "80,60" });
    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.out.contains(QStringLiteral("(worked on 80x60)")), qPrintable(result.out));
    QCOMPARE(output("mask.png").size(), QSize(160, 120));
    QCOMPARE(qAlpha(output("mask.png").pixel(80, 60)), 0);
}

void TestPXCut::shippedPhotoByDefault()
{
    const Run result = run({ "cut" });
    QVERIFY2(result.exitCode == 0, qPrintable(result.err));
    QVERIFY2(result.out.startsWith(QStringLiteral("coffee.png 600x400")), qPrintable(result.out));
    for (const char* name : { "mask.png", "cutout.png", "overlay.png" })
        QCOMPARE(output(QString::fromLatin1(name)).size(), QSize(600, 400));
    // The lasso shipped beside the photo encloses the cup; the corner is table.
    QCOMPARE(qAlpha(output("mask.png").pixel(5, 395)), 255);
    // The cup's shaded inner wall, which the regions left out, is cup.
    QCOMPARE(qAlpha(output("mask.png").pixel(270, 99)), 0);
}

void TestPXCut::tracesWires()
{
    // Odd sizes: the search's half-size grid reaches a pixel past the photo.
    QVERIFY(tilesPhoto().copy(0, 0, 159, 119).save(path("odd.png")));
    const Run result = run({ "wire", "odd.png", "--seed", "50,60", "--to", "80,30", "--seed", "80,30", "--to",
        "158,118", "--out", "w" });
    QVERIFY2(result.exitCode == 0, qPrintable(result.err));
    QCOMPARE(QImage(path("w/wire.png")).size(), QSize(159, 119));

    QFile file(path("w/wire.json"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QJsonArray wires = QJsonDocument::fromJson(file.readAll()).object().value("wires").toArray();
    QCOMPARE(wires.size(), 2);
    const QList<QPoint> ends { { 50, 60 }, { 80, 30 }, { 80, 30 }, { 158, 118 } };
    for (int w = 0; w < 2; ++w) {
        QList<QPoint> trace;
        for (const QJsonValue& point : wires.at(w).toObject().value("points").toArray())
            trace.append(QPoint(point.toArray().at(0).toInt(), point.toArray().at(1).toInt()));
        // Exactly from the clicked seed to the clicked target, inside the photo, in steps of a search cell.
        QCOMPARE(trace.first(), ends.at(2 * w));
        QCOMPARE(trace.last(), ends.at(2 * w + 1));
        for (qsizetype i = 1; i < trace.size(); ++i)
            QVERIFY(QRect(0, 0, 159, 119).contains(trace[i]) && (trace[i] - trace[i - 1]).manhattanLength() <= 4);
    }
}

QTEST_GUILESS_MAIN(TestPXCut)
#include "tst_pxcut.moc"
