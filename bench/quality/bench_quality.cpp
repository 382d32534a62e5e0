// Quality and time of the plain and the refined cut (and of grabCut where
// OpenCV is installed) on 1200 x 800 composites with a known object, for
// lassos 5, 15 and 30 px outside the object and one cutting into it.
//
//   bench_quality            every case
//   bench_quality --quick    without grabCut's five iterations
#include "PXImageSegmentation.h"
#include "PXQualityScenes.h"
#include "PXRefinedCut.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QPainter>
#include <QTimer>

#include <cstdio>
#include <ctime>

#ifdef PX_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

struct Score {
    double iou = 0.0;
    double boundary = 0.0;
    double milliseconds = 0.0;
    // Processor time of the whole process: on a shared, loaded machine a
    // steadier measure of the work than the wall clock.
    double cpuMilliseconds = 0.0;
};

double cpuMilliseconds()
{
    return 1000.0 * double(std::clock()) / CLOCKS_PER_SEC;
}

QImage selectionOfMask(const QImage& mask)
{
    QImage selection(mask.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < mask.height(); ++y) {
        const auto* in = reinterpret_cast<const QRgb*>(mask.constScanLine(y));
        uchar* out = selection.scanLine(y);
        for (int x = 0; x < mask.width(); ++x)
            out[x] = qAlpha(in[x]) == 0 ? 255 : 0;
    }
    return selection;
}

// Lasso to first mask through the controller, as a host sees it.
QImage cut(const QImage& photo, const QPainterPath& lasso, bool refined, double* milliseconds, double* cpu)
{
    PXImageSegmentation controller;
    controller.setRefinedCut(refined);
    controller.setup(photo, QFileInfo());
    QImage result;
    QEventLoop loop;
    QObject::connect(&controller, &PXImageSegmentation::sendNewMask, &loop,
        [&](const QImage& mask) {
            if (!mask.isNull()) {
                result = mask;
                loop.quit();
            }
        },
        Qt::QueuedConnection);
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    QElapsedTimer timer;
    timer.start();
    const double cpuStart = cpuMilliseconds();
    controller.startThreadWithInitialPath(lasso);
    loop.exec();
    *milliseconds = timer.nsecsElapsed() / 1e6;
    *cpu = cpuMilliseconds() - cpuStart;
    return result.isNull() ? QImage() : selectionOfMask(result);
}

Score score(const PXQualityScene& scene, const QImage& selection, double milliseconds, double cpu)
{
    if (selection.isNull())
        return {0.0, 0.0, milliseconds, cpu};
    return {intersectionOverUnion(scene.truth, selection), boundaryF(scene.truth, selection, 2), milliseconds, cpu};
}

#ifdef PX_HAVE_OPENCV
Score grabCut(const PXQualityScene& scene, const QPainterPath& lasso, int iterations)
{
    const QImage& photo = scene.photo;
    cv::Mat bgra(photo.height(), photo.width(), CV_8UC4, const_cast<uchar*>(photo.constBits()),
        size_t(photo.bytesPerLine()));
    cv::Mat bgr;
    cv::cvtColor(bgra, bgr, cv::COLOR_BGRA2BGR);
    QImage inside(photo.size(), QImage::Format_Grayscale8);
    inside.fill(0);
    {
        QPainter painter(&inside);
        painter.fillPath(lasso, Qt::white);
    }
    cv::Mat mask(photo.height(), photo.width(), CV_8UC1);
    for (int y = 0; y < photo.height(); ++y) {
        const uchar* in = inside.constScanLine(y);
        for (int x = 0; x < photo.width(); ++x)
            mask.at<uchar>(y, x) = in[x] ? cv::GC_PR_FGD : cv::GC_BGD;
    }
    cv::Mat backgroundModel;
    cv::Mat objectModel;
    QElapsedTimer timer;
    timer.start();
    const double cpuStart = cpuMilliseconds();
    cv::grabCut(bgr, mask, cv::Rect(), backgroundModel, objectModel, iterations, cv::GC_INIT_WITH_MASK);
    const double milliseconds = timer.nsecsElapsed() / 1e6;
    const double cpu = cpuMilliseconds() - cpuStart;
    QImage selection(photo.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < photo.height(); ++y) {
        uchar* out = selection.scanLine(y);
        for (int x = 0; x < photo.width(); ++x) {
            const uchar value = mask.at<uchar>(y, x);
            out[x] = value == cv::GC_FGD || value == cv::GC_PR_FGD ? 255 : 0;
        }
    }
    return score(scene, selection, milliseconds, cpu);
}
#endif

