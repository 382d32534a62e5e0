// Ours against the peers a user would pick instead, timed alternately in the
// same process on the same photo and lasso: OpenCV's SLIC on the same box with
// the same K, grabCut (one iteration, mask from the same lasso) against the
// lasso-to-mask road, and IntelligentScissorsMB (cost map and whole search on
// the 2 x 2-reduced grey photo, same seed) against the scissors' seed until
// every photo pixel is reachable. "speedup" is their time over ours.
#include "PXSuiteScene.h"

#include "PXImage.h"
#include "PXSlic.h"

#include <QFileInfo>
#include <QPainter>

#include <opencv2/imgproc.hpp>
#include <opencv2/imgproc/segmentation.hpp>
#include <opencv2/ximgproc/slic.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace PXSuiteScene;

namespace {

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

void report(benchmark::State& state, const std::vector<double>& ours, const std::vector<double>& theirs)
{
    state.counters["ms"] = median(ours);
    state.counters["peer_ms"] = median(theirs);
    state.counters["speedup"] = median(theirs) / median(ours);
    state.counters["peak_MiB"] = peakResidentMiB();
}

/** The photo as an 8-bit BGR matrix (RGB32 lies B, G, R, A in memory). */
cv::Mat bgr(const QImage& photo)
{
    const cv::Mat bgra(photo.height(), photo.width(), CV_8UC4, const_cast<uchar*>(photo.constBits()),
        size_t(photo.bytesPerLine()));
    cv::Mat result;
    cv::cvtColor(bgra, result, cv::COLOR_BGRA2BGR);
    return result;
}

// Theirs works on the lasso box of the YCbCr working image, with the grid step
// that gives our K, our 10 rounds and a connectivity pass as ours has.
void PeerSlic(benchmark::State& state)
{
    const Scene& input = scene(int(state.range(0)));
    PXImage image(input.photo, QFileInfo());
    PXSlic probe;
    probe.setup(&image, input.lasso);
    const QRect box = probe.lassoBoundingRect();
    const int regionSize = int(std::lround(std::sqrt(double(box.width()) * box.height() / probe.countSuperPixels())));
    const cv::Mat ycbcr = bgr(image.imageYCbCr())(cv::Rect(box.x(), box.y(), box.width(), box.height())).clone();

    std::vector<double> ours;
    std::vector<double> theirs;
    int theirCount = 0;
    for (auto _ : state) {
        auto start = Clock::now();
        {
            PXSlic slic;
            slic.setup(&image, input.lasso);
            slic.run();
        }
        ours.push_back(millisecondsSince(start));
        state.SetIterationTime(ours.back() / 1000);
        start = Clock::now();
        {
            cv::Ptr<cv::ximgproc::SuperpixelSLIC> slic
                = cv::ximgproc::createSuperpixelSLIC(ycbcr, cv::ximgproc::SLIC, regionSize);
            slic->iterate(10);
            slic->enforceLabelConnectivity();
            theirCount = slic->getNumberOfSuperpixels();
        }
        theirs.push_back(millisecondsSince(start));
    }
    report(state, ours, theirs);
    state.counters["K"] = probe.countSuperPixels();
    state.counters["peer_K"] = theirCount;
}
BENCHMARK(PeerSlic)->Apply(photoArguments)->Iterations(5);

// grabCut starts from the lasso: probably object inside, surely background outside.
void PeerGrabCut(benchmark::State& state)
{
    const Scene& input = scene(int(state.range(0)));
    const cv::Mat photo = bgr(input.photo);
    QImage lassoMask(input.photo.size(), QImage::Format_Grayscale8);
    lassoMask.fill(cv::GC_BGD);
    {
        QPainter painter(&lassoMask);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(cv::GC_PR_FGD, cv::GC_PR_FGD, cv::GC_PR_FGD));
        painter.drawPath(input.lasso);
    }
    const cv::Mat initialMask(lassoMask.height(), lassoMask.width(), CV_8UC1, lassoMask.bits(),
        size_t(lassoMask.bytesPerLine()));

    PXImageSegmentation controller;
    controller.setup(input.photo, QFileInfo());
    std::vector<double> ours;
    std::vector<double> theirs;
    for (auto _ : state) {
        auto start = Clock::now();
        requestMask(controller, [&]() { controller.startThreadWithInitialPath(input.lasso); });
        ours.push_back(millisecondsSince(start));
        state.SetIterationTime(ours.back() / 1000);
        controller.wait();

        cv::Mat mask = initialMask.clone();
        cv::Mat background;
        cv::Mat foreground;
        start = Clock::now();
        cv::grabCut(photo, mask, cv::Rect(), background, foreground, 1, cv::GC_INIT_WITH_MASK);
        theirs.push_back(millisecondsSince(start));
    }
    report(state, ours, theirs);
}
BENCHMARK(PeerGrabCut)->ArgName("photo")->Arg(0)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void PeerScissors(benchmark::State& state)
{
    const QImage& photo = scene(int(state.range(0))).photo;
    const QPoint seed(photo.width() / 2, photo.height() / 2);
    cv::Mat grey;
    cv::cvtColor(bgr(photo), grey, cv::COLOR_BGR2GRAY);
    cv::Mat reduced;
    cv::resize(grey, reduced, cv::Size((photo.width() + 1) / 2, (photo.height() + 1) / 2), 0, 0, cv::INTER_AREA);

    std::vector<double> ours;
    std::vector<double> theirs;
    for (auto _ : state) {
        {
            PXIntelligentScissors scissors;
            scissors.setup(photo);
            const auto start = Clock::now();
            scissors.initializeSeed(seed);
            waitUntilPhotoReachable(scissors, photo);
            ours.push_back(millisecondsSince(start));
            state.SetIterationTime(ours.back() / 1000);
            scissors.stopRunning();
        }
        const auto start = Clock::now();
        cv::segmentation::IntelligentScissorsMB tool;
        tool.applyImage(reduced);
        tool.buildMap(cv::Point(seed.x() / 2, seed.y() / 2));
        theirs.push_back(millisecondsSince(start));
    }
    report(state, ours, theirs);
}
BENCHMARK(PeerScissors)->Apply(photoArguments)->Iterations(5);

} // namespace
