#include "PXSelectionMask.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace PXSelectionMask {

namespace {

constexpr float myFar = std::numeric_limits<float>::max() / 4;

QImage grey(const QImage& image)
{
    return image.format() == QImage::Format_Grayscale8 ? image : image.convertToFormat(QImage::Format_Grayscale8);
}

// One pass of the lower envelope of parabolas (Felzenszwalb and Huttenlocher):
// squared distances along a line, in place. O(n).
void distanceLine(float* values, qsizetype count, qsizetype step, std::vector<float>& f, std::vector<int>& v,
    std::vector<float>& z)
{
    for (qsizetype i = 0; i < count; ++i)
        f[i] = values[i * step];
    int k = 0;
    v[0] = 0;
    z[0] = -myFar;
    z[1] = myFar;
    for (int q = 1; q < count; ++q) {
        if (f[q] >= myFar)
            continue;
        while (true) {
            const int p = v[k];
            if (f[p] >= myFar) {
                // The first parabola may be an empty one; replace it.
                v[k] = q;
                z[k] = -myFar;
                z[k + 1] = myFar;
                break;
            }
            const float s = ((f[q] + float(q) * q) - (f[p] + float(p) * p)) / (2.0f * (q - p));
            if (s <= z[k]) {
                if (k == 0) {
                    v[0] = q;
                    z[0] = -myFar;
                    z[1] = myFar;
                    break;
                }
                --k;
                continue;
            }
            ++k;
            v[k] = q;
            z[k] = s;
            z[k + 1] = myFar;
            break;
        }
    }
    if (f[v[0]] >= myFar)
        return; // no feature on this line: all stay far
    k = 0;
    for (int q = 0; q < count; ++q) {
        while (z[k + 1] < q)
            ++k;
        const float d = float(q - v[k]);
        values[q * step] = d * d + f[v[k]];
    }
}

// Squared Euclidean distance of every pixel to the nearest pixel whose
// selected state (value >= 128) is @p featureSelected.
std::vector<float> squaredDistance(const QImage& selection, bool featureSelected)
{
    const int width = selection.width();
    const int height = selection.height();
    std::vector<float> d(size_t(width) * height);
    for (int y = 0; y < height; ++y) {
        const uchar* line = selection.constScanLine(y);
        for (int x = 0; x < width; ++x)
            d[size_t(y) * width + x] = ((line[x] >= 128) == featureSelected) ? 0.0f : myFar;
    }
    const int longest = std::max(width, height);
    std::vector<float> f(longest);
    std::vector<int> v(longest);
    std::vector<float> z(longest + 1);
    for (int x = 0; x < width; ++x)
        distanceLine(d.data() + x, height, width, f, v, z);
    for (int y = 0; y < height; ++y)
        distanceLine(d.data() + size_t(y) * width, width, 1, f, v, z);
    return d;
}

template <typename Function>
QImage mapped(const QImage& selection, Function function)
{
    QImage result(selection.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < selection.height(); ++y) {
        const uchar* in = selection.constScanLine(y);
        uchar* out = result.scanLine(y);
        for (int x = 0; x < selection.width(); ++x)
            out[x] = function(in[x], size_t(y) * selection.width() + x);
    }
    return result;
}

template <typename Function>
QImage combined(const QImage& a, const QImage& b, Function function)
{
    if (a.isNull() || a.size() != b.size())
        return QImage();
    const QImage first = grey(a);
    const QImage second = grey(b);
    QImage result(a.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < a.height(); ++y) {
        const uchar* x1 = first.constScanLine(y);
        const uchar* x2 = second.constScanLine(y);
        uchar* out = result.scanLine(y);
        for (int x = 0; x < a.width(); ++x)
            out[x] = function(x1[x], x2[x]);
    }
    return result;
}

// Pixels within @p pixels of the object (@p object) or of the background
// (!@p object) join it: growing and shrinking are one step, mirrored.
QImage claimedWithin(const QImage& selection, int pixels, bool object)
{
    if (selection.isNull())
        return QImage();
    const QImage source = grey(selection);
    if (pixels < 1)
        return source;
    const std::vector<float> distance = squaredDistance(source, object);
    const float reach = float(pixels) * pixels;
    const uchar claimed = object ? 255 : 0;
    return mapped(source, [&distance, reach, claimed](uchar value, size_t i) {
        return distance[i] <= reach ? claimed : value;
    });
}

} // namespace

