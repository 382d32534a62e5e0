#include "PXScissorsBlockCosts.h"

#include "BlockPool.h"
#include "PXScissorsKernels.h"

#include <algorithm>
#include <cmath>
#include <cstring>

using PXScissors::BlockPool;

namespace PXScissorsBlockCosts {

namespace {

using Calculator = PXIntelligentScissorsWeightCalculator;

// The sigmoid's slope and centre on the 0..255 cost scale.
constexpr double mySigmoidSlope = 0.05;
constexpr int mySigmoidCentre = 128;

// Integer mean of the k x k square at (k i, k j) clipped to the source; 0 when
// the square lies outside it.
unsigned char partialMean(const unsigned char* source, unsigned int sourceWidth, unsigned int sourceHeight,
    unsigned int k, unsigned int i, unsigned int j)
{
    const unsigned long x0 = static_cast<unsigned long>(k) * i;
    const unsigned long y0 = static_cast<unsigned long>(k) * j;
    if (x0 >= sourceWidth || y0 >= sourceHeight)
        return 0;
    const unsigned long x1 = std::min<unsigned long>(x0 + k, sourceWidth);
    const unsigned long y1 = std::min<unsigned long>(y0 + k, sourceHeight);
    unsigned int sum = 0;
    for (unsigned long y = y0; y < y1; ++y)
        for (unsigned long x = x0; x < x1; ++x)
            sum += source[y * sourceWidth + x];
    return static_cast<unsigned char>(sum / ((x1 - x0) * (y1 - y0)));
}

// Bytes laid out row by row, addressed in reduced-image coordinates.
struct Plane
{
    unsigned char* data;
    unsigned long stride;
    unsigned long left;
    unsigned long top;

