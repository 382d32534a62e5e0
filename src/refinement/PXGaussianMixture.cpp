#include "PXGaussianMixture.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace {

constexpr double myEmptyLogDensity = -50.0;
constexpr double myNegligibleLog = -16.0;
constexpr int myReassignRounds = 2;

int channel(quint32 colour, int index)
{
    return int((colour >> (16 - 8 * index)) & 0xFFu);
}

// Exact sums of one cluster; the covariance follows from them.
struct Sums {
    qint64 count = 0;
    qint64 sum[3] = {};
    qint64 products[6] = {}; // rr, rg, rb, gg, gb, bb

    void add(quint32 colour)
    {
        const qint64 c[3] = {channel(colour, 0), channel(colour, 1), channel(colour, 2)};
        ++count;
        int k = 0;
        for (int i = 0; i < 3; ++i) {
            sum[i] += c[i];
            for (int j = i; j < 3; ++j)
                products[k++] += c[i] * c[j];
        }
    }

    void subtract(const Sums& other)
    {
        count -= other.count;
        for (int i = 0; i < 3; ++i)
            sum[i] -= other.sum[i];
        for (int k = 0; k < 6; ++k)
            products[k] -= other.products[k];
    }

    void meanAndCovariance(double mean[3], double covariance[9], double varianceFloor) const
    {
        const double n = double(count);
        for (int i = 0; i < 3; ++i)
            mean[i] = double(sum[i]) / n;
        int k = 0;
        for (int i = 0; i < 3; ++i) {
            for (int j = i; j < 3; ++j) {
                const double value = double(products[k++]) / n - mean[i] * mean[j];
                covariance[i * 3 + j] = value;
                covariance[j * 3 + i] = value;
            }
        }
        for (int i = 0; i < 3; ++i)
            covariance[i * 4] += varianceFloor;
    }
};

// The principal axis by power iteration from a start that no axis of a real
// covariance is orthogonal to in practice; returns its eigenvalue.
double principalAxis(const double covariance[9], double axis[3])
{
    double v[3] = {0.8, 0.5, 0.33};
    double eigenvalue = 0.0;
    for (int iteration = 0; iteration < 40; ++iteration) {
        double w[3];
        for (int i = 0; i < 3; ++i)
            w[i] = covariance[i * 3] * v[0] + covariance[i * 3 + 1] * v[1] + covariance[i * 3 + 2] * v[2];
        const double norm = std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]);
        if (norm <= 0.0)
            break;
        eigenvalue = norm;
        for (int i = 0; i < 3; ++i)
            v[i] = w[i] / norm;
    }
    for (int i = 0; i < 3; ++i)
        axis[i] = v[i];
    return eigenvalue;
}

} // namespace

