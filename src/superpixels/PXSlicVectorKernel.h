#pragma once

// The skeleton the vector assignment kernels share. Internal header, included
// only by the files compiled for one instruction set each (PXSlicSse.cpp,
// PXSlicAvx.cpp); everything here has internal linkage, so no code built for
// a raised instruction set can stand in for baseline code at link time.

#include "PXSlicStripe.h"

#include <algorithm>

namespace {

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
    if (stripe.isEmpty())
        return;
    const float gridStep = float(slice.gridStep);
    const Floats gridStepLanes = Lanes::broadcast(gridStep);
    const Floats colourScale = Lanes::broadcast(900.0f);
    const Floats countDown = Lanes::countDown();

    for (int k = 1; k < slice.superPixels.size(); ++k) {
        const PXSuperPixel& record = *slice.superPixels.at(k);
        int xLo, xHi, yLo, yHi;
        if (!stripe.window(record, slice.gridStep, xLo, xHi, yLo, yHi))
            continue;
        // Head and tail columns stay inside the window, also when it holds no whole block.
        const int bodyStart = std::min((xLo + B - 1) / B * B, xHi);
        const int bodyEnd = std::max(xHi / B * B, bodyStart);

        const typename Lanes::Record centre(record, k);
        for (int y = yLo; y < yHi; ++y) {
            const Floats dy = Lanes::sub(centre.y, Lanes::broadcast(float(y)));
            const Floats dy2 = Lanes::mul(dy, dy);
            stripe.assignRange(record, quint32(k), xLo, bodyStart, y, gridStep);

            const PXYCbCrPixel* pixels = stripe.pixelRow(y);
            quint32* labels = stripe.labelRow(y);
            float* distances = stripe.distanceRow(y);
            for (int x0 = bodyStart; x0 < bodyEnd; x0 += B) {
                const typename Lanes::Ints block = Lanes::load(pixels + x0);

                const Floats dx = Lanes::sub(centre.x, Lanes::add(Lanes::broadcast(float(x0)), countDown));
                const Floats spatial = Lanes::div(
                    Lanes::sqrt(Lanes::add(Lanes::mul(dx, dx), dy2)), gridStepLanes);

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

            stripe.assignRange(record, quint32(k), bodyEnd, xHi, y, gridStep);
        }
    }
}

} // namespace
