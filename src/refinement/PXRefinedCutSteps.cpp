#include "PXRefinedCutSteps.h"

#include "PXConcurrent.h"
#include "PXCutGraph.h"
#include "PXEdgeDetectorSobelColor.h"
#include "PXGaussianMixture.h"
#include "PXRefinedCut.h"

#include <QPainter>
#include <QtAlgorithms>

#include <algorithm>
#include <cmath>

using PXRefinedCutSteps::Area;
using PXRefinedCutSteps::Blocks;
using PXRefinedCutSteps::DataCosts;
using PXRefinedCutSteps::unusedSide;

namespace {

// One bit per 24-bit colour, 64 a word.
constexpr int myColourWords = (1 << 24) / 64;
constexpr int mySliceRows = 64;
constexpr int myNodeChunk = 4096;
constexpr qsizetype myColourChunk = 512;
// A pixel whose two colour costs differ by more than this (nats) clearly
// prefers one side.
constexpr float myClearPreference = 2.0f;
// Squared colour distances of neighbours whose band weight is tabulated.
constexpr int myTabulatedDistances = 4096;

int squaredColourDistance(quint32 first, quint32 second)
{
    int sum = 0;
    for (int shift = 0; shift <= 16; shift += 8) {
        const int d = int((first >> shift) & 0xFF) - int((second >> shift) & 0xFF);
        sum += d * d;
    }
    return sum;
}

// Calls @p visit with the index of every pixel of @p window.
template <typename Visit>
void eachPixelOf(const Area& area, const QRect& window, Visit visit)
{
    for (int y = window.top(); y <= window.bottom(); ++y) {
        const qsizetype row = qsizetype(y) * area.width;
        for (qsizetype i = row + window.left(); i <= row + window.right(); ++i)
            visit(i);
    }
}

// The bounding rectangle of the pixels of @p window for which @p take(i)
// holds; empty when there are none.
template <typename Take>
QRect boundsOf(const Area& area, const QRect& window, Take take)
{
    int left = window.right() + 1, top = window.bottom() + 1, right = -1, bottom = -1;
    for (int y = window.top(); y <= window.bottom(); ++y) {
        for (int x = window.left(); x <= window.right(); ++x) {
            if (take(qsizetype(y) * area.width + x)) {
                left = std::min(left, x), right = std::max(right, x);
                top = std::min(top, y), bottom = std::max(bottom, y);
            }
        }
    }
    return right < 0 ? QRect() : QRect(QPoint(left, top), QPoint(right, bottom));
}

// City-block distance to the nearest zero of @p distance within @p window,
// capped at the values it holds (the cap + 1 elsewhere). Two chamfer passes;
// in each row the term from the neighbouring row comes first, as it does not
// depend on the row's own updates. No value exceeds the cap: each is a
// minimum with what was there.
void chamfer(const Area& area, const QRect& window, std::vector<uchar>& distance)
{
    const int w = area.width;
    const int left = window.left();
    const int right = window.right();
    for (int y = window.top(); y <= window.bottom(); ++y) {
        uchar* out = distance.data() + qsizetype(y) * w;
        if (y > window.top()) {
            const uchar* above = out - w;
            for (int x = left; x <= right; ++x)
                out[x] = std::min<uchar>(out[x], uchar(above[x] + 1));
        }
        for (int x = left + 1; x <= right; ++x)
            out[x] = std::min<uchar>(out[x], uchar(out[x - 1] + 1));
    }
    for (int y = window.bottom(); y >= window.top(); --y) {
        uchar* out = distance.data() + qsizetype(y) * w;
        if (y < window.bottom()) {
            const uchar* below = out + w;
            for (int x = left; x <= right; ++x)
                out[x] = std::min<uchar>(out[x], uchar(below[x] + 1));
        }
        for (int x = right - 1; x >= left; --x)
            out[x] = std::min<uchar>(out[x], uchar(out[x + 1] + 1));
    }
}

// City-block distance to the outline of the selection within @p window,
// capped at limit + 1 (as everywhere outside it).
std::vector<uchar> distanceToOutline(
    const Area& area, const std::vector<uchar>& selection, int limit, const QRect& window)
{
    const int w = area.width;
    const int h = area.height;
    std::vector<uchar> distance(area.size(), uchar(limit + 1));
    // Outline pixels: a 4-neighbour lies on the other side. Beyond the border
    // a pixel's own side stands in for the missing neighbour.
    for (int y = window.top(); y <= window.bottom(); ++y) {
        const uchar* row = selection.data() + qsizetype(y) * w;
        const uchar* above = y > 0 ? row - w : row;
        const uchar* below = y + 1 < h ? row + w : row;
        uchar* out = distance.data() + qsizetype(y) * w;
        for (int x = window.left(); x <= window.right(); ++x) {
            const uchar side = row[x];
            const uchar left = x > 0 ? row[x - 1] : side;
            const uchar right = x + 1 < w ? row[x + 1] : side;
            if (left != side || right != side || above[x] != side || below[x] != side)
                out[x] = 0;
        }
    }
    chamfer(area, window, distance);
    return distance;
}

} // namespace

