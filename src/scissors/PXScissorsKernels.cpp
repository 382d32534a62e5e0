#include "PXScissorsKernels.h"

#include "PXCpuFeatures.h"

#include <cstring>

namespace PXScissorsKernels {

namespace {

void greyRow(const unsigned char* source, unsigned char* grey, unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int pixel;
        std::memcpy(&pixel, source + 4 * i, 4);
        grey[i] = static_cast<unsigned char>((((pixel >> 16) & 0xFF) + ((pixel >> 8) & 0xFF) + (pixel & 0xFF)) / 3);
    }
}

void reduce2x2Row(const unsigned char* top, const unsigned char* bottom, unsigned char* reduced, unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i)
        reduced[i] = static_cast<unsigned char>((top[2 * i] + top[2 * i + 1] + bottom[2 * i] + bottom[2 * i + 1]) >> 2);
}

void reduce3x3Row(const unsigned char* const* rows, unsigned char* reduced, unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int sum = 0;
        for (int r = 0; r < 3; ++r)
            sum += rows[r][3 * i] + rows[r][3 * i + 1] + rows[r][3 * i + 2];
        reduced[i] = static_cast<unsigned char>(sum / 9);
    }
}

void sobelRow(const unsigned char* const* rows, unsigned char* cost, unsigned int count)
{
    const unsigned char* r0 = rows[0];
    const unsigned char* r1 = rows[1];
    const unsigned char* r2 = rows[2];
    for (unsigned int i = 0; i < count; ++i) {
        const int gx = (r0[i] + 2 * r1[i] + r2[i]) - (r0[i + 2] + 2 * r1[i + 2] + r2[i + 2]);
        const int gy = (r0[i] + 2 * r0[i + 1] + r0[i + 2]) - (r2[i] + 2 * r2[i + 1] + r2[i + 2]);
        cost[i] = sobelCost(gx, gy);
    }
}

void mapRow(const unsigned char* source, unsigned char* cost, unsigned int count, const unsigned char* table)
{
    for (unsigned int i = 0; i < count; ++i)
        cost[i] = table[source[i]];
}

void invertRow(const unsigned char* source, unsigned char* cost, unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i)
        cost[i] = static_cast<unsigned char>(255 - source[i]);
}

} // namespace

Kernels scalarKernels()
{
    return Kernels {greyRow, reduce2x2Row, reduce3x3Row, sobelRow, mapRow, invertRow};
}

Kernels bestKernels()
{
#ifdef PX_X86_64
    if (pxCpuHasFeature(CPU_FEATURE_AVX))
        return avx2Kernels();
    if (pxCpuHasFeature(CPU_FEATURE_SSE))
        return sse41Kernels();
#endif
    return scalarKernels();
}

} // namespace PXScissorsKernels
