// The 8-lane boundary search. Compiled for AVX2; reached only after the
// run-time check in PXRegionBoundaryKernels::bestKernel().
#include "PXRegionBoundaryKernels.h"

#ifdef PX_X86_64

namespace {

__m256i load(const qint32* labels)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(labels));
}

} // namespace

int PXRegionBoundaryKernels::nextBoundaryAvx2(
    const qint32* row, const qint32* above, const qint32* below, int x, int end, int width)
{
    // Column 0 has no left neighbour to load.
    if (x == 0 && end > 0) {
        if (nextBoundaryScalar(row, above, below, 0, 1, width) == 0)
            return 0;
        x = 1;
    }
    // Blocks [x, x + 8) whose right neighbours, up to x + 8, lie in the row.
    for (; x + 8 < width && x + 8 <= end; x += 8) {
        const __m256i label = load(row + x);
        const __m256i same = _mm256_and_si256(
            _mm256_and_si256(_mm256_cmpeq_epi32(label, load(row + x - 1)), _mm256_cmpeq_epi32(label, load(row + x + 1))),
            _mm256_and_si256(_mm256_cmpeq_epi32(label, load(above + x)), _mm256_cmpeq_epi32(label, load(below + x))));
        const unsigned differ = ~unsigned(_mm256_movemask_ps(_mm256_castsi256_ps(same))) & 0xFFu;
        if (differ != 0)
            return x + __builtin_ctz(differ);
    }
    return nextBoundaryScalar(row, above, below, x, end, width);
}

#else

int PXRegionBoundaryKernels::nextBoundaryAvx2(const qint32*, const qint32*, const qint32*, int, int end, int)
{
    return end;
}

#endif