void PXRefinedCutSteps::sobelOfArea(Area& area, const QImage& photo)
{
    // One pixel more on each side, so the strength of the area's own border
    // pixels is computed too.
    const QRect grown = area.rect.adjusted(-1, -1, 1, 1).intersected(photo.rect());
    const QImage source = photo.copy(grown);
    QImage strength(source.size(), QImage::Format_ARGB32);
    strength.fill(0xFF000000u);
    QList<PXEdgeDetectorSobelSlice> slices;
    for (int first = 1; first < source.height() - 2; first += mySliceRows) {
        PXEdgeDetectorSobelSlice slice;
        slice.source = source;
        slice.sobel = strength.bits();
        slice.firstRow = first;
        slice.endRow = std::min(first + mySliceRows, source.height() - 2);
        slices.append(slice);
    }
    PXConcurrent::blockingMap(slices, [](PXEdgeDetectorSobelSlice& slice) {
        PXEdgeDetectorSobelColor::createSobelSlice(&slice);
    });
    area.sobel.assign(area.size(), 0);
    const QPoint offset = area.rect.topLeft() - grown.topLeft();
    for (int y = 0; y < area.height; ++y) {
        const auto* line = reinterpret_cast<const quint32*>(strength.constScanLine(y + offset.y()));
        uchar* out = area.sobel.data() + qsizetype(y) * area.width;
        for (int x = 0; x < area.width; ++x)
            out[x] = uchar(line[x + offset.x()] & 0xFF);
    }
}

void PXRefinedCutSteps::measureContrast(Area& area)
{
    // Over the whole inside, not the band the pixel cut works on: the band
    // lies on the outline, and against its greater contrast every edge
    // looked weak, so the cut smoothed strands of fur away with the gaps
    // between them.
    struct Sum {
        qint64 squares = 0;
        qint64 pairs = 0;
    };
    const int w = area.width;
    const auto rows = PXConcurrent::ranges(0, area.height, mySliceRows);
    const auto sums = PXConcurrent::blockingMapped<QList<Sum>>(rows, [&](const PXConcurrent::Range& range) {
        Sum sum;
        for (qsizetype y = range.first; y < range.second; ++y) {
            for (qsizetype i = y * w; i < (y + 1) * w; ++i) {
                if (!area.inside[i])
                    continue;
                if (i % w + 1 < w && area.inside[i + 1]) {
                    sum.squares += squaredColourDistance(area.colour[i], area.colour[i + 1]);
                    ++sum.pairs;
                }
                if (y + 1 < area.height && area.inside[i + w]) {
                    sum.squares += squaredColourDistance(area.colour[i], area.colour[i + w]);
                    ++sum.pairs;
                }
            }
        }
        return sum;
    });
    // Whole numbers: the same total in any order.
    Sum total;
    for (const Sum& sum : sums) {
        total.squares += sum.squares;
        total.pairs += sum.pairs;
    }
    area.contrast = total.pairs > 0 ? double(total.squares) / double(total.pairs) : 0.0;
}

DataCosts PXRefinedCutSteps::learnCosts(const Area& area, const std::vector<uchar>& side,
    const std::vector<int>& usedColours, const PXRefinedCutOptions& options)
{
    const qsizetype samples = std::max(1, options.sampleSize);
    qsizetype objectCount = 0;
    qsizetype backgroundCount = 0;
    for (qsizetype i = 0; i < area.size(); ++i) {
        objectCount += side[i] == 1;
        backgroundCount += side[i] == 0;
    }
    const qsizetype objectStep = std::max<qsizetype>(1, objectCount / samples);
    const qsizetype backgroundStep = std::max<qsizetype>(1, backgroundCount / samples);
    struct Model {
        QList<quint32> colours;
        PXGaussianMixture mixture;
    };
    QList<Model> models(2); // background, object
    // Every step-th pixel of a side, counted down rather than divided.
    qsizetype objectSkip = 0;
    qsizetype backgroundSkip = 0;
    for (qsizetype i = 0; i < area.size(); ++i) {
        if (side[i] == 1) {
            if (objectSkip == 0) {
                models[1].colours.append(area.colour[i] & 0xFFFFFF);
                objectSkip = objectStep;
            }
            --objectSkip;
        } else if (side[i] == 0) {
            if (backgroundSkip == 0) {
                models[0].colours.append(area.colour[i] & 0xFFFFFF);
                backgroundSkip = backgroundStep;
            }
            --backgroundSkip;
        }
    }
    PXConcurrent::blockingMap(models, [&](Model& model) {
        model.mixture.learn(model.colours, options.components, options.varianceFloor);
    });
    const PXGaussianMixture& objectModel = models[1].mixture;
    const PXGaussianMixture& backgroundModel = models[0].mixture;

    DataCosts costs;
    costs.object.resize(usedColours.size());
    costs.background.resize(usedColours.size());
    QList<PXConcurrent::Range> chunks = PXConcurrent::ranges(0, qsizetype(usedColours.size()), myColourChunk);
    // Every colour is written by one chunk only.
    PXConcurrent::blockingMap(chunks, [&](const PXConcurrent::Range& chunk) {
        for (qsizetype k = chunk.first; k < chunk.second; ++k) {
            const int colour = usedColours[k];
            const double red = (colour >> 16) & 0xFF;
            const double green = (colour >> 8) & 0xFF;
            const double blue = colour & 0xFF;
            costs.object[k] = float(-objectModel.logDensity(red, green, blue));
            costs.background[k] = float(-backgroundModel.logDensity(red, green, blue));
        }
    });
    return costs;
}

