#include "PXMaskGeometry.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr float far = 1e20f;

// One line of the distance transform: @p f becomes the lower envelope of the
// parabolas rooted at its finite values (Felzenszwalb and Huttenlocher).
void transformLine(float* f, int n, std::vector<int>& v, std::vector<double>& z)
{
    int k = -1;
    for (int q = 0; q < n; ++q) {
        if (f[q] >= far)
            continue;
        double s = 0.0;
        while (k >= 0) {
            const int p = v[k];
            s = ((double(f[q]) + double(q) * q) - (double(f[p]) + double(p) * p)) / (2.0 * (q - p));
            if (s > z[k])
                break;
            --k;
        }
        ++k;
        v[k] = q;
        z[k] = k == 0 ? -std::numeric_limits<double>::infinity() : s;
        z[k + 1] = std::numeric_limits<double>::infinity();
    }
    if (k < 0)
        return;
    const std::vector<float> roots(f, f + n);
    k = 0;
    for (int q = 0; q < n; ++q) {
        while (z[k + 1] < double(q))
            ++k;
        const double offset = double(q - v[k]);
        f[q] = float(offset * offset + roots[v[k]]);
    }
}

} // namespace

std::vector<float> squaredDistanceToSet(const QImage& mask)
{
    const int w = mask.width();
    const int h = mask.height();
    std::vector<float> distance(size_t(w) * size_t(h));
    for (int y = 0; y < h; ++y) {
        const uchar* line = mask.constScanLine(y);
        for (int x = 0; x < w; ++x)
            distance[size_t(y) * w + x] = line[x] ? 0.0f : far;
    }
    const int n = std::max(w, h);
    std::vector<float> column(n);
    std::vector<int> v(n);
    std::vector<double> z(n + 1);
    for (int x = 0; x < w; ++x) {
        for (int y = 0; y < h; ++y)
            column[y] = distance[size_t(y) * w + x];
        transformLine(column.data(), h, v, z);
        for (int y = 0; y < h; ++y)
            distance[size_t(y) * w + x] = column[y];
    }
    for (int y = 0; y < h; ++y)
        transformLine(distance.data() + size_t(y) * w, w, v, z);
    return distance;
}

QList<PXMaskArea> connectedAreas(const QImage& mask, std::vector<int>* labels)
{
    const int w = mask.width();
    const int h = mask.height();
    labels->assign(size_t(w) * size_t(h), 0);
    QList<PXMaskArea> areas;
    std::vector<int> stack;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if (!mask.constScanLine(y)[x] || (*labels)[size_t(y) * w + x])
                continue;
            PXMaskArea area;
            area.label = int(areas.size()) + 1;
            int left = x;
            int right = x;
            int top = y;
            int bottom = y;
            (*labels)[size_t(y) * w + x] = area.label;
            stack.assign(1, y * w + x);
            while (!stack.empty()) {
                const int at = stack.back();
                stack.pop_back();
                const int px = at % w;
                const int py = at / w;
                ++area.pixels;
                left = std::min(left, px);
                right = std::max(right, px);
                top = std::min(top, py);
                bottom = std::max(bottom, py);
                const int next[4][2] = {{px - 1, py}, {px + 1, py}, {px, py - 1}, {px, py + 1}};
                for (const auto& n : next) {
                    if (n[0] < 0 || n[1] < 0 || n[0] >= w || n[1] >= h)
                        continue;
                    int& label = (*labels)[size_t(n[1]) * w + n[0]];
                    if (label || !mask.constScanLine(n[1])[n[0]])
                        continue;
                    label = area.label;
                    stack.push_back(n[1] * w + n[0]);
                }
            }
            area.bounds = QRect(QPoint(left, top), QPoint(right, bottom));
            areas.append(area);
        }
    }
    return areas;
}

QList<QPointF> outerBorder(const QImage& mask, QPoint start)
{
    // Moore-neighbour tracing; directions clockwise on screen from east.
    static constexpr int step[8][2] = {{1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}};
    const auto set = [&](int x, int y) {
        return x >= 0 && y >= 0 && x < mask.width() && y < mask.height() && mask.constScanLine(y)[x];
    };
    const auto direction = [](int dx, int dy) {
        for (int i = 0; i < 8; ++i) {
            if (step[i][0] == dx && step[i][1] == dy)
                return i;
        }
        return 0;
    };
    QList<QPointF> border;
    QPoint at = start;
    int back = 4; // entered from the west
    QPoint first(-1, -1);
    for (;;) {
        border.append(QPointF(at.x() + 0.5, at.y() + 0.5));
        QPoint next = at;
        int checked = back;
        for (int k = 1; k <= 8; ++k) {
            const int i = (back + k) % 8;
            if (set(at.x() + step[i][0], at.y() + step[i][1])) {
                next = QPoint(at.x() + step[i][0], at.y() + step[i][1]);
                break;
            }
            checked = i;
        }
        if (next == at)
            return border; // a lone pixel
        // The last unset neighbour seen, as a direction from the next pixel.
        const QPoint behind(at.x() + step[checked][0], at.y() + step[checked][1]);
        const int nextBack = direction(behind.x() - next.x(), behind.y() - next.y());
        if (at == start && next == first) {
            border.removeLast();
            return border;
        }
        if (first.x() < 0)
            first = next;
        at = next;
        back = nextBack;
    }
}
