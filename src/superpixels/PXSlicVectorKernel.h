#pragma once

// The skeleton the vector assignment kernels share. Internal header, included
// only by the files compiled for one instruction set each (PXSlicSse.cpp,
// PXSlicAvx.cpp); everything here has internal linkage, so no code built for
// a raised instruction set can stand in for baseline code at link time.

#include "PXSlicStripe.h"

#include <algorithm>

namespace {

// The spatial term of every block, as the lanes compute it, by the integer
// offset from the record's centre: row dy + S, column dx + S, for offsets in
// [-S, S]. It depends only on the offset, so one table per stripe replaces a
// root and a division per block. Rows are @p rowWidth floats long.
template <typename Lanes>
const float* spatialTable(PXSlicStripe& stripe, int gridStep, int rowWidth)
{
    using Floats = typename Lanes::Floats;
    constexpr int B = Lanes::width;

    const int side = 2 * gridStep + 1;
    float* table = stripe.spatialTable(std::size_t(side) * std::size_t(rowWidth));
    const Floats gridStepLanes = Lanes::broadcast(float(gridStep));
    const Floats countDown = Lanes::countDown();
    for (int row = 0; row < side; ++row) {
        const Floats dy = Lanes::broadcast(float(row - gridStep));
        const Floats dy2 = Lanes::mul(dy, dy);
        float* out = table + std::size_t(row) * std::size_t(rowWidth);
        for (int column = 0; column < rowWidth; column += B) {
            // Lane i holds offset column - S + i.
            const Floats dx = Lanes::sub(Lanes::broadcast(float(column - gridStep + B - 1)), countDown);
            Lanes::store(out + column,
                Lanes::div(Lanes::sqrt(Lanes::add(Lanes::mul(dx, dx), dy2)), gridStepLanes));
        }
    }
    return table;
}

/**
 * The assignment of one stripe, Lanes::width pixels at a time, following the
 * scalar kernel step for step. Lanes supplies the vector types, the record
 * broadcasts, the arithmetic and the lane tables (countDown(), the colour
 * shuffles), which make the labels differ from the scalar ones in a fixed way.
 */
template <typename Lanes>
void assignVector(const PXSlicSlice& slice)
{
    using Floats = typename Lanes::Floats;
    constexpr int B = Lanes::width;

    PXSlicStripe stripe(slice);
    if (stripe.isEmpty() || slice.gridStep < 1)
        return;
    const int S = slice.gridStep;
    const int rowWidth = (2 * S + 1 + B - 1) / B * B;
    const float* spatialByOffset = spatialTable<Lanes>(stripe, S, rowWidth);
    const Floats colourScale = Lanes::broadcast(900.0f);

    stripe.forEachWindowInBands(slice, [&](const PXSuperPixel& record, int k, int xLo, int xHi, int yLo, int yHi) {
        // Head and tail columns stay inside the window, also when it holds no whole block.
        const int bodyStart = std::min((xLo + B - 1) / B * B, xHi);
        const int bodyEnd = std::max(xHi / B * B, bodyStart);

        const typename Lanes::Record centre(record, k);
        // Lane i of the block at x0 measures column x0 + B - 1 - i, offset
        // xCenter - x0 - (B - 1) + i; the window keeps every offset within S.
        const int firstColumn = record.xCenter() - (B - 1) + S;
        for (int y = yLo; y < yHi; ++y) {
            const float* spatialRow
                = spatialByOffset + std::size_t(record.yCenter() - y + S) * std::size_t(rowWidth);
            const PXYCbCrPixel* pixels = stripe.pixelRow(y);
            quint32* labels = stripe.labelRow(y);
            float* distances = stripe.distanceRow(y);
            // The scalar step of PXSlicStripe::assignRange() for the columns
            // outside whole blocks; the table holds the very spatial term
            // PXSuperPixel::distance() computes, and a pixel it alone
            // keeps from winning is passed over.
            const auto assignColumns = [&](int from, int to) {
                for (int x = from; x < to; ++x) {
                    const float spatial = spatialRow[record.xCenter() - x + S];
                    if (!(distances[x - stripe.xStart()] > spatial))
                        continue;
                    const float d = spatial + float(record.colorDistanceQuadrat(pixels[x])) / 900.0f;
                    if (distances[x - stripe.xStart()] > d) {
                        distances[x - stripe.xStart()] = d;
                        labels[x] = quint32(k);
                    }
                }
            };
            assignColumns(xLo, bodyStart);
            for (int x0 = bodyStart; x0 < bodyEnd; x0 += B) {
                // The colour term is never negative, so a block whose
                // spatial terms alone reach the best distances so far
                // would change nothing.
                const Floats spatial = Lanes::loadFloats(spatialRow + (firstColumn - x0));
                if (!Lanes::anyLess(spatial, Lanes::loadFloats(distances + (x0 - stripe.xStart()))))
                    continue;
                const typename Lanes::Ints block = Lanes::load(pixels + x0);

                const Floats dY = Lanes::sub(centre.luminance, Lanes::luminanceOf(block));
                const Floats dCb = Lanes::sub(centre.cb, Lanes::cbOf(block));
                const Floats dCr = Lanes::sub(centre.cr, Lanes::crOf(block));
                const Floats colour = Lanes::div(
                    Lanes::add(Lanes::add(Lanes::mul(dY, dY), Lanes::mul(dCb, dCb)), Lanes::mul(dCr, dCr)),
                    colourScale);

                // Lanes write distinct slots, so one masked store equals the
                // lane-by-lane strict comparison.
                Lanes::keepCloser(
                    Lanes::add(colour, spatial), distances + (x0 - stripe.xStart()), labels + x0, centre.label);
            }

            assignColumns(bodyEnd, xHi);
        }
    });
}

} // namespace
