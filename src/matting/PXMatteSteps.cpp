#include "PXMatteSteps.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace PXMatteSteps {

namespace {

constexpr int tileSize = 128;
// Known pixels this far beyond the widest band teach the first colour estimates.
constexpr int sampleRing = 3;
// Chamfer steps: 3 along an axis, 4 along a diagonal (about 3 per pixel).
constexpr int axial = 3;
constexpr int diagonal = 4;

struct Colour {
    float r = 0, g = 0, b = 0;
};

using Sum = std::array<int, 4>; // red, green, blue, count

// The working area of one tile: the tile and a halo round it.
struct Area {
    int left = 0, top = 0, width = 0, height = 0;
    qsizetype size() const { return qsizetype(width) * height; }
};

int haloOf(const PXMatteOptions& options)
{
    return 3 * options.bandRadius + 2 * sampleRing + 4;
}

// Chamfer distance to the nearest pixel whose four-neighbour lies on the
// other side of the mask, capped at @p cap.
std::vector<uint16_t> outlineDistance(const std::vector<uchar>& side, const Area& area, int cap)
{
    const int w = area.width, h = area.height;
    std::vector<uint16_t> dist(area.size(), uint16_t(cap));
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const qsizetype i = qsizetype(y) * w + x;
            const uchar s = side[i];
            if ((x > 0 && side[i - 1] != s) || (x + 1 < w && side[i + 1] != s) || (y > 0 && side[i - w] != s)
                || (y + 1 < h && side[i + w] != s))
                dist[i] = 0;
        }
    }
    const auto relax = [&](qsizetype i, qsizetype j, int step) {
        const int via = dist[j] + step;
        if (via < dist[i])
            dist[i] = uint16_t(via);
    };
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const qsizetype i = qsizetype(y) * w + x;
            if (x > 0)
                relax(i, i - 1, axial);
            if (y > 0) {
                relax(i, i - w, axial);
                if (x > 0)
                    relax(i, i - w - 1, diagonal);
                if (x + 1 < w)
                    relax(i, i - w + 1, diagonal);
            }
        }
    }
    for (int y = h - 1; y >= 0; --y) {
        for (int x = w - 1; x >= 0; --x) {
            const qsizetype i = qsizetype(y) * w + x;
            if (x + 1 < w)
                relax(i, i + 1, axial);
            if (y + 1 < h) {
                relax(i, i + w, axial);
                if (x + 1 < w)
                    relax(i, i + w + 1, diagonal);
                if (x > 0)
                    relax(i, i + w - 1, diagonal);
            }
        }
    }
    return dist;
}

// Sums of colours and counts over rectangles of picked pixels of one side:
// a summed-area table. Unsigned, so a rectangle's sum is exact even where the
// table's running totals wrap.
class SideSums
{
public:
    template <typename Pick>
    SideSums(const std::vector<QRgb>& photo, const Area& area, Pick pick)
        : m_width(area.width + 1)
        , m_height(area.height + 1)
        , m_table(std::size_t(m_width) * m_height)
    {
        for (int y = 0; y < area.height; ++y) {
            std::array<uint32_t, 4> row {};
            const qsizetype first = qsizetype(y) * area.width;
            const Entry* above = m_table.data() + qsizetype(y) * m_width;
            Entry* line = m_table.data() + qsizetype(y + 1) * m_width;
            for (int x = 0; x < area.width; ++x) {
                if (pick(first + x)) {
                    const QRgb c = photo[first + x];
                    row[0] += uint32_t(qRed(c));
                    row[1] += uint32_t(qGreen(c));
                    row[2] += uint32_t(qBlue(c));
                    row[3] += 1;
                }
                for (int c = 0; c < 4; ++c)
                    line[x + 1][c] = above[x + 1][c] + row[c];
            }
        }
    }