// Kept in one piece: nodes and their links come out of one scan of the area.
Blocks PXRefinedCutSteps::makeBlocks(const Area& area, const PXRefinedCutOptions& options)
{
    const int blockSize = std::max(1, options.blockSize);
    const double smoothness = options.smoothness;
    Blocks blocks;
    blocks.node.assign(area.size(), -1);
    const int blocksPerRow = (area.width + blockSize - 1) / blockSize;
    const int blockRows = (area.height + blockSize - 1) / blockSize;
    // The labels met in each block so far, with their nodes; blocks hold few.
    std::vector<std::vector<std::pair<int, int>>> seen(qsizetype(blocksPerRow) * blockRows);
    for (int y = 0; y < area.height; ++y) {
        for (int x = 0; x < area.width; ++x) {
            const qsizetype i = qsizetype(y) * area.width + x;
            if (!area.inside[i])
                continue;
            auto& list = seen[qsizetype(y / blockSize) * blocksPerRow + x / blockSize];
            const int label = area.label[i];
            int node = -1;
            for (const auto& entry : list) {
                if (entry.first == label) {
                    node = entry.second;
                    break;
                }
            }
            if (node < 0) {
                node = blocks.count++;
                list.emplace_back(label, node);
            }
            blocks.node[i] = node;
        }
    }
    blocks.outsideWeight.assign(blocks.count, 0.0);

    // Separating two pixels costs little across a strong edge.
    double sumOfSquares = 0.0;
    qsizetype pairs = 0;
    for (qsizetype i = 0; i < area.size(); ++i) {
        if (area.inside[i]) {
            sumOfSquares += double(area.sobel[i]) * area.sobel[i];
            ++pairs;
        }
    }
    const double beta = sumOfSquares > 0.0 ? 0.5 * double(pairs) / sumOfSquares : 0.0;
    // The strength is a byte: one exp per value, not per pixel pair.
    double weightOfStrength[256];
    for (int value = 0; value < 256; ++value) {
        const double s = value;
        weightOfStrength[value] = smoothness * std::exp(-beta * s * s);
    }
    const auto weight = [&](qsizetype a, qsizetype b) {
        return weightOfStrength[std::max(area.sobel[a], area.sobel[b])];
    };
    std::vector<std::vector<std::pair<int, double>>> neighbours(blocks.count);
    const auto addPair = [&](qsizetype a, qsizetype b) {
        const int first = blocks.node[a];
        const int second = blocks.node[b];
        if (first == second)
            return;
        if (first < 0 || second < 0) {
            const int node = first < 0 ? second : first;
            blocks.outsideWeight[node] += weight(a, b);
            return;
        }
        auto& list = neighbours[std::min(first, second)];
        const int other = std::max(first, second);
        for (auto& entry : list) {
            if (entry.first == other) {
                entry.second += weight(a, b);
                return;
            }
        }
        list.emplace_back(other, weight(a, b));
    };
    for (int y = 0; y < area.height; ++y) {
        for (int x = 0; x < area.width; ++x) {
            const qsizetype i = qsizetype(y) * area.width + x;
            if (x + 1 < area.width)
                addPair(i, i + 1);
            if (y + 1 < area.height)
                addPair(i, i + area.width);
        }
    }
    for (int node = 0; node < blocks.count; ++node) {
        for (const auto& entry : neighbours[node])
            blocks.links.push_back({node, entry.first, entry.second});
    }
    return blocks;
}

