// Matte quality on composites with a known alpha and known object colours:
// an object textured with one shipped photo, pasted with a soft alpha on the
// other, cut from a lasso by the refined cut. For each case and each way of
// softening that cut's edge: alpha SAD (thousands, alpha 0..1), MSE in the
// unknown band (x 1000), gradient error (thousands), the object colour's
// error in the band (mean per channel, 0..255) and the time.

#include "PXImageSegmentation.h"
#include "PXMatte.h"
#include "PXSelectionMask.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QPainter>
#include <QPainterPath>
#include <QRandomGenerator>
#include <QTimer>

#include <cmath>
#include <cstdio>
#include <functional>

#ifdef PX_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
// After core.hpp: the header uses its export macro without including it.
#include <opencv2/alphamat.hpp>
#include <opencv2/ximgproc.hpp>
#endif

namespace {

struct Scene {
    const char* name;
    QImage photo; // Format_ARGB32
    QImage alpha; // Format_Grayscale8, the truth
    QImage object; // Format_ARGB32, the object's colours everywhere
};

struct Result {
    QImage alpha; // Format_Grayscale8
    QImage colours; // the cut-out's colours (Format_ARGB32)
    double milliseconds = 0;
};

struct Score {
    double sad = 0, mse = 0, gradient = 0, colour = 0, milliseconds = 0;
    bool valid = false;
};

QImage greyOf(const QImage& picture)
{
    QImage grey(picture.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < picture.height(); ++y) {
        const QRgb* in = reinterpret_cast<const QRgb*>(picture.constScanLine(y));
        for (int x = 0; x < picture.width(); ++x)
            grey.scanLine(y)[x] = uchar(qRed(in[x]));
    }
    return grey;
}

// The truth: @p draw paints the object white on black, antialiased; @p blur
// passes of a 3x3 box soften it (a defocused rim).
QImage drawAlpha(const QSize& size, const std::function<void(QPainter&)>& draw, int blur)
{
    QImage canvas(size, QImage::Format_ARGB32);
    canvas.fill(Qt::black);
    {
        QPainter painter(&canvas);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(Qt::white);
        draw(painter);
    }
    QImage alpha = greyOf(canvas);
    for (int pass = 0; pass < blur; ++pass) {
        const QImage source = alpha.copy();
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                int sum = 0, count = 0;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx)
                        if (QRect(QPoint(), size).contains(x + dx, y + dy)) {
                            sum += source.constScanLine(y + dy)[x + dx];
                            ++count;
                        }
                alpha.scanLine(y)[x] = uchar((sum + count / 2) / count);
            }
        }
    }
    return alpha;
}

Scene compose(const char* name, const QImage& alpha, const QImage& objectPhoto, const QImage& backgroundPhoto)
{
    const QSize size = alpha.size();
    Scene scene {name, QImage(size, QImage::Format_ARGB32), alpha, QImage()};
    // Tinted warm and brightened so the object differs from the background.
    const QImage texture = objectPhoto.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                               .convertToFormat(QImage::Format_ARGB32);
    const QImage background = backgroundPhoto.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                                  .convertToFormat(QImage::Format_ARGB32);
    scene.object = QImage(size, QImage::Format_ARGB32);
    for (int y = 0; y < size.height(); ++y) {
        const QRgb* t = reinterpret_cast<const QRgb*>(texture.constScanLine(y));
        const QRgb* b = reinterpret_cast<const QRgb*>(background.constScanLine(y));
        QRgb* f = reinterpret_cast<QRgb*>(scene.object.scanLine(y));
        QRgb* out = reinterpret_cast<QRgb*>(scene.photo.scanLine(y));
        for (int x = 0; x < size.width(); ++x) {
            f[x] = qRgb(std::min(255, qRed(t[x]) / 2 + 128), std::min(255, qGreen(t[x]) / 2 + 90), qBlue(t[x]) / 3);
            const double a = alpha.constScanLine(y)[x] / 255.0;
            const auto mix = [a](int fc, int bc) { return int(std::lround(a * fc + (1 - a) * bc)); };
            out[x] = qRgb(mix(qRed(f[x]), qRed(b[x])), mix(qGreen(f[x]), qGreen(b[x])), mix(qBlue(f[x]), qBlue(b[x])));
        }
    }
    return scene;
}

void body(QPainter& painter, const QSizeF& size)
{
    painter.drawEllipse(QPointF(size.width() * 0.5, size.height() * 0.5), size.width() * 0.24, size.height() * 0.27);
}