// Kept in one piece: every split reads and updates the same running sums and
// cluster indices.
void PXGaussianMixture::learn(const QList<quint32>& colours, int components, double varianceFloor)
{
    const int wanted = std::clamp(components, 1, maximalComponents);
    m_components.clear();
    if (colours.isEmpty())
        return;

    const quint32* colour = colours.constData();
    const qsizetype count = colours.size();
    std::vector<int> cluster(count, 0);
    // Sums are exact, so a split only needs the sums of the colours it moves.
    std::vector<Sums> sums(1);
    for (qsizetype i = 0; i < count; ++i)
        sums[0].add(colour[i]);
    std::vector<bool> splittable {true};
    while (int(sums.size()) < wanted) {
        const int clusters = int(sums.size());
        int widest = -1;
        double widestValue = 0.0;
        double axis[3] = {};
        double mean[3] = {};
        for (int c = 0; c < clusters; ++c) {
            if (!splittable[c] || sums[c].count < 2)
                continue;
            double m[3], covariance[9], a[3];
            sums[c].meanAndCovariance(m, covariance, varianceFloor);
            const double value = principalAxis(covariance, a);
            if (widest < 0 || value > widestValue) {
                widest = c;
                widestValue = value;
                std::copy(a, a + 3, axis);
                std::copy(m, m + 3, mean);
            }
        }
        if (widest < 0)
            break;
        const double threshold = axis[0] * mean[0] + axis[1] * mean[1] + axis[2] * mean[2];
        Sums moved;
        for (qsizetype i = 0; i < count; ++i) {
            if (cluster[i] != widest)
                continue;
            const quint32 c = colour[i];
            if (axis[0] * channel(c, 0) + axis[1] * channel(c, 1) + axis[2] * channel(c, 2) > threshold) {
                cluster[i] = clusters;
                moved.add(c);
            }
        }
        if (moved.count == 0 || moved.count == sums[widest].count) {
            // All colours on one side: undo and never try this cluster again.
            for (qsizetype i = 0; i < count; ++i) {
                if (cluster[i] == clusters)
                    cluster[i] = widest;
            }
            splittable[widest] = false;
            continue;
        }
        sums[widest].subtract(moved);
        sums.push_back(moved);
        splittable.push_back(true);
    }

    const auto build = [&]() {
        m_components.clear();
        for (const Sums& s : sums) {
            if (s.count == 0)
                continue;
            Component component;
            double covariance[9];
            s.meanAndCovariance(component.mean.data(), covariance, varianceFloor);
            const double* a = covariance;
            const double c00 = a[4] * a[8] - a[5] * a[7];
            const double c01 = a[5] * a[6] - a[3] * a[8];
            const double c02 = a[3] * a[7] - a[4] * a[6];
            const double determinant = a[0] * c00 + a[1] * c01 + a[2] * c02;
            const double inv = 1.0 / determinant;
            component.inverse = {c00 * inv, (a[2] * a[7] - a[1] * a[8]) * inv, (a[1] * a[5] - a[2] * a[4]) * inv,
                c01 * inv, (a[0] * a[8] - a[2] * a[6]) * inv, (a[2] * a[3] - a[0] * a[5]) * inv,
                c02 * inv, (a[1] * a[6] - a[0] * a[7]) * inv, (a[0] * a[4] - a[1] * a[3]) * inv};
            component.logWeight = std::log(double(s.count) / double(count))
                - 0.5 * std::log(determinant) - 1.5 * std::log(2.0 * M_PI);
            m_components.append(component);
        }
    };
    build();
    for (int round = 0; round < myReassignRounds; ++round) {
        sums.assign(m_components.size(), Sums());
        for (qsizetype i = 0; i < count; ++i)
            sums[mostLikely(colour[i])].add(colour[i]);
        build();
    }
}

double PXGaussianMixture::componentLog(const Component& component, double red, double green, double blue) const
{
    const double d[3] = {red - component.mean[0], green - component.mean[1], blue - component.mean[2]};
    const auto& m = component.inverse;
    const double q = d[0] * (m[0] * d[0] + m[1] * d[1] + m[2] * d[2])
        + d[1] * (m[3] * d[0] + m[4] * d[1] + m[5] * d[2]) + d[2] * (m[6] * d[0] + m[7] * d[1] + m[8] * d[2]);
    return component.logWeight - 0.5 * q;
}

int PXGaussianMixture::mostLikely(quint32 colour) const
{
    const double red = channel(colour, 0);
    const double green = channel(colour, 1);
    const double blue = channel(colour, 2);
    const Component* components = m_components.constData();
    const int count = int(m_components.size());
    int best = 0;
    double bestValue = -std::numeric_limits<double>::infinity();
    for (int c = 0; c < count; ++c) {
        const double value = componentLog(components[c], red, green, blue);
        if (value > bestValue) {
            bestValue = value;
            best = c;
        }
    }
    return best;
}

double PXGaussianMixture::logDensity(double red, double green, double blue) const
{
    if (m_components.isEmpty())
        return myEmptyLogDensity;
    double logs[maximalComponents] = {};
    int most = 0;
    const Component* components = m_components.constData();
    const int count = int(m_components.size());
    for (int c = 0; c < count; ++c) {
        logs[c] = componentLog(components[c], red, green, blue);
        if (logs[c] > logs[most])
            most = c;
    }
    // log of the sum of e^logs, the largest term factored out. Terms below
    // e^-16 change the sum by less than a millionth; skipping them also
    // spares exp() its slow underflow path for far components.
    double rest = 0.0;
    for (int c = 0; c < count; ++c) {
        const double difference = logs[c] - logs[most];
        if (c != most && difference > myNegligibleLog)
            rest += std::exp(difference);
    }
    return std::max(myEmptyLogDensity, logs[most] + (rest > 0.0 ? std::log1p(rest) : 0.0));
}
