#include "PXQualityCutters.h"

#include "PXImageSegmentation.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QPainter>
#include <QTimer>

#include <ctime>

#ifdef PX_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

double cpuMilliseconds()
{
    return 1000.0 * double(std::clock()) / CLOCKS_PER_SEC;
}

class Stopwatch
{
public:
    Stopwatch()
        : m_cpu(cpuMilliseconds())
    {
        m_wall.start();
    }
    void stop(PXCutAnswer* answer) const
    {
        answer->milliseconds = m_wall.nsecsElapsed() / 1e6;
        answer->cpuMilliseconds = cpuMilliseconds() - m_cpu;
    }

private:
    QElapsedTimer m_wall;
    double m_cpu;
};

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

// Runs @p start and waits for the controller's next mask.
template<typename Start> PXCutAnswer nextMask(PXImageSegmentation& controller, Start start)
{
    QImage result;
    QEventLoop loop;
    const QMetaObject::Connection connection = QObject::connect(&controller, &PXImageSegmentation::sendNewMask, &loop,
        [&](const QImage& mask) {
            if (!mask.isNull() && result.isNull()) {
                result = mask;
                loop.quit();
            }
        },
        Qt::QueuedConnection);
    QTimer::singleShot(120000, &loop, &QEventLoop::quit);
    PXCutAnswer answer;
    const Stopwatch stopwatch;
    start();
    loop.exec();
    stopwatch.stop(&answer);
    QObject::disconnect(connection);
    // The next request must not find the thread just leaving its loop.
    controller.wait();
    if (!result.isNull())
        answer.selection = selectionOfMask(result);
    return answer;
}

} // namespace

PXControllerCutter::PXControllerCutter(bool refined)
    : m_refined(refined)
{
}

PXControllerCutter::~PXControllerCutter() = default;

PXCutAnswer PXControllerCutter::cut(const QImage& photo, const QPainterPath& lasso)
{
    m_controller = std::make_unique<PXImageSegmentation>();
    m_controller->setRefinedCut(m_refined);
    m_controller->setup(photo, QFileInfo());
    return nextMask(*m_controller, [&] { m_controller->startThreadWithInitialPath(lasso); });
}

PXCutAnswer PXControllerCutter::stroke(const QPainterPath& dot, bool object)
{
    if (!m_controller)
        return {};
    return nextMask(*m_controller, [&] { m_controller->startThreadWithPaintSelection(dot, object, false); });
}

#ifdef PX_HAVE_OPENCV
struct PXGrabCutCutter::State {
    cv::Mat photo;
    cv::Mat labels;
    cv::Mat backgroundModel;
    cv::Mat objectModel;
};

namespace {

QImage selectionOfLabels(const cv::Mat& labels)
{
    QImage selection(labels.cols, labels.rows, QImage::Format_Grayscale8);
    for (int y = 0; y < labels.rows; ++y) {
        uchar* out = selection.scanLine(y);
        for (int x = 0; x < labels.cols; ++x) {
            const uchar value = labels.at<uchar>(y, x);
            out[x] = value == cv::GC_FGD || value == cv::GC_PR_FGD ? 255 : 0;
        }
    }
    return selection;
}

// grabCut seeds its mixtures with k-means from the thread's random generator;
// restarted, an answer depends on its input alone, not on the cuts before.
void restartRandom()
{
    cv::theRNG() = cv::RNG();
}

// @p path filled on a grey image of @p size.
QImage filled(const QSize& size, const QPainterPath& path)
{
    QImage inside(size, QImage::Format_Grayscale8);
    inside.fill(0);
    QPainter painter(&inside);
    painter.fillPath(path, Qt::white);
    return inside;
}

} // namespace

PXGrabCutCutter::PXGrabCutCutter(int iterations)
    : m_iterations(iterations)
    , m_state(std::make_unique<State>())
{
}

PXGrabCutCutter::~PXGrabCutCutter() = default;

PXCutAnswer PXGrabCutCutter::cut(const QImage& photo, const QPainterPath& lasso)
{
    cv::Mat bgra(photo.height(), photo.width(), CV_8UC4, const_cast<uchar*>(photo.constBits()),
        size_t(photo.bytesPerLine()));
    cv::cvtColor(bgra, m_state->photo, cv::COLOR_BGRA2BGR);
    const QImage inside = filled(photo.size(), lasso);
    m_state->labels = cv::Mat(photo.height(), photo.width(), CV_8UC1);
    for (int y = 0; y < photo.height(); ++y) {
        const uchar* in = inside.constScanLine(y);
        for (int x = 0; x < photo.width(); ++x)
            m_state->labels.at<uchar>(y, x) = in[x] ? cv::GC_PR_FGD : cv::GC_BGD;
    }
    m_state->backgroundModel = cv::Mat();
    m_state->objectModel = cv::Mat();
    PXCutAnswer answer;
    const Stopwatch stopwatch;
    restartRandom();
    cv::grabCut(m_state->photo, m_state->labels, cv::Rect(), m_state->backgroundModel, m_state->objectModel,
        m_iterations, cv::GC_INIT_WITH_MASK);
    stopwatch.stop(&answer);
    answer.selection = selectionOfLabels(m_state->labels);
    return answer;
}

PXCutAnswer PXGrabCutCutter::stroke(const QPainterPath& dot, bool object)
{
    if (m_state->labels.empty())
        return {};
    PXCutAnswer answer;
    const Stopwatch stopwatch;
    const QRect box = dot.boundingRect().toAlignedRect().intersected(QRect(0, 0, m_state->labels.cols, m_state->labels.rows));
    for (int y = box.top(); y <= box.bottom(); ++y) {
        for (int x = box.left(); x <= box.right(); ++x) {
            if (dot.contains(QPointF(x + 0.5, y + 0.5)))
                m_state->labels.at<uchar>(y, x) = object ? cv::GC_FGD : cv::GC_BGD;
        }
    }
    restartRandom();
    cv::grabCut(m_state->photo, m_state->labels, cv::Rect(), m_state->backgroundModel, m_state->objectModel, 1,
        cv::GC_INIT_WITH_MASK);
    stopwatch.stop(&answer);
    answer.selection = selectionOfLabels(m_state->labels);
    return answer;
}
#endif