void strands(QPainter& painter, const QSizeF& size, int count, double scale)
{
    QRandomGenerator random(23);
    const QPointF centre(size.width() * 0.5, size.height() * 0.5);
    const double rx = size.width() * 0.24, ry = size.height() * 0.27;
    for (int i = 0; i < count; ++i) {
        const double angle = random.bounded(2 * M_PI);
        const QPointF root = centre + QPointF(std::cos(angle) * (rx - 3 * scale), std::sin(angle) * (ry - 3 * scale));
        const double lean = angle + (random.bounded(1.0) - 0.5) * 0.8;
        const double length = (6 + random.bounded(12.0)) * scale;
        QPen pen(QColor(255, 255, 255, 150 + random.bounded(106)), (1 + random.bounded(2.0)) * scale);
        pen.setCapStyle(Qt::RoundCap);
        painter.setPen(pen);
        painter.drawLine(root, root + QPointF(std::cos(lean), std::sin(lean)) * length);
    }
}

QList<Scene> scenes(const QSize& size, const QImage& objectPhoto, const QImage& backgroundPhoto, bool large)
{
    const QSizeF s(size);
    const double scale = size.width() / 1200.0;
    QList<Scene> result;
    if (large) {
        result.append(compose("12 MP fur, cut at 1200 px",
            drawAlpha(size, [&](QPainter& p) { body(p, s); strands(p, s, 900, scale); }, 2), objectPhoto, backgroundPhoto));
        return result;
    }
    result.append(compose("defocused edge", drawAlpha(size, [&](QPainter& p) { body(p, s); }, 4), objectPhoto,
        backgroundPhoto));
    result.append(compose("fur strands",
        drawAlpha(size, [&](QPainter& p) { body(p, s); strands(p, s, 900, 1.0); }, 0), objectPhoto, backgroundPhoto));
    result.append(compose("thin legs and a tail",
        drawAlpha(size,
            [&](QPainter& p) {
                p.drawEllipse(QPointF(600, 330), 240, 110);
                for (int leg = 0; leg < 4; ++leg)
                    p.drawRect(QRectF(420 + leg * 110, 400, 7, 220));
                QPainterPath tail(QPointF(830, 320));
                tail.cubicTo(950, 250, 980, 150, 1060, 120);
                p.setPen(QPen(Qt::white, 4));
                p.setBrush(Qt::NoBrush);
                p.drawPath(tail);
            },
            0),
        objectPhoto, backgroundPhoto));
    result.append(compose("ring with a hole, crisp",
        drawAlpha(size,
            [&](QPainter& p) {
                QPainterPath ring;
                ring.addEllipse(QPointF(600, 400), 300, 250);
                ring.addEllipse(QPointF(620, 390), 120, 100);
                p.drawPath(ring);
            },
            0),
        objectPhoto, backgroundPhoto));
    return result;
}

// A lasso 25 px round the object's bounding box, rounded.
QPainterPath lassoOf(const QImage& alpha)
{
    int left = alpha.width(), top = alpha.height(), right = -1, bottom = -1;
    for (int y = 0; y < alpha.height(); ++y)
        for (int x = 0; x < alpha.width(); ++x)
            if (alpha.constScanLine(y)[x] > 10) {
                left = std::min(left, x), right = std::max(right, x);
                top = std::min(top, y), bottom = std::max(bottom, y);
            }
    QPainterPath lasso;
    lasso.addRoundedRect(QRectF(left - 25, top - 25, right - left + 50, bottom - top + 50), 60, 60);
    return lasso;
}

// The refined cut of the lasso through the controller, as a host gets it.
QImage refinedCut(const QImage& photo, const QPainterPath& lasso)
{
    PXImageSegmentation controller;
    controller.setRefinedCut(true);
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
    controller.startThreadWithInitialPath(lasso);
    loop.exec();
    return PXSelectionMask::fromMask(result);
}

// The unknown band the peers get: 8 px round the mask's outline.
QImage trimapOf(const QImage& mask)
{
    const QImage inside = PXSelectionMask::shrunk(mask, 8);
    const QImage outside = PXSelectionMask::grown(mask, 8);
    QImage trimap(mask.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < mask.height(); ++y)
        for (int x = 0; x < mask.width(); ++x)
            trimap.scanLine(y)[x]
                = inside.constScanLine(y)[x] >= 128 ? 255 : (outside.constScanLine(y)[x] >= 128 ? 128 : 0);
    return trimap;
}

