#pragma once

// The refined cut's working data and its steps, as plain functions over plain
// data. Internal header of PXRefinedCut.

#include "PXRefinedCutOptions.h"

#include <QImage>
#include <QPainterPath>
#include <QRect>
#include <QSet>

#include <vector>

namespace PXRefinedCutSteps {

/** The side value of a pixel that teaches neither model. */
constexpr uchar unusedSide = 2;

// The working area: pixel arrays over the lasso's rectangle and a band around
// it. The current selection is kept apart, one byte per pixel of the area.
struct Area {
    QRect rect;
    int width = 0;
    int height = 0;
    std::vector<quint32> colour;
    std::vector<int> bin; // inside the lasso: the index of its colour bin among the used ones
    std::vector<uchar> inside; // may be object
    std::vector<uchar> marks;
    std::vector<int> label;
    std::vector<uchar> sobel;

    qsizetype size() const { return qsizetype(width) * height; }
};

// -log p of every colour bin used inside the lasso, for both models, in the
// order of the used bins.
struct DataCosts {
    std::vector<float> object;
    std::vector<float> background;
};

// Regions split into blocks: the nodes of the region cut.
struct Blocks {
    std::vector<int> node; // per pixel, -1 outside the lasso
    int count = 0;
    std::vector<uchar> marks; // per node, the Mark bits found in it
    std::vector<double> outsideWeight; // smoothness towards the background outside
    struct Link {
        int first;
        int second;
        double weight;
    };
    std::vector<Link> links;
};

// Fills @p area's pixel arrays over area.rect: colour, lasso, region label
// and marks. Colour bins are renumbered among the bins used inside the
// lasso, which are returned.
std::vector<int> readArea(Area& area, const QImage& photo, const QPainterPath& lasso, const QImage& labelImage,
    const QImage& markImage);

// Fills area.sobel: the colour Sobel strength of @p photo over area.rect.
void sobelOfArea(Area& area, const QImage& photo);

// The regions inside the lasso split into blocks, and the links between
// blocks weighted by the edge strength between them.
Blocks makeBlocks(const Area& area, const PXRefinedCutOptions& options);

// The pixels of the area inside the lasso whose region is one of @p objectLabels.
std::vector<uchar> selectionOfLabels(const Area& area, const QSet<int>& objectLabels);

// Puts marked pixels on their side: object marks only inside the lasso.
void applyMarks(const Area& area, std::vector<uchar>& selection);

// @p side holds 0 for a background pixel, 1 for an object pixel and
// unusedSide for a pixel left out.
DataCosts learnCosts(const Area& area, const std::vector<uchar>& side, const std::vector<int>& usedBins,
    const PXRefinedCutOptions& options);

// One minimum cut over the blocks; returns whether any block changed sides.
bool cutBlocks(const Area& area, const Blocks& blocks, const DataCosts& costs, std::vector<uchar>& selection);

// Whether the object shrank to a sliver of the lasso: the models learnt from
// the superpixel cut were wrong.
bool lostObject(const std::vector<uchar>& selection, qsizetype insidePixels);

// A minimum cut over the pixels near the outline, with colour contrast as
// the cost of separating neighbours.
void cutBand(
    const Area& area, const DataCosts& costs, const PXRefinedCutOptions& options, std::vector<uchar>& selection);

} // namespace PXRefinedCutSteps
