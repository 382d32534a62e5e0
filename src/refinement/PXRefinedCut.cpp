#include "PXRefinedCut.h"

#include "PXConcurrent.h"
#include "PXRefinedCutSteps.h"

#include <algorithm>
#include <cmath>

using namespace PXRefinedCutSteps;

// All of the cut that needs neither object labels nor marks. Immutable once
// made, so strokes share it.
struct PXRefinedCut::Prepared {
    QSize photoSize;
    Area area; // empty when the lasso misses the photo
    std::vector<int> usedColours;
    Blocks blocks;
    // Background costs learnt from the band outside the lasso alone.
    std::vector<float> outsideBackground;
};

namespace {

// One pixel's share of the evidence is capped: a few far outliers would
// otherwise speak for the whole lasso.
constexpr double myEvidenceCap = 8.0;

// Where one first guess of the object led.
struct Solution {
    std::vector<uchar> object;
    DataCosts costs;
};

// Whether the object shrank to a sliver of the lasso.
bool lostObject(const Area& area, const std::vector<uchar>& object)
{
    qsizetype inside = 0;
    qsizetype selected = 0;
    for (qsizetype i = 0; i < area.size(); ++i) {
        inside += area.inside[i];
        selected += object[i];
    }
    return selected * 10 < inside;
}

// The share of the smoothness the colours can carry: where the two models
// tell the sides apart by little (an object in the background's own
// colours), the full smoothness would cut the object away.
double smoothingFor(const Area& area, const DataCosts& costs, const PXRefinedCutOptions& options)
{
    double evidence = 0.0;
    qsizetype inside = 0;
    for (qsizetype i = 0; i < area.size(); ++i) {
        if (!area.inside[i])
            continue;
        const int colour = area.colourIndex[i];
        evidence += std::min(std::abs(double(costs.background[colour]) - costs.object[colour]), myEvidenceCap);
        ++inside;
    }
    if (inside == 0 || options.clearEvidence <= 0.0)
        return 1.0;
    return std::clamp(evidence / double(inside) / options.clearEvidence, options.weakestSmoothing, 1.0);
}

} // namespace

std::shared_ptr<const PXRefinedCut::Prepared> PXRefinedCut::makePrepared() const
{
    auto prepared = std::make_shared<Prepared>();
    if (m_photo.isNull())
        return prepared;
    const QImage photo = m_photo.depth() == 32 ? m_photo : m_photo.convertToFormat(QImage::Format_ARGB32);
    prepared->photoSize = photo.size();
    Area& area = prepared->area;
    const QRect lassoRect = m_lasso.boundingRect().toAlignedRect().intersected(photo.rect());
    const int band = std::max(0, m_options.outerBand);
    area.rect = lassoRect.adjusted(-band, -band, band, band).intersected(photo.rect());
    if (lassoRect.isEmpty() || area.rect.isEmpty()) {
        area.rect = QRect();
        return prepared;
    }
    area.width = area.rect.width();
    area.height = area.rect.height();
    prepared->usedColours = readArea(area, photo, m_lasso, m_labels);
    sobelOfArea(area, photo);
    measureContrast(area);
    prepared->blocks = makeBlocks(area, m_options);
    std::vector<uchar> outside(area.size());
    for (qsizetype i = 0; i < area.size(); ++i)
        outside[i] = area.inside[i] ? unusedSide : 0;
    prepared->outsideBackground = learnCosts(area, outside, prepared->usedColours, m_options).background;
    return prepared;
}

void PXRefinedCut::prepare()
{
    if (!m_prepared)
        m_prepared = makePrepared();
}

void PXRefinedCut::setPhoto(const QImage& photo)
{
    m_photo = photo;
    m_prepared.reset();
}

void PXRefinedCut::setLasso(const QPainterPath& lasso)
{
    // A copy of its own: a QPainterPath caches its bounds on first use,
    // unguarded, and the cut reads it on other threads than its owner's.
    m_lasso = QPainterPath();
    m_lasso.setFillRule(lasso.fillRule());
    m_lasso.addPath(lasso);
    m_prepared.reset();
}

void PXRefinedCut::setRegions(const QImage& labels, const QSet<int>& objectLabels)
{
    m_labels = labels;
    m_objectLabels = objectLabels;
    m_prepared.reset();
}

void PXRefinedCut::setObjectLabels(const QSet<int>& objectLabels)
{
    m_objectLabels = objectLabels;
}

void PXRefinedCut::setMarks(const QImage& marks)
{
    m_marks = marks;
}

void PXRefinedCut::setStartSelection(const QImage& selection)
{
    m_startSelection = selection;
}

void PXRefinedCut::setOptions(const PXRefinedCutOptions& options)
{
    m_options = options;
    m_prepared.reset();
}

void PXRefinedCut::setProgressFunction(const std::function<void()>& progress)
{
    m_progress = progress;
}

void PXRefinedCut::setCancelFunction(const std::function<bool()>& cancelled)
{
    m_cancelled = cancelled;
}