Score score(const Scene& scene, const QImage& trimap, const Result& result)
{
    Score s;
    if (result.alpha.isNull())
        return s;
    s.valid = true;
    s.milliseconds = result.milliseconds;
    const int w = scene.alpha.width(), h = scene.alpha.height();
    double band = 0, colourPixels = 0;
    const auto at = [](const QImage& image, int x, int y) { return image.constScanLine(y)[x] / 255.0; };
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const double truth = at(scene.alpha, x, y), estimate = at(result.alpha, x, y);
            s.sad += std::abs(truth - estimate);
            if (x > 0 && y > 0 && x + 1 < w && y + 1 < h) {
                const double gx = at(result.alpha, x + 1, y) - at(result.alpha, x - 1, y);
                const double gy = at(result.alpha, x, y + 1) - at(result.alpha, x, y - 1);
                const double tx = at(scene.alpha, x + 1, y) - at(scene.alpha, x - 1, y);
                const double ty = at(scene.alpha, x, y + 1) - at(scene.alpha, x, y - 1);
                s.gradient += (gx - tx) * (gx - tx) + (gy - ty) * (gy - ty);
            }
            if (trimap.constScanLine(y)[x] == 128) {
                ++band;
                s.mse += (truth - estimate) * (truth - estimate);
                if (truth > 0.1) {
                    const QRgb a = reinterpret_cast<const QRgb*>(result.colours.constScanLine(y))[x];
                    const QRgb b = reinterpret_cast<const QRgb*>(scene.object.constScanLine(y))[x];
                    s.colour += (std::abs(qRed(a) - qRed(b)) + std::abs(qGreen(a) - qGreen(b))
                                    + std::abs(qBlue(a) - qBlue(b)))
                        / 3.0;
                    ++colourPixels;
                }
            }
        }
    }
    s.sad /= 1000;
    s.gradient /= 1000;
    s.mse = band ? 1000 * s.mse / band : 0;
    s.colour = colourPixels ? s.colour / colourPixels : 0;
    return s;
}

template <typename Function>
Result timed(Function function)
{
    QElapsedTimer timer;
    timer.start();
    Result result = function();
    result.milliseconds = timer.nsecsElapsed() / 1e6;
    return result;
}

Result matte(const QImage& photo, const QImage& mask)
{
    PXMatte matte;
    matte.setPhoto(photo);
    matte.setMask(mask);
    matte.run();
    return Result {matte.alpha(), matte.foreground(), 0};
}

#ifdef PX_HAVE_OPENCV
cv::Mat bgrOf(const QImage& photo)
{
    cv::Mat bgra(photo.height(), photo.width(), CV_8UC4, const_cast<uchar*>(photo.constBits()), photo.bytesPerLine());
    cv::Mat bgr;
    cv::cvtColor(bgra, bgr, cv::COLOR_BGRA2BGR);
    return bgr;
}

QImage greyOfMat(const cv::Mat& values) // CV_64F or CV_32F in 0..1
{
    cv::Mat bytes;
    values.convertTo(bytes, CV_8U, 255.0);
    QImage grey(bytes.cols, bytes.rows, QImage::Format_Grayscale8);
    for (int y = 0; y < bytes.rows; ++y)
        std::copy_n(bytes.ptr<uchar>(y), bytes.cols, grey.scanLine(y));
    return grey;
}

cv::Mat matOf(const QImage& grey)
{
    return cv::Mat(grey.height(), grey.width(), CV_8UC1, const_cast<uchar*>(grey.constBits()), grey.bytesPerLine())
        .clone();
}

Result infoFlow(const QImage& photo, const QImage& trimap)
{
    cv::Mat alpha;
    cv::alphamat::infoFlow(bgrOf(photo), matOf(trimap), alpha);
    return Result {greyOfMat(alpha), photo, 0};
}

Result guided(const QImage& photo, const QImage& mask)
{
    cv::Mat guide, source, alpha;
    bgrOf(photo).convertTo(guide, CV_32FC3, 1 / 255.0);
    matOf(mask).convertTo(source, CV_32F, 1 / 255.0);
    cv::ximgproc::guidedFilter(guide, source, alpha, 8, 1e-4);
    cv::min(cv::max(alpha, 0.0), 1.0, alpha);
    return Result {greyOfMat(alpha), photo, 0};
}
#endif

