// The 8-lane row kernel of the centre update. Compiled for AVX2; reached only
// after the run-time check in PXSlicSumKernels::bestRowKernel().
#include "PXSlicSumKernels.h"

#ifdef PX_X86_64

namespace {

// The end of the run of @p label that starts at @p begin, at most @p right.
int runEnd(const quint32* labels, int begin, int right, quint32 label)
{
    const __m256i wanted = _mm256_set1_epi32(int(label));
    int end = begin + 1;
    for (; end + 8 <= right; end += 8) {
        const __m256i same
            = _mm256_cmpeq_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(labels + end)), wanted);
        const unsigned differ = ~unsigned(_mm256_movemask_ps(_mm256_castsi256_ps(same))) & 0xFFu;
        if (differ != 0)
            return end + __builtin_ctz(differ);
    }
    while (end < right && labels[end] == label)
        ++end;
    return end;
}

// The sum of the four 64-bit lanes, wrapped to 32 bits as the scalar sums wrap.
quint32 lanesSum(__m256i lanes)
{
    const __m128i half = _mm_add_epi64(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
    return quint32(quint64(_mm_cvtsi128_si64(half)) + quint64(_mm_extract_epi64(half, 1)));
}

// Pixels [begin, end) of one row: each component masked out of the 32-bit
// lanes and its bytes added by SAD against zero. Integer sums, so the order
// of the additions does not matter.
void addRun(PXSlicPixelSums& sums, const PXYCbCrPixel* pixels, int begin, int end, int row)
{
    const __m256i crMask = _mm256_set1_epi32(0x0000FF);
    const __m256i cbMask = _mm256_set1_epi32(0x00FF00);
    const __m256i luminanceMask = _mm256_set1_epi32(0xFF0000);
    const __m256i zero = _mm256_setzero_si256();
    __m256i cr = zero;
    __m256i cb = zero;
    __m256i luminance = zero;
    const auto add = [&](__m256i block) {
        cr = _mm256_add_epi64(cr, _mm256_sad_epu8(_mm256_and_si256(block, crMask), zero));
        cb = _mm256_add_epi64(cb, _mm256_sad_epu8(_mm256_and_si256(block, cbMask), zero));
        luminance = _mm256_add_epi64(luminance, _mm256_sad_epu8(_mm256_and_si256(block, luminanceMask), zero));
    };
    int x = begin;
    for (; x + 8 <= end; x += 8)
        add(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels + x)));
    if (x < end) {
        // A masked load reads nothing past the run, not even at the image's end.
        const __m256i keep
            = _mm256_cmpgt_epi32(_mm256_set1_epi32(end - x), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
        add(_mm256_maskload_epi32(reinterpret_cast<const int*>(pixels + x), keep));
    }
    const qint64 length = end - begin;
    sums.luminance += lanesSum(luminance);
    sums.cb += lanesSum(cb);
    sums.cr += lanesSum(cr);
    sums.x += quint32((qint64(begin) + end - 1) * length / 2);
    sums.y += quint32(qint64(row) * length);
    sums.count += int(length);
}

} // namespace

void PXSlicSumKernels::sumRowAvx2(const PXYCbCrPixel* pixels, const quint32* labels, int left, int right,
    int row, quint32 firstIndex, quint32 span, PXSlicPixelSums* sums)
{
    for (int x = left; x < right;) {
        const quint32 label = labels[x];
        const int end = runEnd(labels, x, right, label);
        const quint32 offset = label - firstIndex;
        if (offset <= span)
            addRun(sums[offset], pixels, x, end, row);
        x = end;
    }
}

#else

void PXSlicSumKernels::sumRowAvx2(const PXYCbCrPixel*, const quint32*, int, int, int, quint32, quint32,
    PXSlicPixelSums*)
{
}

#endif
