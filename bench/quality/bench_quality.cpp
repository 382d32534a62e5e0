// Quality and time of the plain and the refined cut (and of grabCut where
// OpenCV is installed) on composites with a known object: 1200 x 800 ones
// with lassos 5, 15 and 30 px outside the object and one cutting into it,
// then the hard cases with hand-drawn lassos, each followed by a simulated
// user who corrects the cut with paint dots.
//
//   bench_quality                  every case
//   bench_quality --quick          without grabCut's five iterations and the 12 MP hard case
//   bench_quality --case TEXT      only the cases whose name holds TEXT (asks for the 12 MP one too)
//   bench_quality --no-user        without the simulated user
//   bench_quality --save DIR       into DIR each case's photo, lasso (as points and drawn on the
//                                  photo), truth and refined cut
#include "PXHardScenes.h"
#include "PXQualityCutters.h"
#include "PXQualityScenes.h"
#include "PXRefinedCut.h"
#include "PXSimulatedUser.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QPainter>
#include <QTextStream>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

struct Options {
    bool quick = false;
    bool user = true;
    QString only;
    QString saveDirectory;

    bool wants(const QString& name) const { return only.isEmpty() || name.contains(only, Qt::CaseInsensitive); }
};

Options parse(const QStringList& arguments)
{
    Options options;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        if (argument == QLatin1String("--quick"))
            options.quick = true;
        else if (argument == QLatin1String("--no-user"))
            options.user = false;
        else if (argument == QLatin1String("--case") && i + 1 < arguments.size())
            options.only = arguments[++i];
        else if (argument == QLatin1String("--save") && i + 1 < arguments.size())
            options.saveDirectory = arguments[++i];
        else
            std::fprintf(stderr, "ignored: %s\n", qPrintable(argument));
    }
    return options;
}

struct Score {
    double iou = 0.0;
    double boundary = 0.0;
    double milliseconds = 0.0;
    double cpuMilliseconds = 0.0;
};

Score score(const QImage& truth, const PXCutAnswer& answer)
{
    if (answer.selection.isNull())
        return {0.0, 0.0, answer.milliseconds, answer.cpuMilliseconds};
    return {intersectionOverUnion(truth, answer.selection), boundaryF(truth, answer.selection, 2), answer.milliseconds,
        answer.cpuMilliseconds};
}

double cpuMilliseconds()
{
    return 1000.0 * double(std::clock()) / CLOCKS_PER_SEC;
}

QString processorName()
{
    QFile file(QStringLiteral("/proc/cpuinfo"));
    if (file.open(QIODevice::ReadOnly)) {
        QTextStream in(&file);
        for (QString line = in.readLine(); !line.isNull(); line = in.readLine()) {
            if (line.startsWith(QLatin1String("model name")))
                return line.section(QLatin1Char(':'), 1).trimmed();
        }
    }
    return QStringLiteral("unknown");
}

void print(const QString& name, const QList<Score>& scores)
{
    std::printf("%-22s", qPrintable(name));
    for (const Score& s : scores)
        std::printf(" | %5.3f %5.3f %7.1f", s.iou, s.boundary, s.milliseconds);
    std::printf("\n");
    std::fflush(stdout);
}

QList<Score> mean(const QList<QList<Score>>& rows)
{
    QList<Score> mean(rows.first().size());
    for (const QList<Score>& row : rows) {
        for (qsizetype i = 0; i < row.size(); ++i) {
            mean[i].iou += row[i].iou / rows.size();
            mean[i].boundary += row[i].boundary / rows.size();
            mean[i].milliseconds += row[i].milliseconds / rows.size();
            mean[i].cpuMilliseconds += row[i].cpuMilliseconds / rows.size();
        }
    }
    return mean;
}

void printMeans(const QList<QList<Score>>& rows)
{
    const QList<Score> means = mean(rows);
    print(QStringLiteral("mean"), means);
    std::printf("%-22s", "mean processor ms");
    for (const Score& s : means)
        std::printf(" | %19.1f", s.cpuMilliseconds);
    std::printf("\n");
}

void printHeader(bool quick)
{
    std::printf("%-22s | %-19s | %-19s", "case", "plain", "refined");
#ifdef PX_HAVE_OPENCV
    std::printf(" | %-19s | %-19s", "grabCut 1", quick ? "" : "grabCut 5");
#else
    Q_UNUSED(quick);
#endif
    std::printf("\n");
}

