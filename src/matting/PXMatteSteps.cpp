#include "PXMatteSteps.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace PXMatteSteps {

namespace {

constexpr int stripHeight = 128;
// Known pixels this far beyond the widest band teach the first colour estimates.
constexpr int sampleRing = 3;
// Chamfer steps: 3 along an axis, 4 along a diagonal (about 3 per pixel).
constexpr int axial = 3;
constexpr int diagonal = 4;

struct Colour {
    float r = 0, g = 0, b = 0;
};

using Sum = std::array<int, 4>; // red, green, blue, count

// The working area of one strip: its rows plus a halo, its columns those
// round the outline.
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

// Sums of @p values over the square of half-size @p radius round every pixel
// (cut at the area's border), in place. Integers, so exact in any order.
void boxSums(std::vector<Sum>& values, const Area& area, int radius)
{
    const int w = area.width, h = area.height;
    std::vector<Sum> row(std::size_t(w) + 1);
    for (int y = 0; y < h; ++y) {
        Sum* line = values.data() + qsizetype(y) * w;
        row[0] = Sum {};
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 4; ++c)
                row[x + 1][c] = row[x][c] + line[x][c];
        for (int x = 0; x < w; ++x) {
            const int a = std::max(0, x - radius), b = std::min(w, x + radius + 1);
            for (int c = 0; c < 4; ++c)
                line[x][c] = row[b][c] - row[a][c];
        }
    }
    std::vector<Sum> column(std::size_t(w) * (h + 1));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 4; ++c)
                column[std::size_t(y + 1) * w + x][c] = column[std::size_t(y) * w + x][c] + values[std::size_t(y) * w + x][c];
    for (int y = 0; y < h; ++y) {
        const int a = std::max(0, y - radius), b = std::min(h, y + radius + 1);
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 4; ++c)
                values[std::size_t(y) * w + x][c] = column[std::size_t(b) * w + x][c] - column[std::size_t(a) * w + x][c];
    }
}

// Mean colours of the pixels of each side that @p sample picks, within
// @p radius of every pixel; count 0 where there are none.
template <typename Pick>
void sideMeans(const std::vector<uchar>& side, const std::vector<QRgb>& photo, const Area& area, int radius,
    Pick sample, std::vector<Sum>& object, std::vector<Sum>& background)
{
    const qsizetype n = area.size();
    object.assign(n, Sum {});
    background.assign(n, Sum {});
    for (qsizetype i = 0; i < n; ++i) {
        if (!sample(i))
            continue;
        const QRgb c = photo[i];
        (side[i] ? object : background)[i] = Sum {qRed(c), qGreen(c), qBlue(c), 1};
    }
    boxSums(object, area, radius);
    boxSums(background, area, radius);
}

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

QList<Strip> strips(int height)
{
    QList<Strip> result;
    for (int top = 0; top < height; top += stripHeight)
        result.append(Strip {top, std::min(height, top + stripHeight)});
    return result;
}

void matteStrip(const Strip& strip, const Frame& frame)
{
    const QImage& photo = frame.photo;
    const QImage& mask = frame.mask;
    const PXMatteOptions& options = frame.options;
    const int photoWidth = photo.width();

    // The hard cut first; the band overwrites it below.
    for (int y = strip.top; y < strip.bottom; ++y) {
        const QRgb* in = reinterpret_cast<const QRgb*>(photo.constScanLine(y));
        const uchar* hard = mask.constScanLine(y);
        uchar* alpha = frame.alpha + y * frame.alphaStride;
        QRgb* out = reinterpret_cast<QRgb*>(frame.foreground + y * frame.foregroundStride);
        for (int x = 0; x < photoWidth; ++x) {
            alpha[x] = hard[x];
            out[x] = (in[x] & RGB_MASK) | (QRgb(hard[x]) << 24);
        }
    }

    const int radius = std::clamp(options.bandRadius, 1, PXMatteOptions::maximalBandRadius);
    PXMatteOptions clamped = options;
    clamped.bandRadius = radius;
    const int halo = haloOf(clamped);
    Area area;
    area.top = std::max(0, strip.top - halo);
    const int bottom = std::min(photo.height(), strip.bottom + halo);
    int first = photoWidth, last = -1;
    for (int y = area.top; y < bottom; ++y) {
        const uchar* line = mask.constScanLine(y);
        const uchar* below = y + 1 < bottom ? mask.constScanLine(y + 1) : nullptr;
        for (int x = 0; x < photoWidth; ++x) {
            if ((x + 1 < photoWidth && line[x] != line[x + 1]) || (below && line[x] != below[x])) {
                first = std::min(first, x);
                last = std::max(last, x + 1);
            }
        }
    }
    if (last < 0)
        return;
    area.left = std::max(0, first - halo);
    area.width = std::min(photoWidth, last + 1 + halo) - area.left;
    area.height = bottom - area.top;
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
    std::vector<Sum> objectSums, backgroundSums;
    sideMeans(side, colours, area, 2 * radius + sampleRing + 1,
        [&](qsizetype i) { return dist[i] > bandLimit && dist[i] <= sampleLimit; }, objectSums, backgroundSums);
    const float contrast2 = float(3.0 * options.contrast * options.contrast);
    const float uncertainty = float(options.uncertainty);
    std::vector<float> alpha(n);
    for (qsizetype i = 0; i < n; ++i) {
        const float hard = side[i];
        alpha[i] = hard;
        if (dist[i] <= bandLimit && objectSums[i][3] && backgroundSums[i][3])
            alpha[i] = alphaOf(colourOf(colours[i]), mean(objectSums[i]), mean(backgroundSums[i]), hard, contrast2);
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
    std::vector<Sum> objectNear, backgroundNear;
    sideMeans(side, colours, area, radius, [&](qsizetype i) { return rim[i] && !band[i]; }, objectNear,
        backgroundNear);

    const float prior = float(options.colourPrior);
    const int coreTop = strip.top - area.top, coreBottom = strip.bottom - area.top;
    for (int y = coreTop; y < coreBottom; ++y) {
        uchar* alphaOut = frame.alpha + (y + area.top) * frame.alphaStride + area.left;
        QRgb* out = reinterpret_cast<QRgb*>(frame.foreground + (y + area.top) * frame.foregroundStride) + area.left;
        for (int x = 0; x < w; ++x) {
            const qsizetype i = qsizetype(y) * w + x;
            if (!band[i])
                continue;
            const Sum& objectSum = objectNear[i][3] ? objectNear[i] : objectSums[i];
            const Sum& backgroundSum = backgroundNear[i][3] ? backgroundNear[i] : backgroundSums[i];
            if (!objectSum[3] || !backgroundSum[3])
                continue;
            const Colour f = mean(objectSum), b = mean(backgroundSum), c = colourOf(colours[i]);
            const float a = alphaOf(c, f, b, float(side[i]), contrast2);
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