bool PXRefinedCutSteps::cutBlocks(const Area& area, const Blocks& blocks, const DataCosts& costs,
    const std::vector<uchar>& marks, const std::vector<float>& claims, double smoothing, std::vector<uchar>& selection)
{
    std::vector<double> objectCost(blocks.count, 0.0);
    std::vector<double> backgroundCost(blocks.count, 0.0);
    std::vector<uchar> nodeMarks(blocks.count, 0);
    for (qsizetype i = 0; i < area.size(); ++i) {
        const int node = blocks.node[i];
        if (node < 0)
            continue;
        const int colour = area.colourIndex[i];
        objectCost[node] += costs.object[colour];
        backgroundCost[node] += costs.background[colour];
        nodeMarks[node] |= marks[i];
        if (!claims.empty())
            (claims[i] > 0.0f ? backgroundCost[node] : objectCost[node]) += std::abs(claims[i]);
    }
    PXCutGraph graph;
    graph.addNodes(blocks.count);
    for (int node = 0; node < blocks.count; ++node) {
        double object = objectCost[node] + smoothing * blocks.outsideWeight[node];
        double background = backgroundCost[node];
        // A block with marks of one kind only is held on that side; the
        // pixels themselves are held below whatever the block does.
        if (nodeMarks[node] == PXRefinedCut::ObjectMark)
            background += PXCutGraph::hardWeight;
        else if (nodeMarks[node] == PXRefinedCut::BackgroundMark)
            object += PXCutGraph::hardWeight;
        graph.addTerminalWeights(node, object, background);
    }
    for (const Blocks::Link& link : blocks.links)
        graph.addEdge(link.first, link.second, smoothing * link.weight);
    graph.solve();
    std::vector<uchar> nodeIsObject(blocks.count);
    for (int node = 0; node < blocks.count; ++node)
        nodeIsObject[node] = graph.isObject(node);

    bool moved = false;
    for (qsizetype i = 0; i < area.size(); ++i) {
        const int node = blocks.node[i];
        uchar object = node >= 0 && nodeIsObject[node];
        if (marks[i] == PXRefinedCut::ObjectMark && area.inside[i])
            object = 1;
        else if (marks[i] == PXRefinedCut::BackgroundMark)
            object = 0;
        moved |= object != selection[i];
        selection[i] = object;
    }
    return moved;
}

namespace {

// Adds the pull of one kind of mark to @p claims: a bucket-ordered search
// from the marked pixels through the lasso, where entering a pixel costs 1
// plus its edge strength squared / 256, so that a path soon runs out across
// a strong edge. Only the window the marks can reach is walked.
void addPull(const Area& area, const std::vector<uchar>& marks, uchar kind, float pull, int reach,
    std::vector<float>& claims)
{
    const int w = area.width;
    const int h = area.height;
    const QRect marked = boundsOf(area, QRect(0, 0, w, h), [&](qsizetype i) { return marks[i] == kind; });
    if (marked.isEmpty())
        return;
    const QRect window = marked.adjusted(-reach, -reach, reach, reach).intersected(QRect(0, 0, w, h));
    const int ww = window.width();
    std::vector<int> distance(qsizetype(ww) * window.height(), reach + 1);
    std::vector<std::vector<int>> buckets(reach + 1);
    const auto areaIndex = [&](int index) {
        return qsizetype(index / ww + window.top()) * w + index % ww + window.left();
    };
    for (int index = 0; index < int(distance.size()); ++index) {
        const qsizetype i = areaIndex(index);
        if (marks[i] == kind && area.inside[i]) {
            distance[index] = 0;
            buckets[0].push_back(index);
        }
    }
    constexpr int dx[4] = {1, 0, -1, 0};
    constexpr int dy[4] = {0, 1, 0, -1};
    for (int d = 0; d <= reach; ++d) {
        // Steps cost at least 1, so nothing is added to the bucket walked.
        for (const int index : buckets[d]) {
            if (distance[index] != d)
                continue;
            const int x = index % ww;
            const int y = index / ww;
            for (int k = 0; k < 4; ++k) {
                const int nx = x + dx[k];
                const int ny = y + dy[k];
                if (nx < 0 || ny < 0 || nx >= ww || ny >= window.height())
                    continue;
                const int next = ny * ww + nx;
                const qsizetype j = areaIndex(next);
                if (!area.inside[j])
                    continue;
                const int strength = area.sobel[j];
                const int nd = d + 1 + (strength * strength >> 8);
                if (nd < distance[next]) {
                    distance[next] = nd;
                    if (nd <= reach)
                        buckets[nd].push_back(next);
                }
            }
        }
        std::vector<int>().swap(buckets[d]);
    }
    for (int index = 0; index < int(distance.size()); ++index) {
        if (distance[index] <= reach)
            claims[areaIndex(index)] += pull * float(reach + 1 - distance[index]) / float(reach + 1);
    }
}

} // namespace

std::vector<float> PXRefinedCutSteps::claimsOfMarks(
    const Area& area, const std::vector<uchar>& marks, const PXRefinedCutOptions& options)
{
    const int reach = std::min(options.strokeReach, 4096);
    if (reach <= 0 || std::find_if(marks.begin(), marks.end(), [](uchar m) { return m != 0; }) == marks.end())
        return {};
    std::vector<float> claims(area.size(), 0.0f);
    const float pull = float(options.strokePull);
    addPull(area, marks, PXRefinedCut::ObjectMark, pull, reach, claims);
    addPull(area, marks, PXRefinedCut::BackgroundMark, -pull, reach, claims);
    return claims;
}