    /** The sum over the square of half-size @p radius round (x, y), cut at the area's border. */
    Sum around(int x, int y, int radius) const
    {
        const int left = std::max(0, x - radius), right = std::min(m_width - 1, x + radius + 1);
        const int top = std::max(0, y - radius), bottom = std::min(m_height - 1, y + radius + 1);
        const Entry& a = m_table[std::size_t(top) * m_width + left];
        const Entry& b = m_table[std::size_t(top) * m_width + right];
        const Entry& c = m_table[std::size_t(bottom) * m_width + left];
        const Entry& d = m_table[std::size_t(bottom) * m_width + right];
        Sum sum;
        for (int k = 0; k < 4; ++k)
            sum[k] = int(d[k] - b[k] - c[k] + a[k]);
        return sum;
    }

private:
    using Entry = std::array<uint32_t, 4>;
    int m_width;
    int m_height;
    std::vector<Entry> m_table;
};

Colour mean(const Sum& sum)
{
    const float scale = 1.0f / (255.0f * float(sum[3]));
    return Colour {float(sum[0]) * scale, float(sum[1]) * scale, float(sum[2]) * scale};
}

Colour colourOf(QRgb c)
{
    return Colour {float(qRed(c)) / 255.0f, float(qGreen(c)) / 255.0f, float(qBlue(c)) / 255.0f};
}

// Alpha of @p photo on the line from @p background to @p object, leaning on
// the hard value @p hard where the two colours are alike.
float alphaOf(const Colour& photo, const Colour& object, const Colour& background, float hard, float contrast2)
{
    const float dr = object.r - background.r, dg = object.g - background.g, db = object.b - background.b;
    const float distance2 = dr * dr + dg * dg + db * db;
    if (distance2 <= 0.0f)
        return hard;
    const float projected
        = ((photo.r - background.r) * dr + (photo.g - background.g) * dg + (photo.b - background.b) * db) / distance2;
    const float alpha = std::clamp(projected, 0.0f, 1.0f);
    const float trust = distance2 / (distance2 + contrast2);
    return trust * alpha + (1.0f - trust) * hard;
}

// Colour left unexplained when @p alpha mixes @p object over @p background.
float distortion(const Colour& photo, const Colour& object, const Colour& background, float alpha)
{
    const float r = photo.r - (alpha * object.r + (1.0f - alpha) * background.r);
    const float g = photo.g - (alpha * object.g + (1.0f - alpha) * background.g);
    const float b = photo.b - (alpha * object.b + (1.0f - alpha) * background.b);
    return r * r + g * g + b * b;
}

struct Candidates {
    std::array<Colour, 8> colours;
    int count = 0;
};

// Means of one side in eight windows of half-size @p radius centred @p radius
// away round (x, y): on a textured side one of them is closer to the colour a
// band pixel mixes than the mean over all of them.
Candidates ringMeans(const SideSums& sums, int x, int y, int radius)
{
    static constexpr int directions[8][2] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}, {-1, -1}, {1, 1}, {1, -1}, {-1, 1}};
    Candidates result;
    for (const auto& d : directions) {
        const Sum sum = sums.around(x + d[0] * radius, y + d[1] * radius, radius);
        if (sum[3])
            result.colours[result.count++] = mean(sum);
    }
    return result;
}

// Replaces (object, background, alpha) by the pair of candidates whose mix
// explains @p photo best, if one does better.
void bestPair(const Colour& photo, float hard, float contrast2, const Candidates& objects,
    const Candidates& backgrounds, Colour& object, Colour& background, float& alpha)
{
    float best = distortion(photo, object, background, alpha);
    for (int p = 0; p < objects.count; ++p) {
        for (int q = 0; q < backgrounds.count; ++q) {
            const Colour& f = objects.colours[p];
            const Colour& b = backgrounds.colours[q];
            const float a = alphaOf(photo, f, b, hard, contrast2);
            const float d = distortion(photo, f, b, a);
            if (d < best) {
                best = d;
                object = f;
                background = b;
                alpha = a;
            }
        }
    }
}

} // namespace

QImage hardMask(const QImage& mask, const QSize& size)
{
    if (mask.isNull() || size.isEmpty())
        return QImage();
    QImage grey = mask.convertToFormat(QImage::Format_Grayscale8);
    if (grey.size() != size)
        grey = grey.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    bool any = false;
    for (int y = 0; y < grey.height(); ++y) {
        uchar* line = grey.scanLine(y);
        for (int x = 0; x < grey.width(); ++x) {
            line[x] = line[x] >= 128 ? 255 : 0;
            any = any || line[x];
        }
    }
    return any ? grey : QImage();
}