    unsigned char* at(unsigned long x, unsigned long y) const { return data + (y - top) * stride + (x - left); }
};

// Grey source row r (of sh) into target, sw bytes.
void greyRow(const SourceImage& source, const BlockArea& area, const PXScissorsKernels::Kernels& kernels,
    unsigned int r, unsigned char* target)
{
    const unsigned char* row = source.bits + (area.sy0 + r) * source.stride;
    // Black padding is known to be black: its grey is 0 without reading it.
    unsigned int count = 0;
    if (area.sy0 + r < source.contentHeight && area.sx0 < source.contentWidth)
        count = static_cast<unsigned int>(std::min<unsigned long>(area.sw, source.contentWidth - area.sx0));
    if (source.format == Calculator::Gray8)
        std::memcpy(target, row + area.sx0, count);
    else if (source.format == Calculator::Xrgb32)
        kernels.grey(row + 4 * area.sx0, target, count);
    else
        count = 0; // formats without a conversion read as black
    std::memset(target + count, 0, area.sw - count);
}

// The reduced image, rw x rh, into reduced. The grey source is made k rows
// at a time into the start of grey, right before they are reduced, so it
// never exists as a whole (for a 2 x 2 reduction that would be four times
// the block's bytes to write and read again).
void reduceStripwise(const SourceImage& source, const BlockArea& area, const PXScissorsKernels::Kernels& kernels,
    Scratch& grey, Scratch& reduced)
{
    const unsigned int k = area.k;
    const unsigned int sw = area.sw;
    for (unsigned int j = 0; j < area.rh; ++j) {
        const unsigned long top = static_cast<unsigned long>(k) * j;
        const unsigned int rows = top < area.sh ? static_cast<unsigned int>(std::min<unsigned long>(k, area.sh - top)) : 0;
        for (unsigned int r = 0; r < rows; ++r)
            greyRow(source, area, kernels, static_cast<unsigned int>(top) + r, grey.data + static_cast<unsigned long>(r) * sw);
        grey.wrote(static_cast<unsigned long>(rows) * sw);

        unsigned char* target = reduced.data + static_cast<unsigned long>(j) * area.rw;
        const unsigned int fullColumns = rows == k ? std::min(area.rw, sw / k) : 0;
        if (fullColumns > 0) {
            const unsigned char* strip[3] = {grey.data, grey.data + sw, grey.data + (k == 3 ? 2ul : 1ul) * sw};
            if (k == 2)
                kernels.reduce2x2(strip[0], strip[1], target, fullColumns);
            else if (k == 3)
                kernels.reduce3x3(strip, target, fullColumns);
        }
        for (unsigned int i = fullColumns; i < area.rw; ++i)
            target[i] = partialMean(grey.data, sw, rows, k, i, 0);
    }
    reduced.wrote(static_cast<unsigned long>(area.rw) * area.rh);
}

// The Sobel costs of the block, w x h, from the reduced image in source into target.
void sobelBlock(const Plane& source, const BlockArea& area, const Grid& grid, const PXScissorsKernels::Kernels& kernels,
    unsigned char* target)
{
    const unsigned long lastColumn = grid.widthReduced - 1;
    const unsigned long lastRow = grid.heightReduced - 1;
    for (unsigned int j = 0; j < area.h; ++j) {
        const unsigned long y = area.y0 + j;
        unsigned char* row = target + static_cast<unsigned long>(j) * area.w;
        // A border pixel: the window of the neighbours that exist.
        auto border = [&](unsigned int i) {
            const unsigned long x = area.x0 + i;
            const unsigned long c0 = x > 0 ? x - 1 : x;
            const unsigned long c1 = std::min(x + 1, lastColumn);
            const unsigned long r0 = y > 0 ? y - 1 : y;
            const unsigned long r1 = std::min(y + 1, lastRow);
            const unsigned char* rows[3];
            for (unsigned long r = r0; r <= r1; ++r)
                rows[r - r0] = source.at(c0, r);
            row[i] = static_cast<unsigned char>(PXScissors::SobelFilterCB(rows, static_cast<unsigned int>(c1 - c0 + 1),
                static_cast<unsigned int>(r1 - r0 + 1), static_cast<unsigned int>(x - c0),
                static_cast<unsigned int>(y - r0), nullptr));
        };
        const bool interiorRow = y > 0 && y < lastRow;
        const unsigned int begin = area.x0 == 0 ? 1 : 0;
        const unsigned int end = area.x0 + area.w == grid.widthReduced ? area.w - 1 : area.w;
        if (!interiorRow || begin >= end) {
            for (unsigned int i = 0; i < area.w; ++i)
                border(i);
            continue;
        }
        for (unsigned int i = 0; i < begin; ++i)
            border(i);
        const unsigned char* rows[3];
        for (int r = 0; r < 3; ++r)
            rows[r] = source.at(area.x0 + begin - 1, y - 1 + r);
        kernels.sobel(rows, row + begin, end - begin);
        for (unsigned int i = end; i < area.w; ++i)
            border(i);
    }
}

// Post-processing and inversion as one byte table, and whether it is the
// identity or the plain inversion, which have faster kernels.
struct CostTable
{
    explicit CostTable(const Settings& settings)
    {
        for (int c = 0; c < 256; ++c) {
            unsigned int value = static_cast<unsigned int>(c);
            if (settings.postProcessing() == Calculator::Sigmoid)
                value = static_cast<unsigned int>(
                    255.0 / (std::exp((mySigmoidCentre - static_cast<int>(value)) * mySigmoidSlope) + 1.0));
            if (settings.invert())
                value = 255 - value;
            bytes[c] = static_cast<unsigned char>(value);
            identity = identity && value == static_cast<unsigned int>(c);
            inversion = inversion && value == static_cast<unsigned int>(255 - c);
        }
    }

    void apply(const PXScissorsKernels::Kernels& kernels, const unsigned char* source, unsigned char* target,
        unsigned int count) const
    {
        if (identity)
            std::memmove(target, source, count);
        else if (inversion)
            kernels.invert(source, target, count);
        else
            kernels.map(source, target, count, bytes);
    }