std::vector<uchar> PXRefinedCutSteps::pixelsToRecut(const Area& area, const Blocks& blocks, const DataCosts& costs,
    const std::vector<uchar>& marks, const std::vector<float>& claims, const std::vector<uchar>& selection,
    const PXRefinedCutOptions& options, const QRect& window)
{
    // Distances are bytes.
    const int bandRadius = std::clamp(options.bandRadius, 0, 254);
    std::vector<uchar> distance = distanceToOutline(area, selection, bandRadius, window);
    // Per block, the pixels whose colour clearly prefers the other side.
    std::vector<int> disagreeing(blocks.count, 0);
    std::vector<int> pixels(blocks.count, 0);
    eachPixelOf(area, window, [&](qsizetype i) {
        const int node = blocks.node[i];
        if (node < 0)
            return;
        const int colour = area.colourIndex[i];
        const float preference = costs.background[colour] - costs.object[colour]; // > 0: object
        ++pixels[node];
        disagreeing[node] += selection[i] ? preference < -myClearPreference : preference > myClearPreference;
    });
    const double share = options.recutShare;
    std::vector<uchar> movable(area.size(), 0);
    eachPixelOf(area, window, [&](qsizetype i) {
        const int node = blocks.node[i];
        const bool straddles = node >= 0 && disagreeing[node] > 0 && disagreeing[node] >= share * pixels[node];
        const bool claimed = !claims.empty() && claims[i] != 0.0f;
        movable[i] = area.inside[i] && marks[i] == PXRefinedCut::NoMark
            && (distance[i] <= bandRadius || straddles || claimed);
    });
    return movable;
}

void PXRefinedCutSteps::cutPixels(const Area& area, const DataCosts& costs, const std::vector<float>& claims,
    const std::vector<uchar>& movable, const PXRefinedCutOptions& options, std::vector<uchar>& selection)
{
    const double smoothness = options.smoothness;
    const int w = area.width;
    // Nodes are numbered in pixel order; the passes below walk the band's
    // pixels through pixelOfNode instead of the whole area.
    std::vector<int> node(area.size(), -1);
    std::vector<qsizetype> pixelOfNode;
    for (qsizetype i = 0; i < area.size(); ++i) {
        if (movable[i]) {
            node[i] = int(pixelOfNode.size());
            pixelOfNode.push_back(i);
        }
    }
    const int count = int(pixelOfNode.size());
    if (count == 0)
        return;

    const double beta = area.contrast > 0.0 ? 0.5 / area.contrast : 0.0;
    // The weights are computed by slices of nodes in parallel, then added
    // to the graph in pixel order. Four neighbours a pixel: on the quality
    // composites eight gave the same IoU and 0.001 more boundary F for twice
    // the edges.
    struct NodeWeights {
        double object;
        double background;
        double forward[2]; // towards the right and lower neighbours that are nodes
    };
    std::vector<NodeWeights> weights(count);
    constexpr int dx[4] = {1, 0, -1, 0};
    constexpr int dy[4] = {0, 1, 0, -1};
    // Most neighbours differ little: their weights come from a table made
    // with the same expression, and only the rare far pairs call exp().
    std::vector<double> weightOfDistance(myTabulatedDistances);
    for (int d = 0; d < myTabulatedDistances; ++d)
        weightOfDistance[d] = smoothness * std::exp(-beta * double(d));
    const auto pairWeight = [&](int squaredDistance) {
        return squaredDistance < myTabulatedDistances ? weightOfDistance[squaredDistance]
                                                      : smoothness * std::exp(-beta * double(squaredDistance));
    };
    QList<PXConcurrent::Range> slices = PXConcurrent::ranges(0, count, myNodeChunk);
    PXConcurrent::blockingMap(slices, [&](const PXConcurrent::Range& nodes) {
        for (int n = int(nodes.first); n < nodes.second; ++n) {
            const qsizetype i = pixelOfNode[n];
            const int x = int(i % w);
            const int y = int(i / w);
            NodeWeights& out = weights[n];
            const int colour = area.colourIndex[i];
            out.object = costs.object[colour];
            out.background = costs.background[colour];
            if (!claims.empty())
                (claims[i] > 0.0f ? out.background : out.object) += std::abs(claims[i]);
            for (int k = 0; k < 4; ++k) {
                if (k < 2)
                    out.forward[k] = 0.0;
                const int nx = x + dx[k];
                const int ny = y + dy[k];
                if (nx < 0 || ny < 0 || nx >= w || ny >= area.height)
                    continue;
                const qsizetype j = qsizetype(ny) * w + nx;
                // Pairs of nodes once, from the first two directions.
                if (node[j] >= 0 && k >= 2)
                    continue;
                const double weight = pairWeight(squaredColourDistance(area.colour[i], area.colour[j]));
                if (node[j] >= 0)
                    out.forward[k] = weight;
                else if (selection[j])
                    out.background += weight;
                else
                    out.object += weight;
            }
        }
    });

    PXCutGraph graph;
    graph.addNodes(count);
    for (int n = 0; n < count; ++n) {
        const qsizetype i = pixelOfNode[n];
        const NodeWeights& in = weights[n];
        for (int k = 0; k < 2; ++k) {
            if (in.forward[k] > 0.0)
                graph.addEdge(n, node[i + qsizetype(dy[k]) * w + dx[k]], in.forward[k]);
        }
        graph.addTerminalWeights(n, in.object, in.background);
    }
    graph.solve();
    for (int n = 0; n < count; ++n)
        selection[pixelOfNode[n]] = graph.isObject(n);
}

