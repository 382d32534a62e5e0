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

// Signed distance to the object's edge (outside positive, inside negative)
// and the object's centre.
struct EdgeDistance {
    int width = 0;
    std::vector<float> toObject;
    std::vector<float> toOutside;
    QPointF centre;

    double at(int x, int y) const
    {
        const size_t i = size_t(y) * width + x;
        return toObject[i] > 0.0f ? std::sqrt(double(toObject[i])) : -std::sqrt(double(toOutside[i]));
    }
};

// The outline of the largest piece of the pixels that lie within
// @p keep(x, y) of the object, traced pixel by pixel.
template<typename Keep> QList<QPointF> outlineWithin(const EdgeDistance& edge, QSize size, Keep keep)
{
    QImage kept(size, QImage::Format_Grayscale8);
    for (int y = 0; y < size.height(); ++y) {
        uchar* out = kept.scanLine(y);
        for (int x = 0; x < size.width(); ++x)
            out[x] = edge.at(x, y) <= keep(x, y) ? 255 : 0;
    }
    std::vector<int> labels;
    const QList<PXMaskArea> areas = connectedAreas(kept, &labels);
    if (areas.isEmpty())
        return {};
    const PXMaskArea largest = *std::max_element(areas.begin(), areas.end(),
        [](const PXMaskArea& a, const PXMaskArea& b) { return a.pixels < b.pixels; });
    for (int y = 0; y < size.height(); ++y) {
        uchar* line = kept.scanLine(y);
        for (int x = 0; x < size.width(); ++x)
            line[x] = labels[size_t(y) * size.width() + x] == largest.label ? 255 : 0;
    }
    const uchar* top = kept.constScanLine(largest.bounds.top());
    const int left = int(std::find(top, top + size.width(), 255) - top);
    return outerBorder(kept, QPoint(left, largest.bounds.top()));
}

} // namespace

QPainterPath handLasso(const QImage& object, const PXHandLassoOptions& options)
{
    const int w = object.width();
    const int h = object.height();
    std::mt19937 random(options.seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double scale = options.scale;

    EdgeDistance edge;
    edge.width = w;
    QImage outside(object.size(), QImage::Format_Grayscale8);
    qint64 count = 0;
    for (int y = 0; y < h; ++y) {
        const uchar* in = object.constScanLine(y);
        uchar* out = outside.scanLine(y);
        for (int x = 0; x < w; ++x) {
            out[x] = in[x] ? 0 : 255;
            if (in[x]) {
                edge.centre += QPointF(x, y);
                ++count;
            }
        }
    }
    if (count == 0)
        return QPainterPath();
    edge.centre /= double(count);
    edge.toObject = squaredDistanceToSet(object);
    edge.toOutside = squaredDistanceToSet(outside);

    // The distance the hand keeps wanders as two slow waves across the photo.
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
    // Within a sector round the object's centre it runs inside instead; the
    // sector is widened or narrowed until that stretch is the share asked of
    // the lasso's length, not of the turn.
    double sector = options.insideShare;
    QList<QPointF> points;
    for (int attempt = 0; attempt < 5; ++attempt) {
        points = outlineWithin(edge, object.size(), [&](int x, int y) {
            const double turn = std::fmod(
                std::atan2(y - edge.centre.y(), x - edge.centre.x()) - insideFrom + 4.0 * pi, 2.0 * pi);
            if (turn < 2.0 * pi * sector)
                return -options.insideDepth * scale;
            const double waves = 0.6 * std::sin(wave[0][0] * x + wave[0][1] * y + wave[0][2])
                + 0.4 * std::sin(wave[1][0] * x + wave[1][1] * y + wave[1][2]);
            return nearest + (farthest - nearest) * (0.5 + 0.5 * waves);
        });
        if (points.isEmpty())
            return QPainterPath();
        points = smoothed(resampled(points, options.points), 3);
        if (options.insideShare <= 0.0)
            break;
        const qsizetype inside = std::count_if(points.begin(), points.end(), [&](QPointF p) {
            return edge.at(std::clamp(int(p.x()), 0, w - 1), std::clamp(int(p.y()), 0, h - 1)) < 0.0;
        });
        const double share = double(inside) / double(points.size());
        if (std::abs(share - options.insideShare) < 0.01)
            break;
        sector = std::min(0.5, share > 0.0 ? sector * options.insideShare / share : 2.0 * sector);
    }

    // Set trembling.
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
