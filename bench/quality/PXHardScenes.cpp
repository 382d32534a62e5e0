#include "PXHardScenes.h"

#include "PXHandLasso.h"

#include <QPainter>
#include <QPainterPath>
#include <QTransform>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

constexpr double pi = 3.14159265358979323846;

const QSize normalSize(1200, 800);

QImage bundled(const char* file)
{
    return QImage(QStringLiteral(PX_QUALITY_PHOTOS_DIR "/") + QLatin1String(file));
}

QImage shipped(const char* file)
{
    return QImage(QStringLiteral(PX_PHOTOS_DIR "/") + QLatin1String(file));
}

// @p photo scaled to cover @p size, the middle kept.
QImage covering(const QImage& photo, const QSize& size)
{
    const QImage scaled = photo.scaled(size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    const QRect crop(QPoint((scaled.width() - size.width()) / 2, (scaled.height() - size.height()) / 2), size);
    return scaled.copy(crop).convertToFormat(QImage::Format_ARGB32);
}

// A grey texture coloured from @p dark to @p light.
QImage tinted(const QImage& texture, QColor dark, QColor light)
{
    const QImage grey = texture.convertToFormat(QImage::Format_Grayscale8);
    QImage out(grey.size(), QImage::Format_ARGB32);
    for (int y = 0; y < grey.height(); ++y) {
        const uchar* in = grey.constScanLine(y);
        auto* line = reinterpret_cast<QRgb*>(out.scanLine(y));
        for (int x = 0; x < grey.width(); ++x) {
            const double t = in[x] / 255.0;
            line[x] = qRgb(int(dark.red() + t * (light.red() - dark.red())),
                int(dark.green() + t * (light.green() - dark.green())),
                int(dark.blue() + t * (light.blue() - dark.blue())));
        }
    }
    return out;
}

// @p texture zoomed by @p zoom and repeated mirrored (no seams) over @p size,
// starting @p offset into it.
QImage tiled(const QImage& texture, const QSize& size, double zoom, QPoint offset = QPoint())
{
    const QImage tile = texture.scaled(texture.size() * zoom, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                            .convertToFormat(QImage::Format_ARGB32);
    const int w = tile.width();
    const int h = tile.height();
    QImage out(size, QImage::Format_ARGB32);
    for (int y = 0; y < size.height(); ++y) {
        int ty = (y + offset.y()) % (2 * h);
        ty = ty < h ? ty : 2 * h - 1 - ty;
        const auto* in = reinterpret_cast<const QRgb*>(tile.constScanLine(ty));
        auto* line = reinterpret_cast<QRgb*>(out.scanLine(y));
        for (int x = 0; x < size.width(); ++x) {
            int tx = (x + offset.x()) % (2 * w);
            tx = tx < w ? tx : 2 * w - 1 - tx;
            line[x] = in[tx];
        }
    }
    return out;
}

// The alpha channel of @p paint as Format_Grayscale8.
QImage alphaOf(const QImage& paint)
{
    QImage alpha(paint.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < paint.height(); ++y) {
        const auto* in = reinterpret_cast<const QRgb*>(paint.constScanLine(y));
        uchar* out = alpha.scanLine(y);
        for (int x = 0; x < paint.width(); ++x)
            out[x] = uchar(qAlpha(in[x]));
    }
    return alpha;
}

// Coverage of @p path, antialiased, as Format_Grayscale8.
QImage coverage(const QSize& size, const QPainterPath& path)
{
    QImage paint(size, QImage::Format_ARGB32_Premultiplied);
    paint.fill(Qt::transparent);
    QPainter painter(&paint);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(path, Qt::white);
    painter.end();
    return alphaOf(paint);
}

// A round blob whose radius swells with two waves.
QPainterPath blob(QPointF centre, double radius, int lobes, double depth, double turn = 0.0)
{
    QPolygonF polygon;
    for (int i = 0; i < 720; ++i) {
        const double a = 2.0 * pi * i / 720.0;
        const double r = radius * (1.0 + depth * std::sin(lobes * a + turn) + 0.4 * depth * std::sin((lobes + 2) * a + 1.0));
        polygon.append(centre + QPointF(r * std::cos(a), r * std::sin(a)));
    }
    QPainterPath path;
    path.addPolygon(polygon);
    path.closeSubpath();
    return path;
}

// The horse silhouette, its coverage scaled to @p height and placed at
// @p topLeft, edges kept about a pixel soft.
QImage horse(const QSize& size, QPoint topLeft, int height)
{
    const QImage drawing = bundled("horse.png").convertToFormat(QImage::Format_Grayscale8);
    const QImage scaled = drawing.scaledToHeight(height, Qt::SmoothTransformation);
    const double sharpen = double(height) / drawing.height();
    QImage alpha(size, QImage::Format_Grayscale8);
    alpha.fill(0);
    for (int y = 0; y < scaled.height(); ++y) {
        const int ty = y + topLeft.y();
        if (ty < 0 || ty >= size.height())
            continue;
        const uchar* in = scaled.constScanLine(y);
        uchar* out = alpha.scanLine(ty);
        for (int x = 0; x < scaled.width(); ++x) {
            const int tx = x + topLeft.x();
            if (tx >= 0 && tx < size.width())
                out[tx] = uchar(std::clamp((127.5 - in[x]) * sharpen + 127.5, 0.0, 255.0));
        }
    }
    return alpha;
}

// Gaussian blur of a coverage, as a defocused lens leaves it.
QImage blurred(const QImage& alpha, double sigma)
{
    const int radius = int(std::ceil(3.0 * sigma));
    QList<double> kernel(2 * radius + 1);
    double sum = 0.0;
    for (int i = -radius; i <= radius; ++i)
        sum += kernel[i + radius] = std::exp(-0.5 * i * i / (sigma * sigma));
    for (double& k : kernel)
        k /= sum;
    const int w = alpha.width();
    const int h = alpha.height();
    std::vector<double> across(size_t(w) * h);
    for (int y = 0; y < h; ++y) {
        const uchar* in = alpha.constScanLine(y);
        for (int x = 0; x < w; ++x) {
            double v = 0.0;
            for (int i = -radius; i <= radius; ++i)
                v += kernel[i + radius] * in[std::clamp(x + i, 0, w - 1)];
            across[size_t(y) * w + x] = v;
        }
    }
    QImage out(alpha.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < h; ++y) {
        uchar* line = out.scanLine(y);
        for (int x = 0; x < w; ++x) {
            double v = 0.0;
            for (int i = -radius; i <= radius; ++i)
                v += kernel[i + radius] * across[size_t(std::clamp(y + i, 0, h - 1)) * w + x];
            line[x] = uchar(std::lround(v));
        }
    }
    return out;
}

// @p object over @p background with coverage @p alpha; the truth is the
// coverage from one half up.
PXQualityCase composite(const QString& name, const QImage& background, const QImage& object, const QImage& alpha)
{
    PXQualityCase scene;
    scene.name = name;
    scene.photo = background.convertToFormat(QImage::Format_ARGB32);
    scene.truth = QImage(alpha.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < alpha.height(); ++y) {
        const uchar* a = alpha.constScanLine(y);
        const auto* over = reinterpret_cast<const QRgb*>(object.constScanLine(y));
        auto* out = reinterpret_cast<QRgb*>(scene.photo.scanLine(y));
        uchar* truth = scene.truth.scanLine(y);
        for (int x = 0; x < alpha.width(); ++x) {
            truth[x] = a[x] >= 128 ? 255 : 0;
            const int k = a[x];
            const QRgb o = over[x];
            const QRgb u = out[x];
            out[x] = qRgb((qRed(o) * k + qRed(u) * (255 - k) + 127) / 255,
                (qGreen(o) * k + qGreen(u) * (255 - k) + 127) / 255,
                (qBlue(o) * k + qBlue(u) * (255 - k) + 127) / 255);
        }
    }
    return scene;
}

// The cat's striped forehead: fur without eyes or whiskers, to tile.
QImage furPatch()
{
    return bundled("chelsea.png").copy(QRect(150, 0, 170, 80)).convertToFormat(QImage::Format_ARGB32);
}

// @p texture scaled to cover @p box, placed there on an image of @p size.
QImage coveringAt(const QImage& texture, const QSize& size, const QRect& box)
{
    QImage out(size, QImage::Format_ARGB32);
    out.fill(Qt::black);
    QPainter painter(&out);
    painter.drawImage(box.topLeft(), covering(texture, box.size()));
    return out;
}

QImage shaded(const QImage& image, double factor)
{
    QImage out = image.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < out.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(out.scanLine(y));
        for (int x = 0; x < out.width(); ++x)
            line[x] = qRgb(int(qRed(line[x]) * factor), int(qGreen(line[x]) * factor), int(qBlue(line[x]) * factor));
    }
    return out;
}

QImage thresholded(const QImage& alpha)
{
    QImage out(alpha.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < alpha.height(); ++y) {
        const uchar* in = alpha.constScanLine(y);
        uchar* line = out.scanLine(y);
        for (int x = 0; x < alpha.width(); ++x)
            line[x] = in[x] >= 128 ? 255 : 0;
    }
    return out;
}

QPainterPath handLassoAround(const QImage& alpha, quint32 seed, double insideShare = 0.0, double scale = 1.0)
{
    PXHandLassoOptions options;
    options.seed = seed;
    options.insideShare = insideShare;
    options.scale = scale;
    return handLasso(thresholded(alpha), options);
}

PXQualityCase camouflage()
{
    // The same gravel, turned and 7 % darker: a person sees the patch, and
    // colour models of the lasso's inside and outside tell it apart only
    // just (grabCut with one iteration does).
    const QImage gravel = tinted(bundled("gravel.png"), QColor(70, 55, 40), QColor(230, 205, 165));
    const QImage background = tiled(gravel, normalSize, 1.0);
    const QTransform turn = QTransform().rotate(90);
    const QImage patch = shaded(tiled(gravel.transformed(turn), normalSize, 1.0, QPoint(170, 90)), 0.93);
    const QImage alpha = coverage(normalSize, blob(QPointF(600, 400), 210, 3, 0.15));
    PXQualityCase scene = composite(QStringLiteral("camouflage"), background, patch, alpha);
    scene.lasso = handLassoAround(alpha, 11);
    return scene;
}

PXQualityCase horseOn(const QString& name, const QSize& size, quint32 seed)
{
    const double s = size.width() / 1200.0;
    const int height = int(560 * s);
    const int width = int(height * 400.0 / 328.0);
    const QPoint topLeft((size.width() - width) / 2, (size.height() - height) / 2);
    const QImage alpha = horse(size, topLeft, height);
    const QImage fur = tiled(furPatch(), size, 1.5 * s);
    PXQualityCase scene = composite(name, covering(shipped("coffee.png"), size), fur, alpha);
    scene.lasso = handLassoAround(alpha, seed, 0.0, s);
    return scene;
}

PXQualityCase defocused()
{
    const QImage brick = tinted(bundled("brick.png"), QColor(90, 30, 20), QColor(230, 130, 95));
    const QImage alpha = blurred(coverage(normalSize, blob(QPointF(600, 400), 220, 2, 0.18, 0.5)), 1.5);
    PXQualityCase scene = composite(QStringLiteral("defocused edge"), covering(shipped("astronaut.png"), normalSize),
        tiled(brick, normalSize, 1.2), alpha);
    scene.lasso = handLassoAround(alpha, 23);
    return scene;
}

PXQualityCase ring()
{
    const QImage grass = tinted(bundled("grass.png"), QColor(25, 60, 20), QColor(160, 210, 95));
    QPainterPath hole;
    hole.addEllipse(QPointF(630, 380), 95, 120);
    const QImage alpha = coverage(normalSize, blob(QPointF(600, 400), 240, 4, 0.08).subtracted(hole));
    PXQualityCase scene
        = composite(QStringLiteral("ring"), covering(shipped("coffee.png"), normalSize), tiled(grass, normalSize, 1.0), alpha);
    scene.lasso = handLassoAround(alpha, 37);
    return scene;
}

// Andrew's monotone chain.
QPolygonF convexHull(QList<QPointF> points)
{
    std::sort(points.begin(), points.end(),
        [](QPointF a, QPointF b) { return a.x() < b.x() || (a.x() == b.x() && a.y() < b.y()); });
    const auto cross = [](QPointF o, QPointF a, QPointF b) {
        return (a.x() - o.x()) * (b.y() - o.y()) - (a.y() - o.y()) * (b.x() - o.x());
    };
    QPolygonF hull;
    for (int pass = 0; pass < 2; ++pass) {
        const qsizetype base = hull.size();
        for (const QPointF& p : points) {
            while (hull.size() >= base + 2 && cross(hull[hull.size() - 2], hull.last(), p) <= 0)
                hull.removeLast();
            hull.append(p);
        }
        hull.removeLast();
        std::reverse(points.begin(), points.end());
    }
    return hull;
}

PXQualityCase twoObjects()
{
    QPainterPath cat = blob(QPointF(370, 400), 160, 3, 0.1);
    QPainterPath box;
    box.addRoundedRect(QRectF(-110, -150, 220, 300), 30, 30);
    box = QTransform().translate(850, 390).rotate(15).map(box);
    const QImage brick = tinted(bundled("brick.png"), QColor(60, 40, 90), QColor(190, 170, 230));
    QImage object = tiled(brick, normalSize, 1.0);
    {
        QPainter painter(&object);
        painter.setClipPath(cat);
        painter.drawImage(QRect(200, 230, 340, 340), covering(bundled("chelsea.png"), QSize(340, 340)));
    }
    const QImage alpha = coverage(normalSize, cat.united(box));
    PXQualityCase scene = composite(QStringLiteral("two objects"), covering(shipped("astronaut.png"), normalSize), object, alpha);
    // One loop round both, as a hand draws it.
    QList<QPointF> corners;
    for (const QPainterPath& part : {cat, box})
        corners.append(part.toFillPolygon());
    scene.lasso = handLassoAround(coverage(normalSize, [&] {
        QPainterPath hull;
        hull.addPolygon(convexHull(corners));
        return hull;
    }()), 41);
    return scene;
}

PXQualityCase freehand()
{
    const QPainterPath star = blob(QPointF(600, 400), 230, 5, 0.2, 0.3);
    const QImage alpha = coverage(normalSize, star);
    const QImage object = coveringAt(bundled("chelsea.png"), normalSize, star.boundingRect().toAlignedRect());
    PXQualityCase scene = composite(QStringLiteral("freehand lasso"), covering(shipped("astronaut.png"), normalSize), object, alpha);
    scene.lasso = handLassoAround(alpha, 53, 0.1);
    return scene;
}

PXQualityCase fur()
{
    // Strands grow out of the body's edge, leaning off its normal and bent.
    const QPointF centre(600, 400);
    const double rx = 230;
    const double ry = 160;
    QPainterPath body;
    body.addEllipse(centre, rx, ry);
    std::mt19937 random(67);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    QImage paint(normalSize, QImage::Format_ARGB32_Premultiplied);
    paint.fill(Qt::transparent);
    QPainter painter(&paint);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(body, Qt::white);
    for (int i = 0; i < 700; ++i) {
        const double a = 2.0 * pi * unit(random);
        const QPointF root = centre + QPointF(rx * std::cos(a), ry * std::sin(a));
        QPointF normal(std::cos(a) / rx, std::sin(a) / ry);
        normal /= std::hypot(normal.x(), normal.y());
        const double lean = (unit(random) - 0.5) * 1.2;
        const QPointF direction(normal.x() * std::cos(lean) - normal.y() * std::sin(lean),
            normal.x() * std::sin(lean) + normal.y() * std::cos(lean));
        const double length = 10.0 + 30.0 * unit(random);
        const QPointF side(-direction.y(), direction.x());
        const double bend = (unit(random) - 0.5) * 0.6 * length;
        QPainterPath strand(root - 4.0 * direction);
        strand.quadTo(root + 0.5 * length * direction + bend * side, root + length * direction + 0.6 * bend * side);
        painter.setPen(QPen(Qt::white, 1.0 + 2.0 * unit(random), Qt::SolidLine, Qt::RoundCap));
        painter.drawPath(strand);
    }
    painter.end();
    const QImage alpha = alphaOf(paint);
    // The cat's face, its strands from fur round it.
    QImage object = tiled(furPatch(), normalSize, 1.5);
    {
        QPainter face(&object);
        face.setClipPath(body);
        face.drawImage(QPoint(360, 230), covering(bundled("chelsea.png"), QSize(480, 340)));
    }
    PXQualityCase scene = composite(QStringLiteral("fur"), covering(shipped("coffee.png"), normalSize), object, alpha);
    scene.lasso = handLassoAround(alpha, 71);
    return scene;
}

} // namespace

QList<PXHardCaseRecipe> hardCases()
{
    return {
        {QStringLiteral("camouflage"), false, camouflage},
        {QStringLiteral("thin legs"), false, [] { return horseOn(QStringLiteral("thin legs"), normalSize, 13); }},
        {QStringLiteral("defocused edge"), false, defocused},
        {QStringLiteral("ring"), false, ring},
        {QStringLiteral("two objects"), false, twoObjects},
        {QStringLiteral("freehand lasso"), false, freehand},
        {QStringLiteral("fur"), false, fur},
        {QStringLiteral("12 MP horse"), true,
            [] { return horseOn(QStringLiteral("12 MP horse"), QSize(4000, 3000), 97); }},
    };
}