std::vector<std::vector<qsizetype>> PXRefinedCutSteps::closedHoles(const Area& area,
    const std::vector<uchar>& marks, const std::vector<float>& claims, const std::vector<uchar>& moved,
    const std::vector<uchar>& selection)
{
    const int w = area.width;
    enum Seen : uchar { Unseen, Walked, Open };
    std::vector<uchar> seen(area.size(), Unseen);
    std::vector<std::vector<qsizetype>> holes;
    std::vector<qsizetype> hole;
    for (qsizetype start = 0; start < area.size(); ++start) {
        if (seen[start] != Unseen || selection[start] || !area.inside[start] || (!moved.empty() && !moved[start]))
            continue;
        hole.clear();
        hole.push_back(start);
        seen[start] = Walked;
        bool open = false;
        // A walk stops where it finds the piece open: the piece's pixels
        // walked so far say so to later walks that reach them.
        for (std::size_t next = 0; next < hole.size() && !open; ++next) {
            const qsizetype i = hole[next];
            const int x = int(i % w), y = int(i / w);
            open = marks[i] == PXRefinedCut::BackgroundMark || (!claims.empty() && claims[i] < 0.0f);
            const qsizetype neighbours[4] = {x > 0 ? i - 1 : -1, x + 1 < w ? i + 1 : -1, y > 0 ? i - w : -1,
                y + 1 < area.height ? i + w : -1};
            for (const qsizetype j : neighbours) {
                if (j < 0 || !area.inside[j] || seen[j] == Open) {
                    open = true;
                } else if (!selection[j] && seen[j] == Unseen) {
                    seen[j] = Walked;
                    hole.push_back(j);
                }
            }
        }
        if (open) {
            for (const qsizetype i : hole)
                seen[i] = Open;
        } else {
            holes.push_back(hole);
        }
    }
    return holes;
}

void PXRefinedCutSteps::fillHoles(const Area& area, const std::vector<std::vector<qsizetype>>& holes,
    const std::vector<float>& objectCosts, const std::vector<float>& backgroundCosts,
    const PXRefinedCutOptions& options, std::vector<uchar>& selection)
{
    for (const std::vector<qsizetype>& hole : holes) {
        double preference = 0.0; // nats, > 0: the object explains the hole better
        for (const qsizetype i : hole)
            preference += double(backgroundCosts[area.colourIndex[i]]) - objectCosts[area.colourIndex[i]];
        if (preference > -options.holeEvidence * double(hole.size())) {
            for (const qsizetype i : hole)
                selection[i] = 1;
        }
    }
}

namespace {

// Every block of @p window that stayed on the side most of its pixels had in
// @p start, or that the outline ran through, gives its pixels back their
// sides in @p start: an outline the pixel cut found stays where nothing
// moved. Blocks are counted by their pixels in the window.
void settleBlocks(const Area& area, const Blocks& blocks, const QRect& window, const std::vector<uchar>& start,
    std::vector<uchar>& selection)
{
    // Per block: pixels, and those the start had in the object.
    std::vector<int> pixels(blocks.count, 0);
    std::vector<int> object(blocks.count, 0);
    eachPixelOf(area, window, [&](qsizetype i) {
        const int node = blocks.node[i];
        if (node < 0)
            return;
        ++pixels[node];
        object[node] += start[i] != 0;
    });
    eachPixelOf(area, window, [&](qsizetype i) {
        const int node = blocks.node[i];
        if (node < 0)
            return;
        // A block the outline ran through is the pixel cut's to decide.
        const bool mixed = 4 * object[node] > pixels[node] && 4 * object[node] < 3 * pixels[node];
        if (mixed || bool(selection[i]) == (2 * object[node] >= pixels[node]))
            selection[i] = start[i];
    });
}

} // namespace

void PXRefinedCutSteps::keepNear(const Area& area, const std::vector<uchar>& seeds, int radius, const QRect& window,
    std::vector<uchar>& movable)
{
    const int limit = std::clamp(radius, 0, 254);
    std::vector<uchar> distance(area.size(), uchar(limit + 1));
    const QRect seeded = boundsOf(area, window, [&](qsizetype i) {
        if (seeds[i])
            distance[i] = 0;
        return seeds[i] != 0;
    });
    // Only the seeds' neighbourhood can come within reach.
    if (!seeded.isEmpty())
        chamfer(area, seeded.adjusted(-limit, -limit, limit, limit).intersected(window), distance);
    eachPixelOf(area, window, [&](qsizetype i) { movable[i] = movable[i] && distance[i] <= limit; });
}