// A part of the object's edge, enlarged, as cut out by the hard mask (left)
// and by the matte (right), over a plain new background.
void writePicture(const QString& path, const QImage& mask, const QImage& photo, const Result& matted)
{
    const QRect part(820, 300, 180, 180);
    constexpr int zoom = 3, gap = 8;
    QImage picture(part.width() * zoom * 2 + gap, part.height() * zoom, QImage::Format_RGB32);
    picture.fill(Qt::white);
    for (int panel = 0; panel < 2; ++panel) {
        for (int y = 0; y < part.height() * zoom; ++y) {
            for (int x = 0; x < part.width() * zoom; ++x) {
                const int px = part.left() + x / zoom, py = part.top() + y / zoom;
                const QRgb background = qRgb(40, 90 + y / 8, 150);
                const QRgb object = panel ? reinterpret_cast<const QRgb*>(matted.colours.constScanLine(py))[px]
                                          : reinterpret_cast<const QRgb*>(photo.constScanLine(py))[px];
                const double a = (panel ? matted.alpha : mask).constScanLine(py)[px] / 255.0;
                const auto mix = [a](int f, int b) { return int(std::lround(a * f + (1 - a) * b)); };
                picture.setPixel(x + panel * (part.width() * zoom + gap), y,
                    qRgb(mix(qRed(object), qRed(background)), mix(qGreen(object), qGreen(background)),
                        mix(qBlue(object), qBlue(background))));
            }
        }
    }
    picture.save(path);
}

void printRow(const char* scene, const char* method, const Score& s)
{
    if (!s.valid)
        return;
    std::printf("| %s | %s | %.2f | %.2f | %.2f | %.1f | %.0f |\n", scene, method, s.sad, s.mse, s.gradient, s.colour,
        s.milliseconds);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    // --picture FILE: the fur case's edge cut out hard and matted, on a new background.
    const qsizetype pictureAt = arguments.indexOf(QStringLiteral("--picture"));
    const QString picture = pictureAt > 0 && pictureAt + 1 < arguments.size() ? arguments.at(pictureAt + 1) : QString();
    // alphamat takes seconds a case: --no-alphamat leaves it out, --quick the 12 MP case.
    const bool withInfoFlow = !arguments.contains(QStringLiteral("--no-alphamat"));
    const QImage objectPhoto(QStringLiteral(PX_PHOTOS_DIR "/astronaut.png"));
    const QImage backgroundPhoto(QStringLiteral(PX_PHOTOS_DIR "/coffee.png"));

    std::printf("Matte on composites (alpha SAD and gradient error in thousands, MSE x 1000 in the +-8 px band,\n"
                "object colour error in the band per channel 0..255, ms)\n\n");
    std::printf("| case | method | SAD | MSE | gradient | colour | ms |\n|---|---|---|---|---|---|---|\n");
    QList<Scene> all = scenes(QSize(1200, 800), objectPhoto, backgroundPhoto, false);
    if (!arguments.contains(QStringLiteral("--quick")))
        all += scenes(QSize(4240, 2832), objectPhoto, backgroundPhoto, true);
    for (const Scene& scene : all) {
        const bool large = scene.photo.width() > 1200;
        QImage working = large ? scene.photo.scaled(1200, 1200 * scene.photo.height() / scene.photo.width(),
                                     Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                               : scene.photo;
        QImage mask = refinedCut(working, lassoOf(large ? scene.alpha.scaled(working.size()) : scene.alpha));
        if (large)
            mask = mask.scaled(scene.photo.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        for (int y = 0; y < mask.height(); ++y)
            for (int x = 0; x < mask.width(); ++x)
                mask.scanLine(y)[x] = mask.scanLine(y)[x] >= 128 ? 255 : 0;
        const QImage trimap = trimapOf(mask);
        const QImage& photo = scene.photo;
        printRow(scene.name, "hard mask", score(scene, trimap, Result {mask, photo, 0}));
        printRow(scene.name, "--feather 3",
            score(scene, trimap, timed([&]() { return Result {PXSelectionMask::feathered(mask, 3), photo, 0}; })));
        // The matte of the working copy's mask (it scales it up itself).
        const QImage matteMask = large ? mask.scaled(working.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation) : mask;
        const Result matted = timed([&]() { return matte(photo, matteMask); });
        printRow(scene.name, "matte", score(scene, trimap, matted));
        if (!picture.isEmpty() && scene.name == QLatin1String("fur strands"))
            writePicture(picture, mask, photo, matted);
#ifdef PX_HAVE_OPENCV
        printRow(scene.name, "guided filter r 8", score(scene, trimap, timed([&]() { return guided(photo, mask); })));
        if (withInfoFlow && !large)
            printRow(scene.name, "alphamat infoFlow", score(scene, trimap, timed([&]() { return infoFlow(photo, trimap); })));
#endif
    }
    return 0;
}