void print(const char* name, const QList<Score>& scores)
{
    std::printf("%-22s", name);
    for (const Score& s : scores)
        std::printf(" | %5.3f %5.3f %7.1f", s.iou, s.boundary, s.milliseconds);
    std::printf("\n");
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const bool quick = application.arguments().contains(QStringLiteral("--quick"));

    const QList<PXQualityScene> scenes = qualityScenes(QSize(1200, 800));
    struct Lasso {
        const char* name;
        int distance;
    };
    const Lasso lassos[] = {{"+5", 5}, {"+15", 15}, {"+30", 30}, {"cut in", -1}};

    std::printf("Cut quality on 1200 x 800 composites: IoU, boundary F (2 px), ms\n");
    std::printf("%-22s | %-19s | %-19s", "case", "plain", "refined");
#ifdef PX_HAVE_OPENCV
    std::printf(" | %-19s | %-19s", "grabCut 1", quick ? "" : "grabCut 5");
#endif
    std::printf("\n");

    double warmUp = 0.0;
    cut(scenes.first().photo, lassoAround(scenes.first(), 15), true, &warmUp, &warmUp);

    QList<QList<Score>> rows;
    for (const PXQualityScene& scene : scenes) {
        for (const Lasso& lasso : lassos) {
            const QPainterPath path = lasso.distance < 0 ? lassoCuttingIn(scene) : lassoAround(scene, lasso.distance);
            QList<Score> row;
            double ms = 0.0;
            double cpu = 0.0;
            QImage selection = cut(scene.photo, path, false, &ms, &cpu);
            row.append(score(scene, selection, ms, cpu));
            selection = cut(scene.photo, path, true, &ms, &cpu);
            row.append(score(scene, selection, ms, cpu));
#ifdef PX_HAVE_OPENCV
            row.append(grabCut(scene, path, 1));
            if (!quick)
                row.append(grabCut(scene, path, 5));
#endif
            const QByteArray name = (scene.name + QLatin1Char(' ') + QLatin1String(lasso.name)).toLatin1();
            print(name.constData(), row);
            std::fflush(stdout);
            rows.append(row);
        }
    }
    QList<Score> mean(rows.first().size());
    for (const QList<Score>& row : rows) {
        for (int i = 0; i < row.size(); ++i) {
            mean[i].iou += row[i].iou / rows.size();
            mean[i].boundary += row[i].boundary / rows.size();
            mean[i].milliseconds += row[i].milliseconds / rows.size();
            mean[i].cpuMilliseconds += row[i].cpuMilliseconds / rows.size();
        }
    }
    print("mean", mean);
    std::printf("%-22s", "mean processor ms");
    for (const Score& s : mean)
        std::printf(" | %19.1f", s.cpuMilliseconds);
    std::printf("\n");

    // A 12-megapixel photo, lasso 15 px out, refined only.
    const QList<PXQualityScene> large = qualityScenes(QSize(4240, 2832));
    double ms = 0.0;
    double cpu = 0.0;
    const QImage selection = cut(large.first().photo, lassoAround(large.first(), 15), true, &ms, &cpu);
    const Score big = score(large.first(), selection, ms, cpu);
    std::printf("12 MP convex +15 refined: IoU %.3f, boundary F %.3f, %.0f ms (processor %.0f ms)\n", big.iou,
        big.boundary, big.milliseconds, big.cpuMilliseconds);

    // The refinement stage alone, without regions to start from.
    PXRefinedCut refinement;
    refinement.setPhoto(large.first().photo);
    refinement.setLasso(lassoAround(large.first(), 25));
    QElapsedTimer timer;
    timer.start();
    const double cpuStart = cpuMilliseconds();
    const QImage refined = refinement.run();
    const double stageMs = timer.nsecsElapsed() / 1e6;
    const double stageCpu = cpuMilliseconds() - cpuStart;
    const Score stage = score(large.first(), refined, stageMs, stageCpu);
    std::printf("12 MP refinement stage alone: IoU %.3f, boundary F %.3f, %.0f ms (processor %.0f ms)\n", stage.iou,
        stage.boundary, stage.milliseconds, stage.cpuMilliseconds);
    return 0;
}