PXRefinedCutSteps::FreshMarks PXRefinedCutSteps::freshMarks(
    const Area& area, const std::vector<uchar>& start, const std::vector<uchar>& marks)
{
    // Marks hold their pixels, so the last solve obeyed every older mark:
    // the stroke's own are those on the other side of the start.
    FreshMarks fresh;
    fresh.pixels.assign(area.size(), 0);
    fresh.bounds = boundsOf(area, QRect(0, 0, area.width, area.height), [&](qsizetype i) {
        fresh.pixels[i] = start[i] ? marks[i] == PXRefinedCut::BackgroundMark
                                   : marks[i] == PXRefinedCut::ObjectMark && area.inside[i];
        return fresh.pixels[i] != 0;
    });
    return fresh;
}

std::vector<uchar> PXRefinedCutSteps::doubtedSides(const Area& area, const std::vector<uchar>& start,
    const FreshMarks& fresh, const std::vector<uchar>& marks, int radius)
{
    std::vector<uchar> doubted(area.size(), 0);
    if (fresh.bounds.isEmpty())
        return doubted;
    // Only the marks' neighbourhood can come within the radius.
    const QRect window =
        fresh.bounds.adjusted(-radius, -radius, radius, radius).intersected(QRect(0, 0, area.width, area.height));
    eachPixelOf(area, window, [&](qsizetype i) { doubted[i] = 1; });
    keepNear(area, fresh.pixels, radius, window, doubted);
    qsizetype object = 0;
    qsizetype doubtedObject = 0;
    for (qsizetype i = 0; i < area.size(); ++i) {
        doubted[i] = doubted[i] && area.inside[i] && marks[i] == PXRefinedCut::NoMark;
        object += start[i];
        doubtedObject += start[i] && doubted[i];
    }
    // A stroke corrects a part of the object, not all of it: the object
    // model needs the rest to learn from.
    if (2 * doubtedObject > object) {
        for (qsizetype i = 0; i < area.size(); ++i)
            doubted[i] = doubted[i] && !start[i];
    }
    return doubted;
}

PXRefinedCutSteps::StrokeScope PXRefinedCutSteps::confineToStroke(const Area& area, const Blocks& blocks,
    const std::vector<uchar>& start, const FreshMarks& fresh, const std::vector<uchar>& marks,
    const std::vector<float>& claims, const PXRefinedCutOptions& options, std::vector<uchar>& selection)
{
    StrokeScope scope;
    scope.moved.assign(area.size(), 0);
    const int reach = std::clamp(2 * options.strokeReach + options.bandRadius, 0, 254);
    const QRect all(0, 0, area.width, area.height);
    // The window of what may change, with a margin of a block and the band:
    // blocks its edge cuts, and outline distances it cannot see, lie beyond
    // the focus and beyond the band round it.
    const int margin = std::max(1, options.blockSize) + std::max(0, options.bandRadius) + 1;
    if (!fresh.bounds.isEmpty())
        scope.window =
            fresh.bounds.adjusted(-reach - margin, -reach - margin, reach + margin, reach + margin).intersected(all);
    // Beyond the window the start stands as it was.
    for (int y = 0; y < area.height; ++y) {
        const qsizetype row = qsizetype(y) * area.width;
        const bool inRows = y >= scope.window.top() && y <= scope.window.bottom();
        for (int x = 0; x < area.width; ++x) {
            if (!inRows || x < scope.window.left() || x > scope.window.right())
                selection[row + x] = start[row + x];
        }
    }
    if (scope.window.isEmpty())
        return scope;
    settleBlocks(area, blocks, scope.window, start, selection);
    std::vector<uchar> focus(area.size(), 1);
    keepNear(area, fresh.pixels, reach, scope.window, focus);
    eachPixelOf(area, scope.window, [&](qsizetype i) {
        if (!focus[i])
            selection[i] = start[i];
        else if (marks[i] == PXRefinedCut::ObjectMark && area.inside[i])
            selection[i] = 1;
        else if (marks[i] == PXRefinedCut::BackgroundMark)
            selection[i] = 0;
        const bool claimsOther = !claims.empty() && (start[i] ? claims[i] < 0.0f : claims[i] > 0.0f);
        scope.moved[i] = focus[i] && (selection[i] != start[i] || claimsOther || fresh.pixels[i]);
    });
    return scope;
}