QImage fromMask(const QImage& mask)
{
    if (mask.isNull())
        return QImage();
    const QImage argb = mask.convertToFormat(QImage::Format_ARGB32);
    QImage result(mask.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < argb.height(); ++y) {
        const QRgb* in = reinterpret_cast<const QRgb*>(argb.constScanLine(y));
        uchar* out = result.scanLine(y);
        for (int x = 0; x < argb.width(); ++x)
            out[x] = uchar(255 - qAlpha(in[x]));
    }
    return result;
}

QImage fromSaved(const QImage& saved)
{
    if (saved.isNull())
        return QImage();
    if (saved.hasAlphaChannel()) {
        const QImage selection = fromMask(saved);
        // All opaque: an ordinary picture with an unused alpha channel.
        for (int y = 0; y < selection.height(); ++y) {
            const uchar* line = selection.constScanLine(y);
            if (std::any_of(line, line + selection.width(), [](uchar value) { return value != 0; }))
                return selection;
        }
    }
    return saved.convertToFormat(QImage::Format_Grayscale8);
}

QImage toMask(const QImage& selection, const QColor& colour)
{
    if (selection.isNull())
        return QImage();
    const QImage source = grey(selection);
    QImage result(source.size(), QImage::Format_ARGB32_Premultiplied);
    const QRgb opaque = colour.rgb();
    for (int y = 0; y < source.height(); ++y) {
        const uchar* in = source.constScanLine(y);
        QRgb* out = reinterpret_cast<QRgb*>(result.scanLine(y));
        for (int x = 0; x < source.width(); ++x) {
            const int alpha = 255 - in[x];
            out[x] = alpha == 255 ? opaque
                                  : qPremultiply(qRgba(qRed(opaque), qGreen(opaque), qBlue(opaque), alpha));
        }
    }
    return result;
}

QImage united(const QImage& a, const QImage& b)
{
    return combined(a, b, [](uchar x, uchar y) { return std::max(x, y); });
}

QImage subtracted(const QImage& a, const QImage& b)
{
    return combined(a, b, [](uchar x, uchar y) { return std::min<uchar>(x, uchar(255 - y)); });
}

QImage grown(const QImage& selection, int pixels)
{
    return claimedWithin(selection, pixels, true);
}

QImage shrunk(const QImage& selection, int pixels)
{
    return claimedWithin(selection, pixels, false);
}

QImage feathered(const QImage& selection, qreal radius)
{
    if (selection.isNull())
        return QImage();
    const QImage source = grey(selection);
    if (!(radius > 0))
        return source;
    const std::vector<float> toObject = squaredDistance(source, true);
    const std::vector<float> toBackground = squaredDistance(source, false);
    return mapped(source, [&](uchar value, size_t i) {
        // Signed distance to the outline, which runs half a pixel outside
        // the outermost selected pixels.
        const double signedDistance = value >= 128 ? std::sqrt(double(toBackground[i])) - 0.5
                                                   : 0.5 - std::sqrt(double(toObject[i]));
        const double level = std::clamp(0.5 + signedDistance / radius, 0.0, 1.0);
        return uchar(std::lround(level * 255));
    });
}

double selectedShare(const QImage& selection)
{
    if (selection.isNull())
        return 0;
    const QImage source = grey(selection);
    qint64 selected = 0;
    for (int y = 0; y < source.height(); ++y) {
        const uchar* line = source.constScanLine(y);
        selected += std::count_if(line, line + source.width(), [](uchar value) { return value >= 128; });
    }
    return double(selected) / (qint64(source.width()) * source.height());
}

} // namespace PXSelectionMask
