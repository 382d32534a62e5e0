#include "PXQualityScenes.h"

#include <QPainter>
#include <QPainterPathStroker>
#include <QTransform>

#include <cmath>

namespace {

QImage background(const QString& file, const QSize& size)
{
    const QImage photo(QStringLiteral(PX_PHOTOS_DIR "/") + file);
    const QImage scaled = photo.scaled(size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    const QRect crop(QPoint((scaled.width() - size.width()) / 2, (scaled.height() - size.height()) / 2), size);
    return scaled.copy(crop).convertToFormat(QImage::Format_ARGB32);
}

quint32 hash(quint32 value)
{
    value ^= value >> 16;
    value *= 0x7feb352dU;
    value ^= value >> 15;
    value *= 0x846ca68bU;
    value ^= value >> 16;
    return value;
}

// The mean colour of @p photo under @p shape, from every other pixel.
QColor meanColour(const QImage& photo, const QPainterPath& shape)
{
    QImage alpha(photo.size(), QImage::Format_ARGB32_Premultiplied);
    alpha.fill(Qt::transparent);
    QPainter painter(&alpha);
    painter.fillPath(shape, Qt::white);
    painter.end();
    qint64 sum[3] = {};
    qint64 count = 0;
    for (int y = 0; y < photo.height(); y += 2) {
        for (int x = 0; x < photo.width(); x += 2) {
            if (qAlpha(alpha.pixel(x, y)) == 0)
                continue;
            const QRgb p = photo.pixel(x, y);
            sum[0] += qRed(p);
            sum[1] += qGreen(p);
            sum[2] += qBlue(p);
            ++count;
        }
    }
    count = std::max<qint64>(count, 1);
    return QColor(int(sum[0] / count), int(sum[1] / count), int(sum[2] / count));
}

// Pastes a striped, noisy object of @p base colour with an antialiased edge.
PXQualityScene compose(const QString& name, const QImage& photo, const QPainterPath& shape, QColor base)
{
    QImage alpha(photo.size(), QImage::Format_ARGB32_Premultiplied);
    alpha.fill(Qt::transparent);
    {
        QPainter painter(&alpha);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.fillPath(shape, Qt::white);
    }
    PXQualityScene scene;
    scene.name = name;
    scene.photo = photo;
    scene.truth = QImage(photo.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < photo.height(); ++y) {
        auto* out = reinterpret_cast<QRgb*>(scene.photo.scanLine(y));
        const auto* a = reinterpret_cast<const QRgb*>(alpha.constScanLine(y));
        uchar* truth = scene.truth.scanLine(y);
        for (int x = 0; x < photo.width(); ++x) {
            const int weight = qAlpha(a[x]);
            truth[x] = weight >= 128 ? 255 : 0;
            if (weight == 0)
                continue;
            const double stripes = 18.0 * std::sin(x / 7.0 + y / 23.0) * std::sin(y / 9.0);
            const int noise = int(hash(quint32(y * 7919 + x)) % 25) - 12;
            const int channel[3] = {base.red(), base.green(), base.blue()};
            int object[3];
            for (int c = 0; c < 3; ++c)
                object[c] = std::clamp(int(channel[c] + stripes + noise + (c - 1) * 0.3 * stripes), 0, 255);
            const QRgb under = out[x];
            const int r = (object[0] * weight + qRed(under) * (255 - weight)) / 255;
            const int g = (object[1] * weight + qGreen(under) * (255 - weight)) / 255;
            const int b = (object[2] * weight + qBlue(under) * (255 - weight)) / 255;
            out[x] = qRgb(r, g, b);
        }
    }
    // The outer outline: the largest closed polygon of the shape.
    QPolygonF outer;
    for (const QPolygonF& polygon : shape.simplified().toSubpathPolygons()) {
        const QRectF box = polygon.boundingRect();
        if (box.width() * box.height() > outer.boundingRect().width() * outer.boundingRect().height())
            outer = polygon;
    }
    scene.outline.addPolygon(outer);
    scene.outline.closeSubpath();
    return scene;
}

QPainterPath ellipse(QPointF centre, double rx, double ry)
{
    QPainterPath path;
    path.addEllipse(centre, rx, ry);
    return path;
}

} // namespace

QList<PXQualityScene> qualityScenes(const QSize& size)
{
    const double s = size.width() / 1200.0;
    const QPointF centre(size.width() / 2.0, size.height() / 2.0);
    const QImage astronaut = background(QStringLiteral("astronaut.png"), size);
    const QImage coffee = background(QStringLiteral("coffee.png"), size);
    QList<PXQualityScene> scenes;

    // Convex, a colour of its own.
    scenes.append(compose(QStringLiteral("convex"), coffee, ellipse(centre, 230 * s, 180 * s), QColor(200, 60, 40)));

    // A body with four thin arms, close to the background's colours.
    QPainterPath star = ellipse(centre, 120 * s, 120 * s);
    for (int arm = 0; arm < 4; ++arm) {
        QPainterPath bar;
        bar.addRect(QRectF(0, -8 * s, 250 * s, 16 * s));
        star = star.united(QTransform().translate(centre.x(), centre.y()).rotate(20 + 90 * arm).map(bar));
    }
    const QColor underStar = meanColour(astronaut, star);
    scenes.append(compose(QStringLiteral("thin arms"), astronaut, star,
        QColor(std::min(255, underStar.red() + 40), underStar.green(), std::max(0, underStar.blue() - 30))));

    // A ring: the background shows through its hole.
    const QPainterPath ring = ellipse(centre, 210 * s, 210 * s).subtracted(ellipse(centre, 90 * s, 90 * s));
    scenes.append(compose(QStringLiteral("hole"), astronaut, ring, QColor(50, 90, 200)));

    // A mug with a handle, close to the background's colours.
    QPainterPath mug;
    mug.addRoundedRect(QRectF(centre.x() - 200 * s, centre.y() - 180 * s, 280 * s, 360 * s), 30 * s, 30 * s);
    const QPointF handleCentre(centre.x() + 80 * s, centre.y());
    mug = mug.united(ellipse(handleCentre, 150 * s, 120 * s).subtracted(ellipse(handleCentre, 100 * s, 70 * s)));
    const QColor underMug = meanColour(coffee, mug);
    scenes.append(compose(QStringLiteral("handle"), coffee, mug,
        QColor(std::max(0, underMug.red() - 35), std::min(255, underMug.green() + 25), underMug.blue())));
    return scenes;
}

QPainterPath lassoAround(const PXQualityScene& scene, int distance)
{
    QPainterPathStroker stroker;
    stroker.setWidth(2.0 * std::abs(distance));
    stroker.setJoinStyle(Qt::RoundJoin);
    const QPainterPath band = stroker.createStroke(scene.outline);
    const QPainterPath grown = distance >= 0 ? scene.outline.united(band) : scene.outline.subtracted(band);
    QPolygonF outer;
    for (const QPolygonF& polygon : grown.simplified().toSubpathPolygons()) {
        const QRectF box = polygon.boundingRect();
        if (box.width() * box.height() > outer.boundingRect().width() * outer.boundingRect().height())
            outer = polygon;
    }
    QPainterPath lasso;
    lasso.addPolygon(outer);
    lasso.closeSubpath();
    return lasso;
}

QPainterPath lassoCuttingIn(const PXQualityScene& scene)
{
    const QRectF box = scene.outline.boundingRect();
    QPainterPath keep;
    keep.addRect(QRectF(box.left() - 100, box.top() - 100, box.width() + 100 - 6, box.height() + 200));
    return lassoAround(scene, 5).intersected(keep);
}

double intersectionOverUnion(const QImage& truth, const QImage& selection)
{
    qint64 both = 0;
    qint64 either = 0;
    for (int y = 0; y < truth.height(); ++y) {
        const uchar* a = truth.constScanLine(y);
        const uchar* b = selection.constScanLine(y);
        for (int x = 0; x < truth.width(); ++x) {
            both += a[x] && b[x];
            either += a[x] || b[x];
        }
    }
    return either ? double(both) / double(either) : 1.0;
}

namespace {

QImage outline(const QImage& selection)
{
    QImage edge(selection.size(), QImage::Format_Grayscale8);
    edge.fill(0);
    const int w = selection.width();
    const int h = selection.height();
    for (int y = 0; y < h; ++y) {
        const uchar* line = selection.constScanLine(y);
        for (int x = 0; x < w; ++x) {
            if (!line[x])
                continue;
            const bool border = x == 0 || y == 0 || x == w - 1 || y == h - 1 || !line[x - 1] || !line[x + 1]
                || !selection.constScanLine(y - 1)[x] || !selection.constScanLine(y + 1)[x];
            if (border)
                edge.scanLine(y)[x] = 255;
        }
    }
    return edge;
}

// The share of @p from's outline pixels with an outline pixel of @p to nearby.
double matched(const QImage& from, const QImage& to, int tolerance, qint64* total)
{
    qint64 count = 0;
    qint64 hits = 0;
    for (int y = 0; y < from.height(); ++y) {
        const uchar* line = from.constScanLine(y);
        for (int x = 0; x < from.width(); ++x) {
            if (!line[x])
                continue;
            ++count;
            bool hit = false;
            for (int dy = -tolerance; dy <= tolerance && !hit; ++dy) {
                const int ny = y + dy;
                if (ny < 0 || ny >= to.height())
                    continue;
                const uchar* other = to.constScanLine(ny);
                for (int dx = -tolerance; dx <= tolerance && !hit; ++dx) {
                    const int nx = x + dx;
                    hit = nx >= 0 && nx < to.width() && dx * dx + dy * dy <= tolerance * tolerance && other[nx];
                }
            }
            hits += hit;
        }
    }
    *total = count;
    return count ? double(hits) / double(count) : 0.0;
}

} // namespace

double boundaryF(const QImage& truth, const QImage& selection, int tolerance)
{
    const QImage truthEdge = outline(truth);
    const QImage selectionEdge = outline(selection);
    qint64 truthCount = 0;
    qint64 selectionCount = 0;
    const double precision = matched(selectionEdge, truthEdge, tolerance, &selectionCount);
    const double recall = matched(truthEdge, selectionEdge, tolerance, &truthCount);
    if (precision + recall <= 0.0)
        return 0.0;
    return 2.0 * precision * recall / (precision + recall);
}