std::vector<int> PXRefinedCutSteps::readArea(
    Area& area, const QImage& photo, const QPainterPath& lasso, const QImage& labelImage)
{
    QImage insideImage(area.rect.size(), QImage::Format_ARGB32_Premultiplied);
    insideImage.fill(Qt::black);
    {
        // Rasterised as the superpixel cut does, only shifted to the area.
        QPainter painter(&insideImage);
        painter.translate(-area.rect.topLeft());
        painter.fillPath(lasso, QBrush(QColor(0xFFFFFFFFu)));
    }
    const bool hasLabels = labelImage.size() == photo.size() && labelImage.depth() == 32;

    const qsizetype n = area.size();
    area.colour.resize(n);
    area.colourIndex.resize(n);
    area.inside.resize(n);
    area.label.assign(n, 0);
    // Which colours occur inside the lasso: one bit per 24-bit colour.
    std::vector<quint64> colourUsed(myColourWords, 0);
    for (int y = 0; y < area.height; ++y) {
        const int py = y + area.rect.top();
        const auto* rgb = reinterpret_cast<const quint32*>(photo.constScanLine(py)) + area.rect.left();
        const auto* in = reinterpret_cast<const quint32*>(insideImage.constScanLine(y));
        const auto* labels = hasLabels ? reinterpret_cast<const qint32*>(labelImage.constScanLine(py)) + area.rect.left()
                                       : nullptr;
        for (int x = 0; x < area.width; ++x) {
            const qsizetype i = qsizetype(y) * area.width + x;
            const quint32 colour = rgb[x] & 0xFFFFFFu;
            area.colour[i] = rgb[x];
            area.inside[i] = in[x] == 0xFFFFFFFFu;
            // Only pixels inside the lasso are ever costed.
            if (area.inside[i])
                colourUsed[colour >> 6] |= quint64(1) << (colour & 63);
            if (labels)
                area.label[i] = labels[x];
        }
    }
    // A colour's index among the used ones is the number of used colours
    // below it: the set bits of the words before and of its own word below it.
    std::vector<int> usedColours;
    std::vector<int> usedBefore(myColourWords);
    for (int word = 0; word < myColourWords; ++word) {
        usedBefore[word] = int(usedColours.size());
        for (quint64 bits = colourUsed[word]; bits != 0; bits &= bits - 1)
            usedColours.push_back(word * 64 + qCountTrailingZeroBits(bits));
    }
    for (qsizetype i = 0; i < n; ++i) {
        const quint32 colour = area.colour[i] & 0xFFFFFFu;
        const quint64 bits = colourUsed[colour >> 6];
        const quint64 bit = quint64(1) << (colour & 63);
        area.colourIndex[i] = (bits & bit) ? usedBefore[colour >> 6] + qPopulationCount(bits & (bit - 1)) : -1;
    }
    return usedColours;
}

std::vector<uchar> PXRefinedCutSteps::selectionOfLabels(const Area& area, const QSet<int>& objectLabels)
{
    int largestLabel = 0;
    for (int label : objectLabels)
        largestLabel = std::max(largestLabel, label);
    std::vector<uchar> isObjectLabel(qsizetype(largestLabel) + 1, 0);
    for (int label : objectLabels) {
        if (label > 0)
            isObjectLabel[label] = 1;
    }
    std::vector<uchar> selection(area.size(), 0);
    for (qsizetype i = 0; i < area.size(); ++i) {
        const int label = area.label[i];
        selection[i] = area.inside[i] && label > 0 && label <= largestLabel && isObjectLabel[label];
    }
    return selection;
}

void PXRefinedCutSteps::applyMarks(const Area& area, const std::vector<uchar>& marks, std::vector<uchar>& selection)
{
    for (qsizetype i = 0; i < area.size(); ++i) {
        if (marks[i] == PXRefinedCut::ObjectMark && area.inside[i])
            selection[i] = 1;
        else if (marks[i] == PXRefinedCut::BackgroundMark)
            selection[i] = 0;
    }
}

namespace {

// The bytes of an 8-bit image over the area, as @p keep maps them; 0 where
// the image does not fit the photo.
template<typename Keep>
std::vector<uchar> readBytes(const PXRefinedCutSteps::Area& area, const QImage& image, Keep keep)
{
    std::vector<uchar> values(area.size(), 0);
    if (image.format() != QImage::Format_Grayscale8 || !QRect(QPoint(), image.size()).contains(area.rect))
        return values;
    for (int y = 0; y < area.height; ++y) {
        const uchar* in = image.constScanLine(y + area.rect.top()) + area.rect.left();
        const qsizetype row = qsizetype(y) * area.width;
        for (int x = 0; x < area.width; ++x)
            values[row + x] = keep(in[x], row + x);
    }
    return values;
}

} // namespace

std::vector<uchar> PXRefinedCutSteps::readMarks(const Area& area, const QImage& markImage)
{
    return readBytes(area, markImage, [](uchar value, qsizetype) {
        return value <= PXRefinedCut::BackgroundMark ? value : uchar(PXRefinedCut::NoMark);
    });
}

std::vector<uchar> PXRefinedCutSteps::readSelection(const Area& area, const QImage& selectionImage)
{
    return readBytes(area, selectionImage, [&](uchar value, qsizetype i) { return uchar(value && area.inside[i]); });
}