QImage PXRefinedCut::run() const
{
    if (m_photo.isNull())
        return QImage();
    const std::shared_ptr<const Prepared> prepared = m_prepared ? m_prepared : makePrepared();
    const auto cancelled = [this]() { return m_cancelled && m_cancelled(); };
    const auto progress = [this]() {
        if (m_progress)
            m_progress();
    };

    QImage selection(prepared->photoSize, QImage::Format_Grayscale8);
    selection.fill(0);
    const Area& area = prepared->area;
    if (area.rect.isEmpty()) {
        for (int step = 0; step < progressSteps; ++step)
            progress();
        return selection;
    }
    const std::vector<uchar> marks = readMarks(area, m_marks);
    const std::vector<float> claims = claimsOfMarks(area, marks, m_options);

    // A stroke starts from the last solve. Near the stroke's own marks the
    // user says that solve was wrong: there it teaches neither model, or a
    // wrong part would keep the colours it taught the other side.
    std::vector<uchar> start;
    FreshMarks fresh;
    std::vector<uchar> doubted;
    if (!m_startSelection.isNull()) {
        start = readSelection(area, m_startSelection);
        fresh = freshMarks(area, start, marks);
        doubted = doubtedSides(area, start, fresh, marks, 2 * m_options.strokeReach);
    }

    // Follows one first guess of the object: its object teaches the object
    // model, the band outside the lasso (and, from a stroke's selection, the
    // rest of the lasso) the background, and what the marks reach their
    // side's; then cuts and learns again until no pixel moves.
    const auto teacher = [&](const std::vector<uchar>& object, bool restTeaches) {
        std::vector<uchar> sides(area.size());
        for (qsizetype i = 0; i < area.size(); ++i) {
            const bool silent = restTeaches ? !doubted.empty() && doubted[i]
                                            : area.inside[i] && marks[i] == NoMark && !object[i];
            sides[i] = silent ? unusedSide : object[i];
            if (!claims.empty() && claims[i] != 0.0f && area.inside[i])
                sides[i] = claims[i] > 0.0f ? 1 : 0;
        }
        return sides;
    };
    const auto follow = [&](std::vector<uchar> object, bool restTeaches, bool lassoAlone) {
        applyMarks(area, marks, object);
        Solution solution;
        solution.costs = learnCosts(area, teacher(object, restTeaches), prepared->usedColours, m_options);
        // A stroke starts from a solved cut: one round lets its marks speak.
        const int rounds = restTeaches ? 1 : (lassoAlone ? m_options.roundsFromLasso : m_options.rounds);
        for (int round = 0; round < std::max(1, rounds); ++round) {
            if (round > 0)
                solution.costs = learnCosts(area, teacher(object, true), prepared->usedColours, m_options);
            // With the lasso alone the colours of the two sides differ little
            // at first: they part by colour alone, then under less smoothness.
            const double smoothing = lassoAlone && round == 0 ? 0.0 : smoothingFor(area, solution.costs, m_options);
            if (!cutBlocks(area, prepared->blocks, solution.costs, marks, claims, smoothing, object) || cancelled())
                break;
        }
        solution.object = std::move(object);
        return solution;
    };
    Solution solution;
    std::vector<uchar> moved;
    QRect window(0, 0, area.width, area.height);
    if (!start.empty()) {
        solution = follow(start, true, false);
        StrokeScope scope =
            confineToStroke(area, prepared->blocks, start, fresh, marks, claims, m_options, solution.object);
        moved = std::move(scope.moved);
        window = scope.window;
    } else {
        solution = follow(selectionOfLabels(area, m_objectLabels), false, false);
        // Should the superpixel cut have lost the object, its models explain
        // nothing: the whole lasso is the first guess instead, as the lasso
        // is all the user said. Measured on the quality composites, choosing
        // between both guesses by their energies picked the lasso's where it
        // was worse, so it only stands in for a lost object.
        if (lostObject(area, solution.object) && !cancelled())
            solution = follow(area.inside, false, true);
    }
    progress();
    if (cancelled())
        return QImage();

    std::vector<uchar> movable =
        pixelsToRecut(area, prepared->blocks, solution.costs, marks, claims, solution.object, m_options, window);
    // After a stroke only what it moved is cut again pixel by pixel; elsewhere
    // the last solve's outline stands.
    if (!moved.empty())
        keepNear(area, moved, m_options.bandRadius, window, movable);
    progress();
    if (cancelled())
        return QImage();

    cutPixels(area, solution.costs, claims, movable, m_options, solution.object);
    if (cancelled())
        return QImage();
    // Holes are weighed against the background seen outside the lasso only:
    // a part of the object the first guess left out has taught the inside's
    // background model its colours.
    const std::vector<std::vector<qsizetype>> holes = closedHoles(area, marks, claims, moved, solution.object);
    fillHoles(area, holes, solution.costs.object, prepared->outsideBackground, m_options, solution.object);
    progress();
    if (cancelled())
        return QImage();

    for (int y = 0; y < area.height; ++y) {
        uchar* out = selection.scanLine(y + area.rect.top()) + area.rect.left();
        const uchar* in = solution.object.data() + qsizetype(y) * area.width;
        for (int x = 0; x < area.width; ++x)
            out[x] = in[x] ? 255 : 0;
    }
    return selection;
}
