#include "PXSimulatedUser.h"

#include "PXMaskGeometry.h"
#include "PXQualityCutters.h"
#include "PXQualityScenes.h"

#include <QPainterPath>

#include <algorithm>
#include <vector>

namespace {

// Object that @p selection left out (@p leftOut) or background it took in.
QImage wrongPixels(const QImage& truth, const QImage& selection, bool leftOut)
{
    QImage wrong(truth.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < truth.height(); ++y) {
        const uchar* t = truth.constScanLine(y);
        const uchar* s = selection.constScanLine(y);
        uchar* out = wrong.scanLine(y);
        for (int x = 0; x < truth.width(); ++x)
            out[x] = (leftOut ? t[x] && !s[x] : !t[x] && s[x]) ? 255 : 0;
    }
    return wrong;
}

// The pixel of area @p label farthest from the area's border.
QPoint middle(const std::vector<int>& labels, int width, const PXMaskArea& area)
{
    // One pixel of margin, so that the photo's edge is a border too.
    const QRect box = area.bounds.adjusted(-1, -1, 1, 1);
    QImage outside(box.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < box.height(); ++y) {
        uchar* line = outside.scanLine(y);
        for (int x = 0; x < box.width(); ++x) {
            const QPoint at = box.topLeft() + QPoint(x, y);
            const bool in = area.bounds.contains(at) && labels[size_t(at.y()) * width + at.x()] == area.label;
            line[x] = in ? 0 : 255;
        }
    }
    const std::vector<float> distance = squaredDistanceToSet(outside);
    // A ridge of equally deep pixels (a strip) gives the one nearest its mean.
    const float deepest = *std::max_element(distance.begin(), distance.end());
    QList<QPoint> ridge;
    QPointF mean;
    for (qsizetype i = 0; i < qsizetype(distance.size()); ++i) {
        if (distance[i] == deepest) {
            ridge.append(QPoint(int(i % box.width()), int(i / box.width())));
            mean += ridge.last();
        }
    }
    mean /= double(ridge.size());
    const auto nearMean = [&](QPoint a, QPoint b) {
        const QPointF da = a - mean;
        const QPointF db = b - mean;
        return QPointF::dotProduct(da, da) < QPointF::dotProduct(db, db);
    };
    return box.topLeft() + *std::min_element(ridge.begin(), ridge.end(), nearMean);
}

} // namespace

std::optional<PXCorrection> nextCorrection(const QImage& truth, const QImage& selection)
{
    std::optional<PXCorrection> best;
    for (const bool leftOut : {true, false}) {
        std::vector<int> labels;
        const QList<PXMaskArea> areas = connectedAreas(wrongPixels(truth, selection, leftOut), &labels);
        if (areas.isEmpty())
            continue;
        const PXMaskArea largest = *std::max_element(areas.begin(), areas.end(),
            [](const PXMaskArea& a, const PXMaskArea& b) { return a.pixels < b.pixels; });
        if (best && best->pixels >= largest.pixels)
            continue;
        best = PXCorrection {middle(labels, truth.width(), largest), leftOut, largest.pixels};
    }
    return best;
}

PXUserRun simulateUser(PXCutter& cutter, const QImage& truth, const QImage& firstSelection, int maxStrokes,
    double radius)
{
    PXUserRun run;
    QImage selection = firstSelection;
    for (int strokes = 0;; ++strokes) {
        run.finalIou = selection.isNull() ? 0.0 : intersectionOverUnion(truth, selection);
        if (run.strokesTo90 < 0 && run.finalIou >= 0.90)
            run.strokesTo90 = strokes;
        if (run.finalIou >= 0.95) {
            run.strokesTo95 = strokes;
            return run;
        }
        if (strokes == maxStrokes || selection.isNull())
            return run;
        const std::optional<PXCorrection> correction = nextCorrection(truth, selection);
        if (!correction)
            return run;
        QPainterPath dot;
        dot.addEllipse(QPointF(correction->centre) + QPointF(0.5, 0.5), radius, radius);
        const PXCutAnswer answer = cutter.stroke(dot, correction->object);
        run.strokeMilliseconds.append(answer.milliseconds);
        selection = answer.selection;
    }
}
