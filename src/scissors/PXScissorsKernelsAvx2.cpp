// Compiled with -mavx2; reached only through bestKernels().
#include "PXScissorsKernels.h"

#ifdef PX_X86_64

#include "PXScissorsKernelsSse41.h"

namespace PXScissorsKernels {

namespace {

// The reference, for the tails. Not a namespace-scope object: its
// initialiser would run at load time, compiled for this instruction set.
const Kernels& scalar()
{
    static const Kernels kernels = scalarKernels();
    return kernels;
}

// floor(sum / 3) for sums up to 765, as (sum * 43691) >> 17.
inline __m256i greyOfEight(__m256i pixels)
{
    const __m256i byteMask = _mm256_set1_epi32(0xFF);
    const __m256i sum = _mm256_add_epi32(_mm256_and_si256(pixels, byteMask),
        _mm256_add_epi32(_mm256_and_si256(_mm256_srli_epi32(pixels, 8), byteMask),
            _mm256_and_si256(_mm256_srli_epi32(pixels, 16), byteMask)));
    return _mm256_srli_epi32(_mm256_mullo_epi32(sum, _mm256_set1_epi32(43691)), 17);
}

void greyRow(const unsigned char* source, unsigned char* grey, unsigned int count)
{
    // The packs work per 128-bit lane; the final permutation restores the order.
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    unsigned int i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i* p = reinterpret_cast<const __m256i*>(source + 4 * i);
        const __m256i q0 = greyOfEight(_mm256_loadu_si256(p));
        const __m256i q1 = greyOfEight(_mm256_loadu_si256(p + 1));
        const __m256i q2 = greyOfEight(_mm256_loadu_si256(p + 2));
        const __m256i q3 = greyOfEight(_mm256_loadu_si256(p + 3));
        const __m256i bytes = _mm256_packus_epi16(_mm256_packus_epi32(q0, q1), _mm256_packus_epi32(q2, q3));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(grey + i), _mm256_permutevar8x32_epi32(bytes, order));
    }
    scalar().grey(source + 4 * i, grey + i, count - i);
}

void reduce2x2Row(const unsigned char* top, const unsigned char* bottom, unsigned char* reduced, unsigned int count)
{
    const __m256i ones = _mm256_set1_epi8(1);
    unsigned int i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i t0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(top + 2 * i));
        const __m256i t1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(top + 2 * i + 32));
        const __m256i b0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bottom + 2 * i));
        const __m256i b1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bottom + 2 * i + 32));
        const __m256i s0 = _mm256_srli_epi16(
            _mm256_add_epi16(_mm256_maddubs_epi16(t0, ones), _mm256_maddubs_epi16(b0, ones)), 2);
        const __m256i s1 = _mm256_srli_epi16(
            _mm256_add_epi16(_mm256_maddubs_epi16(t1, ones), _mm256_maddubs_epi16(b1, ones)), 2);
        const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(s0, s1), 0xD8);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(reduced + i), bytes);
    }
    scalar().reduce2x2(top + 2 * i, bottom + 2 * i, reduced + i, count - i);
}

// Sixteen costs from 16-bit gradients, as sobelCostsSse41 does for eight.
inline __m256i sobelCosts(__m256i gx, __m256i gy)
{
    const __m256i lo = _mm256_unpacklo_epi16(gx, gy);
    const __m256i hi = _mm256_unpackhi_epi16(gx, gy);
    const __m256 twenty = _mm256_set1_ps(20.0f);
    const __m256i sumLo = _mm256_madd_epi16(lo, lo);
    const __m256i sumHi = _mm256_madd_epi16(hi, hi);
    const __m256i mLo = _mm256_cvttps_epi32(_mm256_sqrt_ps(_mm256_floor_ps(_mm256_div_ps(_mm256_cvtepi32_ps(sumLo), twenty))));
    const __m256i mHi = _mm256_cvttps_epi32(_mm256_sqrt_ps(_mm256_floor_ps(_mm256_div_ps(_mm256_cvtepi32_ps(sumHi), twenty))));
    const __m256i mask = _mm256_set1_epi32(0xFF);
    return _mm256_packus_epi32(_mm256_and_si256(_mm256_xor_si256(mLo, mask), mask),
        _mm256_and_si256(_mm256_xor_si256(mHi, mask), mask));
}

void sobelRow(const unsigned char* const* rows, unsigned char* cost, unsigned int count)
{
    auto load = [](const unsigned char* p) {
        return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    };
    unsigned int i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m256i a0 = load(rows[0] + i), a1 = load(rows[0] + i + 1), a2 = load(rows[0] + i + 2);
        const __m256i b0 = load(rows[1] + i), b2 = load(rows[1] + i + 2);
        const __m256i c0 = load(rows[2] + i), c1 = load(rows[2] + i + 1), c2 = load(rows[2] + i + 2);
        const __m256i gx = _mm256_sub_epi16(_mm256_add_epi16(_mm256_add_epi16(a0, c0), _mm256_slli_epi16(b0, 1)),
            _mm256_add_epi16(_mm256_add_epi16(a2, c2), _mm256_slli_epi16(b2, 1)));
        const __m256i gy = _mm256_sub_epi16(_mm256_add_epi16(_mm256_add_epi16(a0, a2), _mm256_slli_epi16(a1, 1)),
            _mm256_add_epi16(_mm256_add_epi16(c0, c2), _mm256_slli_epi16(c1, 1)));
        const __m256i words = sobelCosts(gx, gy);
        const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(words, words), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(cost + i), _mm256_castsi256_si128(bytes));
    }
    const unsigned char* rest[3] = {rows[0] + i, rows[1] + i, rows[2] + i};
    sobelRowSse41(rest, cost + i, count - i);
}

void invertRow(const unsigned char* source, unsigned char* cost, unsigned int count)
{
    const __m256i all = _mm256_set1_epi8(static_cast<char>(0xFF));
    unsigned int i = 0;
    for (; i + 64 <= count; i += 64) {
        const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(source + i));
        const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(source + i + 32));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(cost + i), _mm256_xor_si256(v0, all));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(cost + i + 32), _mm256_xor_si256(v1, all));
    }
    invertRowSse41(source + i, cost + i, count - i);
}

} // namespace

Kernels avx2Kernels()
{
    return Kernels {greyRow, reduce2x2Row, reduce3x3RowSse41, sobelRow, scalar().map, invertRow};
}

} // namespace PXScissorsKernels

#endif