// Photo, lasso ("x,y" points, as pxcut reads them), truth and refined cut.
void save(const Options& options, const PXQualityCase& scene, const QImage& refined)
{
    if (options.saveDirectory.isEmpty())
        return;
    QDir().mkpath(options.saveDirectory);
    QString stem = scene.name.toLower();
    stem.replace(QLatin1Char('+'), QLatin1String("plus")).replace(QLatin1Char(' '), QLatin1Char('-'));
    stem = QDir(options.saveDirectory).filePath(stem);
    scene.photo.save(stem + QLatin1String("-photo.png"));
    QImage drawn = scene.photo;
    {
        QPainter painter(&drawn);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(Qt::yellow, 2.0 * std::max(1.0, scene.photo.width() / 1200.0)));
        painter.drawPath(scene.lasso);
    }
    drawn.save(stem + QLatin1String("-lasso.png"));
    scene.truth.save(stem + QLatin1String("-truth.png"));
    if (!refined.isNull())
        refined.save(stem + QLatin1String("-refined.png"));
    QFile file(stem + QLatin1String(".lasso"));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        return;
    QTextStream out(&file);
    const QList<QPolygonF> polygons = scene.lasso.toSubpathPolygons();
    if (polygons.isEmpty())
        return;
    for (const QPointF& point : polygons.first())
        out << point.x() << ',' << point.y() << '\n';
}

// Every method's first cut of @p scene, in the table's order; with @p runs,
// the simulated user then corrects each but grabCut with five iterations.
QList<Score> cutEveryWay(const Options& options, const PXQualityCase& scene, QList<PXUserRun>* runs)
{
    QList<Score> scores;
    PXControllerCutter plain(false);
    PXControllerCutter refined(true);
#ifdef PX_HAVE_OPENCV
    PXGrabCutCutter once(1);
    PXCutter* const cutters[] = {&plain, &refined, &once};
#else
    PXCutter* const cutters[] = {&plain, &refined};
#endif
    for (PXCutter* cutter : cutters) {
        const PXCutAnswer answer = cutter->cut(scene.photo, scene.lasso);
        scores.append(score(scene.truth, answer));
        if (cutter == &refined)
            save(options, scene, answer.selection);
        if (runs)
            runs->append(simulateUser(*cutter, scene.truth, answer.selection));
    }
#ifdef PX_HAVE_OPENCV
    if (!options.quick) {
        PXGrabCutCutter five(5);
        scores.append(score(scene.truth, five.cut(scene.photo, scene.lasso)));
    }
#endif
    return scores;
}

// The first four composites and their lassos, as the table has always had them.
void runFixedScenes(const Options& options)
{
    const QList<PXQualityScene> scenes = qualityScenes(QSize(1200, 800));
    struct Lasso {
        const char* name;
        int distance;
    };
    const Lasso lassos[] = {{"+5", 5}, {"+15", 15}, {"+30", 30}, {"cut in", -1}};

    QList<QList<Score>> rows;
    for (const PXQualityScene& scene : scenes) {
        for (const Lasso& lasso : lassos) {
            const PXQualityCase row {scene.name + QLatin1Char(' ') + QLatin1String(lasso.name), scene.photo,
                scene.truth, lasso.distance < 0 ? lassoCuttingIn(scene) : lassoAround(scene, lasso.distance)};
            if (!options.wants(row.name))
                continue;
            if (rows.isEmpty()) {
                std::printf("Cut quality on 1200 x 800 composites: IoU, boundary F (2 px), ms\n");
                printHeader(options.quick);
            }
            const QList<Score> scores = cutEveryWay(options, row, nullptr);
            print(row.name, scores);
            rows.append(scores);
        }
    }
    if (!rows.isEmpty())
        printMeans(rows);
}

// The refined cut of a 12-megapixel composite, and its refinement stage alone.
void runLargeFixedScene(const Options& options)
{
    if (!options.wants(QStringLiteral("12 MP convex")))
        return;
    const QList<PXQualityScene> large = qualityScenes(QSize(4240, 2832));
    PXControllerCutter refined(true);
    const Score big = score(large.first().truth, refined.cut(large.first().photo, lassoAround(large.first(), 15)));
    std::printf("12 MP convex +15 refined: IoU %.3f, boundary F %.3f, %.0f ms (processor %.0f ms)\n", big.iou,
        big.boundary, big.milliseconds, big.cpuMilliseconds);

    PXRefinedCut refinement;
    refinement.setPhoto(large.first().photo);
    refinement.setLasso(lassoAround(large.first(), 25));
    QElapsedTimer timer;
    timer.start();
    const double cpuStart = cpuMilliseconds();
    PXCutAnswer stage;
    stage.selection = refinement.run();
    stage.milliseconds = timer.nsecsElapsed() / 1e6;
    stage.cpuMilliseconds = cpuMilliseconds() - cpuStart;
    const Score alone = score(large.first().truth, stage);
    std::printf("12 MP refinement stage alone: IoU %.3f, boundary F %.3f, %.0f ms (processor %.0f ms)\n", alone.iou,
        alone.boundary, alone.milliseconds, alone.cpuMilliseconds);
}

