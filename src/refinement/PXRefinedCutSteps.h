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
// it. The current selection and the marks are kept apart, one byte per pixel
// of the area, so the area serves every solve of one lasso.
struct Area {
    QRect rect;
    int width = 0;
    int height = 0;
    std::vector<quint32> colour;
    std::vector<int> colourIndex; // the index of its colour among those used inside the lasso; -1 if none
    std::vector<uchar> inside; // may be object
    std::vector<int> label;
    std::vector<uchar> sobel;
    // Mean squared colour difference of 4-neighbours both inside the lasso.
    double contrast = 0.0;

    qsizetype size() const { return qsizetype(width) * height; }
};

// -log p of every colour used inside the lasso, for both models, in the
// order of the used colours.
struct DataCosts {
    std::vector<float> object;
    std::vector<float> background;
};

// Regions split into blocks: the nodes of the region cut.
struct Blocks {
    std::vector<int> node; // per pixel, -1 outside the lasso
    int count = 0;
    std::vector<double> outsideWeight; // smoothness towards the background outside
    struct Link {
        int first;
        int second;
        double weight;
    };
    std::vector<Link> links;
};

// Fills @p area's pixel arrays over area.rect: colour, lasso and region
// label. Returns the colours used inside the lasso (0xRRGGBB, ascending),
// which area.colourIndex numbers.
std::vector<int> readArea(Area& area, const QImage& photo, const QPainterPath& lasso, const QImage& labelImage);

// The Mark values of @p markImage over the area; NoMark without marks.
std::vector<uchar> readMarks(const Area& area, const QImage& markImage);

// The non-zero pixels of @p selectionImage inside the lasso.
std::vector<uchar> readSelection(const Area& area, const QImage& selectionImage);

// Fills area.sobel: the colour Sobel strength of @p photo over area.rect.
void sobelOfArea(Area& area, const QImage& photo);

// Fills area.contrast.
void measureContrast(Area& area);

// The regions inside the lasso split into blocks, and the links between
// blocks weighted by the edge strength between them.
Blocks makeBlocks(const Area& area, const PXRefinedCutOptions& options);

// The pixels of the area inside the lasso whose region is one of @p objectLabels.
std::vector<uchar> selectionOfLabels(const Area& area, const QSet<int>& objectLabels);

// Puts marked pixels on their side: object marks only inside the lasso.
void applyMarks(const Area& area, const std::vector<uchar>& marks, std::vector<uchar>& selection);

// @p side holds 0 for a background pixel, 1 for an object pixel and
// unusedSide for a pixel left out.
DataCosts learnCosts(const Area& area, const std::vector<uchar>& side, const std::vector<int>& usedColours,
    const PXRefinedCutOptions& options);

// How much each pixel leans to a side because of the marks, in nats:
// positive towards the object, negative towards the background, 0 where no
// mark reaches (see PXRefinedCutOptions::strokeReach). Empty without marks.
std::vector<float> claimsOfMarks(const Area& area, const std::vector<uchar>& marks, const PXRefinedCutOptions& options);

// One minimum cut over the blocks, marked pixels held on their side and
// claimed ones leaning to theirs, the smoothness weighed by @p smoothing
// (0: every block takes the side its colours prefer). Returns whether any
// pixel changed sides.
bool cutBlocks(const Area& area, const Blocks& blocks, const DataCosts& costs, const std::vector<uchar>& marks,
    const std::vector<float>& claims, double smoothing, std::vector<uchar>& selection);

// The pixels of @p window the pixel cut may move: those near the outline,
// those a mark reaches, and every pixel of a block whose own colours disagree
// with the side the block took (a region that straddles an edge the blocks
// could not follow). Marked pixels never move; none outside the window does.
std::vector<uchar> pixelsToRecut(const Area& area, const Blocks& blocks, const DataCosts& costs,
    const std::vector<uchar>& marks, const std::vector<float>& claims, const std::vector<uchar>& selection,
    const PXRefinedCutOptions& options, const QRect& window);

// A minimum cut over the pixels of @p movable, with colour contrast as the
// cost of separating neighbours, judged against area.contrast; the other
// pixels hold their side.
void cutPixels(const Area& area, const DataCosts& costs, const std::vector<float>& claims,
    const std::vector<uchar>& movable, const PXRefinedCutOptions& options, std::vector<uchar>& selection);

// The holes of @p selection: background pixels of the lasso, by 4-connected
// pieces, that reach neither its line nor the area's border and hold no
// background mark or claim; with @p moved given, only those holding a pixel
// it sets, and the walk starts from those only.
std::vector<std::vector<qsizetype>> closedHoles(const Area& area, const std::vector<uchar>& marks,
    const std::vector<float>& claims, const std::vector<uchar>& moved, const std::vector<uchar>& selection);

// Puts into the object every hole that @p backgroundCosts do not explain
// better than @p objectCosts by PXRefinedCutOptions::holeEvidence a pixel
// (costs per used colour).
void fillHoles(const Area& area, const std::vector<std::vector<qsizetype>>& holes,
    const std::vector<float>& objectCosts, const std::vector<float>& backgroundCosts,
    const PXRefinedCutOptions& options, std::vector<uchar>& selection);

// Clears in @p movable every pixel of @p window more than @p radius
// (city-block, up to 254) from a non-zero pixel of @p seeds in it.
void keepNear(const Area& area, const std::vector<uchar>& seeds, int radius, const QRect& window,
    std::vector<uchar>& movable);

// What a stroke may change, and where it changed something.
struct StrokeScope {
    QRect window; // empty when the stroke has no marks of its own
    std::vector<uchar> moved; // per pixel of the area
};

// The marks of the stroke that follows a solve: those that contradict it.
struct FreshMarks {
    std::vector<uchar> pixels; // per pixel of the area
    QRect bounds; // empty when the stroke has no marks of its own
};

// The marks of the stroke that follows @p start: those on the side of the
// start they contradict.
FreshMarks freshMarks(const Area& area, const std::vector<uchar>& start, const std::vector<uchar>& marks);

// The unmarked pixels of the lasso whose side in @p start the stroke's own
// marks @p fresh put in doubt: those within @p radius (city-block, up to
// 254) of them; the start's object only while at least half of it stays
// undoubted.
std::vector<uchar> doubtedSides(const Area& area, const std::vector<uchar>& start, const FreshMarks& fresh,
    const std::vector<uchar>& marks, int radius);

// After the block cut of a stroke that started from @p start: keeps the
// start beyond twice the marks' reach (and the band) from the stroke's own
// marks @p fresh, settles the blocks, applies the marks. Returns the window
// that may change and the pixels the stroke moves, marks or claims for the
// other side: where the pixel cut and the holes are to be looked at again.
StrokeScope confineToStroke(const Area& area, const Blocks& blocks, const std::vector<uchar>& start,
    const FreshMarks& fresh, const std::vector<uchar>& marks, const std::vector<float>& claims,
    const PXRefinedCutOptions& options, std::vector<uchar>& selection);

} // namespace PXRefinedCutSteps
