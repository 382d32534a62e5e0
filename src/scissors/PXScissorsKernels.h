#pragma once

// Row kernels of the weight calculator. Internal header.
//
// The scalar kernels are the reference; the SSE4.1 and AVX2 ones do the same
// integer arithmetic and give identical bytes. Edges (partial reduction
// squares, the border of the image) are left to the caller's scalar code.

#include "PXSimd.h"

namespace PXScissorsKernels {

/** (R + G + B) / 3 of each 0xAARRGGBB word of @p source; alpha ignored. */
using GreyRow = void (*)(const unsigned char* source, unsigned char* grey, unsigned int count);
/** (sum of each 2 x 2 square) >> 2; @p count outputs from 2 @p count columns. */
using Reduce2x2Row = void (*)(const unsigned char* top, const unsigned char* bottom, unsigned char* reduced,
    unsigned int count);
/** (sum of each 3 x 3 square) / 9; @p count outputs from 3 @p count columns. */
using Reduce3x3Row = void (*)(const unsigned char* const* rows, unsigned char* reduced, unsigned int count);
/**
 * Cost 255 XOR truncate(sqrt((gx^2 + gy^2) / 20)), kept to 8 bits, of @p count
 * pixels whose 3 x 3 windows start at column 0 of @p rows (so output i is
 * centred on column i + 1).
 */
using SobelRow = void (*)(const unsigned char* const* rows, unsigned char* cost, unsigned int count);
/** cost[i] = table[source[i]]; @p cost may equal or precede @p source. */
using MapRow = void (*)(const unsigned char* source, unsigned char* cost, unsigned int count,
    const unsigned char* table);

/** cost[i] = 255 - source[i]; @p cost may equal or precede @p source. */
using InvertRow = void (*)(const unsigned char* source, unsigned char* cost, unsigned int count);

struct Kernels
{
    GreyRow grey;
    Reduce2x2Row reduce2x2;
    Reduce3x3Row reduce3x3;
    SobelRow sobel;
    MapRow map;
    InvertRow invert;
};

/** The reference kernels. */
Kernels scalarKernels();
#ifdef PX_X86_64
Kernels sse41Kernels();
Kernels avx2Kernels();
#endif
/** The fastest set the processor (and PX_CPU_FEATURES) allows. */
Kernels bestKernels();

/** truncate(sqrt((gx^2 + gy^2) / 20)), the sum in 32-bit unsigned, the division integer. */
inline int sobelMagnitude(int gx, int gy);
/** The Sobel cost of one window's sums, exactly as the reference computes it. */
inline unsigned char sobelCost(int gx, int gy);

} // namespace PXScissorsKernels

#include <cmath>

inline int PXScissorsKernels::sobelMagnitude(int gx, int gy)
{
    const unsigned int sum = static_cast<unsigned int>(gx * gx) + static_cast<unsigned int>(gy * gy);
    return static_cast<int>(std::sqrt(static_cast<double>(sum / 20u)));
}

inline unsigned char PXScissorsKernels::sobelCost(int gx, int gy)
{
    return static_cast<unsigned char>((255 ^ sobelMagnitude(gx, gy)) & 0xFF);
}