QList<Tile> tiles(const QSize& size)
{
    QList<Tile> result;
    for (int top = 0; top < size.height(); top += tileSize)
        for (int left = 0; left < size.width(); left += tileSize)
            result.append(Tile {left, top, std::min(size.width(), left + tileSize), std::min(size.height(), top + tileSize)});
    return result;
}

void matteTile(const Tile& tile, const Frame& frame)
{
    const QImage& photo = frame.photo;
    const QImage& mask = frame.mask;
    const PXMatteOptions& options = frame.options;

    // The hard cut first; the band overwrites it below.
    for (int y = tile.top; y < tile.bottom; ++y) {
        const QRgb* in = reinterpret_cast<const QRgb*>(photo.constScanLine(y));
        const uchar* hard = mask.constScanLine(y);
        uchar* alpha = frame.alpha + y * frame.alphaStride;
        QRgb* out = reinterpret_cast<QRgb*>(frame.foreground + y * frame.foregroundStride);
        for (int x = tile.left; x < tile.right; ++x) {
            alpha[x] = hard[x];
            out[x] = (in[x] & RGB_MASK) | (QRgb(hard[x]) << 24);
        }
    }

    const int radius = std::clamp(options.bandRadius, 1, PXMatteOptions::maximalBandRadius);
    // Only pixels this close to the outline can join the band.
    const QRect reach = QRect(QPoint(tile.left, tile.top), QPoint(tile.right - 1, tile.bottom - 1))
                            .adjusted(-radius - 1, -radius - 1, radius + 1, radius + 1)
                            .intersected(photo.rect());
    bool outline = false;
    for (int y = reach.top(); y <= reach.bottom() && !outline; ++y) {
        const uchar* line = mask.constScanLine(y);
        const uchar* below = y < reach.bottom() ? mask.constScanLine(y + 1) : nullptr;
        for (int x = reach.left(); x <= reach.right() && !outline; ++x)
            outline = (x < reach.right() && line[x] != line[x + 1]) || (below && line[x] != below[x]);
    }
    if (!outline)
        return;
    PXMatteOptions clamped = options;
    clamped.bandRadius = radius;
    const int halo = haloOf(clamped);
    Area area;
    area.left = std::max(0, tile.left - halo);
    area.top = std::max(0, tile.top - halo);
    area.width = std::min(photo.width(), tile.right + halo) - area.left;
    area.height = std::min(photo.height(), tile.bottom + halo) - area.top;
    const int w = area.width;
    const qsizetype n = area.size();

    std::vector<uchar> side(n);
    std::vector<QRgb> colours(n);
    for (int y = 0; y < area.height; ++y) {
        const uchar* hard = mask.constScanLine(y + area.top) + area.left;
        const QRgb* in = reinterpret_cast<const QRgb*>(photo.constScanLine(y + area.top)) + area.left;
        for (int x = 0; x < w; ++x) {
            side[qsizetype(y) * w + x] = hard[x] ? 1 : 0;
            colours[qsizetype(y) * w + x] = in[x];
        }
    }
    const int bandLimit = axial * radius;
    const int sampleLimit = axial * (radius + sampleRing);
    const std::vector<uint16_t> dist = outlineDistance(side, area, sampleLimit + 1);

    // First estimates of object and background colour: the known pixels just
    // beyond the widest band, seen from anywhere in it.
    const int farRadius = 2 * radius + sampleRing + 1;
    const auto farSample = [&](qsizetype i) { return dist[i] > bandLimit && dist[i] <= sampleLimit; };
    const SideSums objectFar(colours, area, [&](qsizetype i) { return side[i] && farSample(i); });
    const SideSums backgroundFar(colours, area, [&](qsizetype i) { return !side[i] && farSample(i); });
    const float contrast2 = float(3.0 * options.contrast * options.contrast);
    const float uncertainty = float(options.uncertainty);
    std::vector<float> alpha(n);
    for (qsizetype i = 0; i < n; ++i) {
        const float hard = side[i];
        alpha[i] = hard;
        if (dist[i] > bandLimit)
            continue;
        const int x = int(i % w), y = int(i / w);
        const Sum object = objectFar.around(x, y, farRadius), background = backgroundFar.around(x, y, farRadius);
        if (object[3] && background[3])
            alpha[i] = alphaOf(colourOf(colours[i]), mean(object), mean(background), hard, contrast2);
    }

    // The band grows from the outline through pixels not surely on their
    // side, and takes two pixels beyond them: the tail of a soft edge.
    constexpr uchar rimSteps = 2;
    std::vector<uchar> band(n); // 1 + sure pixels passed since the last unsure one
    std::vector<qsizetype> queue;
    for (qsizetype i = 0; i < n; ++i) {
        if (dist[i] == 0) {
            band[i] = 1;
            queue.push_back(i);
        }
    }
    const auto unsure = [&](qsizetype i) {
        return side[i] ? alpha[i] < 1.0f - uncertainty : alpha[i] > uncertainty;
    };
    for (std::size_t next = 0; next < queue.size(); ++next) {
        const qsizetype i = queue[next];
        if (dist[i] > 0 && !unsure(i) && band[i] > rimSteps)
            continue;
        const int x = int(i % w), y = int(i / w);
        const auto visit = [&](qsizetype j) {
            if (!band[j] && dist[j] <= bandLimit) {
                band[j] = unsure(j) ? 1 : uchar(band[i] + 1);
                queue.push_back(j);
            }
        };
        if (x > 0)
            visit(i - 1);
        if (x + 1 < w)
            visit(i + 1);
        if (y > 0)
            visit(i - w);
        if (y + 1 < area.height)
            visit(i + w);
    }

    // Closer estimates from the known pixels within two of the band, where
    // there are any; the first ones elsewhere.
    std::vector<uchar> rim(n);
    for (const qsizetype i : queue) {
        const int x = int(i % w), y = int(i / w);
        for (int v = std::max(0, y - 2); v <= std::min(area.height - 1, y + 2); ++v)
            for (int u = std::max(0, x - 2); u <= std::min(w - 1, x + 2); ++u)
                rim[qsizetype(v) * w + u] = 1;
    }
    const auto nearSample = [&](qsizetype i) { return rim[i] && !band[i]; };
    const SideSums objectNear(colours, area, [&](qsizetype i) { return side[i] && nearSample(i); });
    const SideSums backgroundNear(colours, area, [&](qsizetype i) { return !side[i] && nearSample(i); });

    const float prior = float(options.colourPrior);
    for (int y = tile.top - area.top; y < tile.bottom - area.top; ++y) {
        uchar* alphaOut = frame.alpha + (y + area.top) * frame.alphaStride + area.left;
        QRgb* out = reinterpret_cast<QRgb*>(frame.foreground + (y + area.top) * frame.foregroundStride) + area.left;
        for (int x = tile.left - area.left; x < tile.right - area.left; ++x) {
            const qsizetype i = qsizetype(y) * w + x;
            if (!band[i])
                continue;
            Sum objectSum = objectNear.around(x, y, radius), backgroundSum = backgroundNear.around(x, y, radius);
            if (!objectSum[3])
                objectSum = objectFar.around(x, y, farRadius);
            if (!backgroundSum[3])
                backgroundSum = backgroundFar.around(x, y, farRadius);
            if (!objectSum[3] || !backgroundSum[3])
                continue;
            const Colour c = colourOf(colours[i]);
            Colour f = mean(objectSum), b = mean(backgroundSum);
            float a = alphaOf(c, f, b, float(side[i]), contrast2);
            bestPair(c, float(side[i]), contrast2, ringMeans(objectNear, x, y, radius),
                ringMeans(backgroundNear, x, y, radius), f, b, a);
            // Least squares for the object colour, held near f by the prior.
            const float weight = 1.0f / (a * a + prior);
            const auto solve = [&](float photoC, float objectC, float backgroundC) {
                const float value = (a * (photoC - (1.0f - a) * backgroundC) + prior * objectC) * weight;
                return int(std::clamp(value, 0.0f, 1.0f) * 255.0f + 0.5f);
            };
            const int alphaByte = int(a * 255.0f + 0.5f);
            alphaOut[x] = uchar(alphaByte);
            out[x] = qRgba(solve(c.r, f.r, b.r), solve(c.g, f.g, b.g), solve(c.b, f.b, b.b), alphaByte);
        }
    }
}

} // namespace PXMatteSteps
