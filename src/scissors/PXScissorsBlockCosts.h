#pragma once

// The steps that turn one block of the image into cost bytes, as plain
// functions over plain data. Internal header of the weight calculator.

#include "PXIntelligentScissorsWeightCalculator.h"

#include <algorithm>

namespace PXScissorsBlockCosts {

using Settings = PXIntelligentScissorsWeightCalculator::Settings;

/** Side of a block, in reduced pixels. */
constexpr unsigned int blockSize = 4096;

// The full-resolution and the reduced size of the image.
struct Grid
{
    unsigned int width;
    unsigned int height;
    unsigned int widthReduced;
    unsigned int heightReduced;
};

// The caller's pixel rows; those at or past the content size are zero.
struct SourceImage
{
    const unsigned char* bits;
    unsigned long stride;
    PXIntelligentScissorsWeightCalculator::DataFormat format;
    unsigned int contentWidth;
    unsigned int contentHeight;
};

// A buffer from BlockPool and how many of its bytes were written, so that
// BlockPool clears no more than that when it comes back.
struct Scratch
{
    unsigned char* data = nullptr;
    unsigned long written = 0;

    void wrote(unsigned long bytes) { written = std::max(written, bytes); }
};

// One block in reduced pixels (x0, y0, w, h); the same grown by the margin
// where the image goes on (r*); and the full-resolution source under that,
// clipped to the image (s*).
struct BlockArea
{
    BlockArea(const Grid& grid, unsigned int bx, unsigned int by, unsigned int width, unsigned int height,
        unsigned int margin, unsigned int factor);

    unsigned int k;
    unsigned long x0, y0;
    unsigned int w, h;
    unsigned long rx0, ry0;
    unsigned int rw = 0, rh = 0;
    unsigned long sx0 = 0, sy0 = 0;
    unsigned int sw = 0, sh = 0;
};

/**
 * The cost bytes of one block, w x h row-major, in a BlockPool buffer that
 * the caller owns: grey conversion, reduction, Sobel, sigmoid and inversion
 * as @p settings ask. The scratch buffer not kept goes back to the pool.
 * Runs without locks; @p source must stay alive meanwhile.
 */
Scratch blockCosts(const SourceImage& source, const Grid& grid, const Settings& settings, unsigned int margin,
    const BlockArea& area);

} // namespace PXScissorsBlockCosts