struct UserRow {
    QString name;
    QList<PXUserRun> runs; // plain, refined, grabCut 1
};

QString strokes(int count)
{
    return count < 0 ? QStringLiteral(">20") : QString::number(count);
}

// Mean and worst of @p milliseconds, or dashes when no stroke was made.
QString timing(const QList<double>& milliseconds)
{
    if (milliseconds.isEmpty())
        return QStringLiteral("%1 %2").arg(QLatin1Char('-'), 5).arg(QLatin1Char('-'), 5);
    double sum = 0.0;
    double worst = 0.0;
    for (const double ms : milliseconds) {
        sum += ms;
        worst = std::max(worst, ms);
    }
    return QStringLiteral("%1 %2").arg(sum / milliseconds.size(), 5, 'f', 0).arg(worst, 5, 'f', 0);
}

void printUserTable(const QList<UserRow>& rows)
{
    std::printf("\nSimulated user: a paint dot (radius 6 px) at the middle of the largest wrong area, marked as the "
                "truth says, until IoU 0.95;\nstrokes to IoU 0.90 / 0.95 (>20: not within 20), mean and worst ms "
                "from a stroke to its mask\n");
    std::printf("%-22s | %-21s | %-21s", "case", "plain", "refined");
#ifdef PX_HAVE_OPENCV
    std::printf(" | %-21s", "grabCut 1");
#endif
    std::printf("\n");
    const qsizetype methods = rows.first().runs.size();
    QList<double> to90(methods);
    QList<double> to95(methods);
    QList<QList<double>> milliseconds(methods);
    for (const UserRow& row : rows) {
        std::printf("%-22s", qPrintable(row.name));
        for (qsizetype m = 0; m < methods; ++m) {
            const PXUserRun& run = row.runs[m];
            milliseconds[m].append(run.strokeMilliseconds);
            std::printf(" | %3s / %3s %s", qPrintable(strokes(run.strokesTo90)), qPrintable(strokes(run.strokesTo95)),
                qPrintable(timing(run.strokeMilliseconds)));
            // Not reached within 20 counts as 21 in the means.
            to90[m] += (run.strokesTo90 < 0 ? 21 : run.strokesTo90) / double(rows.size());
            to95[m] += (run.strokesTo95 < 0 ? 21 : run.strokesTo95) / double(rows.size());
        }
        std::printf("\n");
        std::fflush(stdout);
    }
    std::printf("%-22s", "mean (>20 as 21)");
    for (qsizetype m = 0; m < methods; ++m)
        std::printf(" | %4.1f/%4.1f %s", to90[m], to95[m], qPrintable(timing(milliseconds[m])));
    std::printf("\n");
}

// The hard cases: first cut by every method, then the simulated user.
void runHardCases(const Options& options)
{
    QList<QList<Score>> rows;
    QList<UserRow> userRows;
    for (const PXHardCaseRecipe& recipe : hardCases()) {
        const bool asked = !options.only.isEmpty() && options.wants(recipe.name);
        if (!options.wants(recipe.name) || (recipe.large && options.quick && !asked))
            continue;
        if (rows.isEmpty()) {
            std::printf("\nHard cases (1200 x 800 unless said; hand-drawn lassos): IoU, boundary F (2 px), ms\n");
            printHeader(options.quick);
        }
        const PXQualityCase scene = recipe.make();
        UserRow user {scene.name, {}};
        const QList<Score> scores = cutEveryWay(options, scene, options.user ? &user.runs : nullptr);
        print(scene.name, scores);
        rows.append(scores);
        userRows.append(user);
    }
    if (rows.isEmpty())
        return;
    printMeans(rows);
    if (options.user)
        printUserTable(userRows);
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const Options options = parse(application.arguments());
    std::printf("Processor: %s\n", qPrintable(processorName()));

    // The first cut of a process pays for thread pools and caches.
    const QList<PXQualityScene> warmUp = qualityScenes(QSize(1200, 800));
    PXControllerCutter(true).cut(warmUp.first().photo, lassoAround(warmUp.first(), 15));

    runFixedScenes(options);
    runLargeFixedScene(options);
    runHardCases(options);
    return 0;
}