    unsigned char bytes[256];
    bool identity = true;
    bool inversion = true;
};

} // namespace

BlockArea::BlockArea(const Grid& grid, unsigned int bx, unsigned int by, unsigned int width, unsigned int height,
    unsigned int margin, unsigned int factor)
    : k(factor), x0(static_cast<unsigned long>(bx) * blockSize), y0(static_cast<unsigned long>(by) * blockSize),
      w(width), h(height), rx0(x0 >= margin ? x0 - margin : 0), ry0(y0 >= margin ? y0 - margin : 0)
{
    const unsigned long rx1 = std::min<unsigned long>(grid.widthReduced, x0 + w + margin);
    const unsigned long ry1 = std::min<unsigned long>(grid.heightReduced, y0 + h + margin);
    rw = static_cast<unsigned int>(rx1 - rx0);
    rh = static_cast<unsigned int>(ry1 - ry0);
    sx0 = std::min<unsigned long>(rx0 * k, grid.width);
    sy0 = std::min<unsigned long>(ry0 * k, grid.height);
    sw = static_cast<unsigned int>(std::min<unsigned long>(rx1 * k, grid.width) - sx0);
    sh = static_cast<unsigned int>(std::min<unsigned long>(ry1 * k, grid.height) - sy0);
}

Scratch blockCosts(const SourceImage& source, const Grid& grid, const Settings& settings,
    unsigned int margin, const BlockArea& area)
{
    const PXScissorsKernels::Kernels kernels = PXScissorsKernels::bestKernels();
    const unsigned long side = blockSize + 2ul * margin;
    const unsigned long k = area.k;
    // With a reduction the grey source never exists as a whole (see
    // reduceStripwise); the Sobel filter then needs a block-sized buffer of its own.
    const bool stripwise = k >= 2;
    const bool sobel = settings.edgeDetection() == PXIntelligentScissorsWeightCalculator::Sobel3x3;
    Scratch grey {static_cast<unsigned char*>(
        BlockPool::get(stripwise ? (sobel ? side * side : k * area.sw) : side * k * side * k))};
    Scratch reduced {static_cast<unsigned char*>(BlockPool::get(side * side))};

    Plane current {grey.data, area.sw, area.rx0, area.ry0};
    if (stripwise) {
        reduceStripwise(source, area, kernels, grey, reduced);
        current = Plane {reduced.data, area.rw, area.rx0, area.ry0};
    } else {
        // Grey source, sw x sh, used as it is.
        for (unsigned int r = 0; r < area.sh; ++r)
            greyRow(source, area, kernels, r, grey.data + static_cast<unsigned long>(r) * area.sw);
        grey.wrote(static_cast<unsigned long>(area.sw) * area.sh);
    }
    const unsigned long blockBytes = static_cast<unsigned long>(area.w) * area.h;
    if (sobel) {
        Scratch& target = current.data == grey.data ? reduced : grey;
        sobelBlock(current, area, grid, kernels, target.data);
        target.wrote(blockBytes);
        current = Plane {target.data, area.w, area.x0, area.y0};
    }

    // Without a reduction the result may still lie in the grey source; it
    // moves to the other buffer, which is kept.
    const CostTable table(settings);
    Scratch& result = current.data == grey.data && stripwise ? grey : reduced;
    const unsigned char* first = current.at(area.x0, area.y0);
    if (result.data != current.data || first != current.data || current.stride != area.w || !table.identity) {
        for (unsigned int j = 0; j < area.h; ++j)
            table.apply(kernels, first + static_cast<unsigned long>(j) * current.stride,
                result.data + static_cast<unsigned long>(j) * area.w, area.w);
        result.wrote(blockBytes);
    }
    Scratch& other = &result == &grey ? reduced : grey;
    BlockPool::returnBlock(other.data, 0, other.written);
    return result;
}

} // namespace PXScissorsBlockCosts
