#include "PXHandLasso.h"

#include "PXMaskGeometry.h"

#include <QList>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

constexpr double pi = 3.14159265358979323846;

// Even steps along the closed polyline @p line, @p count of them.
QList<QPointF> resampled(const QList<QPointF>& line, int count)
{
    QList<double> along(line.size() + 1, 0.0);
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QPointF step = line[(i + 1) % line.size()] - line[i];
        along[i + 1] = along[i] + std::hypot(step.x(), step.y());
    }
    const double total = along.last();
    QList<QPointF> points;
    qsizetype segment = 0;
    for (int i = 0; i < count; ++i) {
        const double at = total * i / count;
        while (along[segment + 1] < at)
            ++segment;
        const double length = along[segment + 1] - along[segment];
        const double t = length > 0.0 ? (at - along[segment]) / length : 0.0;
        const QPointF a = line[segment];
        const QPointF b = line[(segment + 1) % line.size()];
        points.append(a + t * (b - a));
    }
    return points;
}

// A circular moving average over @p radius neighbours each side.
template<typename T> QList<T> smoothed(const QList<T>& values, int radius)
{
    const qsizetype n = values.size();
    QList<T> out(n);
    for (qsizetype i = 0; i < n; ++i) {
        T sum {};
        for (int k = -radius; k <= radius; ++k)
            sum += values[(i + k + n) % n];
        out[i] = sum / double(2 * radius + 1);
    }
    return out;
}

} // namespace

QPainterPath handLasso(const QImage& object, const PXHandLassoOptions& options)
{
    const int w = object.width();
    const int h = object.height();
    std::mt19937 random(options.seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double scale = options.scale;

    // Signed distance to the object's edge: outside positive, inside negative.
    QImage outside(object.size(), QImage::Format_Grayscale8);
    double cx = 0.0;
    double cy = 0.0;
    qint64 count = 0;
    for (int y = 0; y < h; ++y) {
        const uchar* in = object.constScanLine(y);
        uchar* out = outside.scanLine(y);
        for (int x = 0; x < w; ++x) {
            out[x] = in[x] ? 0 : 255;
            if (in[x]) {
                cx += x;
                cy += y;
                ++count;
            }
        }
    }
    if (count == 0)
        return QPainterPath();
    cx /= double(count);
    cy /= double(count);
    const std::vector<float> toObject = squaredDistanceToSet(object);
    const std::vector<float> toOutside = squaredDistanceToSet(outside);

    // The distance the hand keeps wanders as two slow waves across the photo;
    // within one sector round the object's centre it runs inside instead.
    double wave[2][3];
    for (auto& v : wave) {
        const double angle = 2.0 * pi * unit(random);
        const double frequency = 2.0 * pi / (300.0 * scale * (0.7 + 0.6 * unit(random)));
        v[0] = frequency * std::cos(angle);
        v[1] = frequency * std::sin(angle);
        v[2] = 2.0 * pi * unit(random);
    }
    const double insideFrom = 2.0 * pi * unit(random);
    const double nearest = options.nearest * scale;
    const double farthest = options.farthest * scale;
    QImage kept(object.size(), QImage::Format_Grayscale8);
    QPoint start(-1, -1);
    for (int y = 0; y < h; ++y) {
        uchar* out = kept.scanLine(y);
        for (int x = 0; x < w; ++x) {
            const size_t at = size_t(y) * w + x;
            const double signedDistance = toObject[at] > 0.0f ? std::sqrt(double(toObject[at]))
                                                               : -std::sqrt(double(toOutside[at]));
            const double waves = 0.6 * std::sin(wave[0][0] * x + wave[0][1] * y + wave[0][2])
                + 0.4 * std::sin(wave[1][0] * x + wave[1][1] * y + wave[1][2]);
            double keep = nearest + (farthest - nearest) * (0.5 + 0.5 * waves);
            const double turn = std::fmod(std::atan2(y - cy, x - cx) - insideFrom + 4.0 * pi,
                                      2.0 * pi);
            if (turn < 2.0 * pi * options.insideShare)
                keep = -options.insideDepth * scale;
            out[x] = signedDistance <= keep ? 255 : 0;
        }
    }

    // The largest piece's outline, evened out and set trembling.
    std::vector<int> labels;
    const QList<PXMaskArea> areas = connectedAreas(kept, &labels);
    if (areas.isEmpty())
        return QPainterPath();
    const PXMaskArea largest
        = *std::max_element(areas.begin(), areas.end(),
            [](const PXMaskArea& a, const PXMaskArea& b) { return a.pixels < b.pixels; });
    for (int x = largest.bounds.left(); x <= largest.bounds.right() && start.x() < 0; ++x) {
        if (labels[size_t(largest.bounds.top()) * w + x] == largest.label)
            start = QPoint(x, largest.bounds.top());
    }
    for (int y = 0; y < h; ++y) {
        uchar* line = kept.scanLine(y);
        for (int x = 0; x < w; ++x)
            line[x] = labels[size_t(y) * w + x] == largest.label ? 255 : 0;
    }
    const QList<QPointF> points = smoothed(resampled(outerBorder(kept, start), options.points), 3);
    QList<double> tremor(points.size());
    for (double& t : tremor)
        t = 2.0 * unit(random) - 1.0;
    tremor = smoothed(tremor, 6);
    const double loudest = std::max(1e-9, std::abs(*std::max_element(tremor.begin(), tremor.end(),
                                               [](double a, double b) { return std::abs(a) < std::abs(b); })));
    QPainterPath lasso;
    const qsizetype n = points.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QPointF along = points[(i + 1) % n] - points[(i + n - 1) % n];
        const double length = std::max(1e-9, std::hypot(along.x(), along.y()));
        const QPointF normal(along.y() / length, -along.x() / length);
        const QPointF point = points[i] + normal * (options.tremor * scale * tremor[i] / loudest);
        if (i == 0)
            lasso.moveTo(point);
        else
            lasso.lineTo(point);
    }
    lasso.closeSubpath();
    return lasso;
}
