// Compiled with -msse4.1; reached only through bestKernels().
#include "PXScissorsKernels.h"

#ifdef PX_X86_64

#include "PXScissorsKernelsSse41.h"

#include <cstring>

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
inline __m128i greyOfFour(__m128i pixels)
{
    const __m128i byteMask = _mm_set1_epi32(0xFF);
    const __m128i sum = _mm_add_epi32(_mm_and_si128(pixels, byteMask),
        _mm_add_epi32(_mm_and_si128(_mm_srli_epi32(pixels, 8), byteMask),
            _mm_and_si128(_mm_srli_epi32(pixels, 16), byteMask)));
    return _mm_srli_epi32(_mm_mullo_epi32(sum, _mm_set1_epi32(43691)), 17);
}

void greyRow(const unsigned char* source, unsigned char* grey, unsigned int count)
{
    unsigned int i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m128i* p = reinterpret_cast<const __m128i*>(source + 4 * i);
        const __m128i q0 = greyOfFour(_mm_loadu_si128(p));
        const __m128i q1 = greyOfFour(_mm_loadu_si128(p + 1));
        const __m128i q2 = greyOfFour(_mm_loadu_si128(p + 2));
        const __m128i q3 = greyOfFour(_mm_loadu_si128(p + 3));
        const __m128i bytes = _mm_packus_epi16(_mm_packus_epi32(q0, q1), _mm_packus_epi32(q2, q3));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(grey + i), bytes);
    }
    scalar().grey(source + 4 * i, grey + i, count - i);
}

void reduce2x2Row(const unsigned char* top, const unsigned char* bottom, unsigned char* reduced, unsigned int count)
{
    const __m128i ones = _mm_set1_epi8(1);
    unsigned int i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m128i t0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(top + 2 * i));
        const __m128i t1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(top + 2 * i + 16));
        const __m128i b0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bottom + 2 * i));
        const __m128i b1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bottom + 2 * i + 16));
        const __m128i s0 = _mm_srli_epi16(_mm_add_epi16(_mm_maddubs_epi16(t0, ones), _mm_maddubs_epi16(b0, ones)), 2);
        const __m128i s1 = _mm_srli_epi16(_mm_add_epi16(_mm_maddubs_epi16(t1, ones), _mm_maddubs_epi16(b1, ones)), 2);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(reduced + i), _mm_packus_epi16(s0, s1));
    }
    scalar().reduce2x2(top + 2 * i, bottom + 2 * i, reduced + i, count - i);
}

} // namespace

void reduce3x3RowSse41(const unsigned char* const* rows, unsigned char* reduced, unsigned int count)
{
    // Word k of the gathered vectors is column 3k + n of the 24 columns held
    // in v0 (columns 0-7), v1 (8-15) and v2 (16-23).
    __m128i pick[3][3];
    for (int n = 0; n < 3; ++n) {
        alignas(16) unsigned char masks[3][16];
        for (int k = 0; k < 8; ++k) {
            const int column = 3 * k + n;
            for (int v = 0; v < 3; ++v) {
                const bool here = column / 8 == v;
                masks[v][2 * k] = here ? static_cast<unsigned char>(2 * (column % 8)) : 0x80;
                masks[v][2 * k + 1] = here ? static_cast<unsigned char>(2 * (column % 8) + 1) : 0x80;
            }
        }
        for (int v = 0; v < 3; ++v)
            pick[n][v] = _mm_load_si128(reinterpret_cast<const __m128i*>(masks[v]));
    }
    unsigned int i = 0;
    // 24 columns are read per 8 outputs; the last load reads 8 bytes.
    for (; i + 8 <= count; i += 8) {
        __m128i v[3];
        for (int part = 0; part < 3; ++part) {
            const unsigned long at = 3ul * i + 8ul * part;
            __m128i sum = _mm_setzero_si128();
            for (int r = 0; r < 3; ++r)
                sum = _mm_add_epi16(sum, _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(rows[r] + at))));
            v[part] = sum;
        }
        __m128i total = _mm_setzero_si128();
        for (int n = 0; n < 3; ++n)
            for (int part = 0; part < 3; ++part)
                total = _mm_add_epi16(total, _mm_shuffle_epi8(v[part], pick[n][part]));
        // (sum * 58255) >> 19 equals sum / 9 for every sum of nine bytes.
        const __m128i quotient = _mm_srli_epi16(_mm_mulhi_epu16(total, _mm_set1_epi16(static_cast<short>(58255))), 3);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(reduced + i), _mm_packus_epi16(quotient, quotient));
    }
    const unsigned char* rest[3] = {rows[0] + 3ul * i, rows[1] + 3ul * i, rows[2] + 3ul * i};
    scalar().reduce3x3(rest, reduced + i, count - i);
}

// Eight costs from 16-bit gradients; floor(s / 20) and the square root in
// single precision are exact for every sum of 8-bit Sobel responses.
__m128i sobelCostsSse41(__m128i gx, __m128i gy)
{
    const __m128i lo = _mm_unpacklo_epi16(gx, gy);
    const __m128i hi = _mm_unpackhi_epi16(gx, gy);
    const __m128 twenty = _mm_set1_ps(20.0f);
    const __m128i sumLo = _mm_madd_epi16(lo, lo);
    const __m128i sumHi = _mm_madd_epi16(hi, hi);
    const __m128i mLo = _mm_cvttps_epi32(_mm_sqrt_ps(_mm_floor_ps(_mm_div_ps(_mm_cvtepi32_ps(sumLo), twenty))));
    const __m128i mHi = _mm_cvttps_epi32(_mm_sqrt_ps(_mm_floor_ps(_mm_div_ps(_mm_cvtepi32_ps(sumHi), twenty))));
    const __m128i mask = _mm_set1_epi32(0xFF);
    const __m128i cLo = _mm_and_si128(_mm_xor_si128(mLo, mask), mask);
    const __m128i cHi = _mm_and_si128(_mm_xor_si128(mHi, mask), mask);
    return _mm_packus_epi32(cLo, cHi);
}

void sobelRowSse41(const unsigned char* const* rows, unsigned char* cost, unsigned int count)
{
    unsigned int i = 0;
    auto load = [](const unsigned char* p) {
        return _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
    };
    for (; i + 8 <= count; i += 8) {
        const __m128i a0 = load(rows[0] + i), a1 = load(rows[0] + i + 1), a2 = load(rows[0] + i + 2);
        const __m128i b0 = load(rows[1] + i), b2 = load(rows[1] + i + 2);
        const __m128i c0 = load(rows[2] + i), c1 = load(rows[2] + i + 1), c2 = load(rows[2] + i + 2);
        const __m128i gx = _mm_sub_epi16(_mm_add_epi16(_mm_add_epi16(a0, c0), _mm_slli_epi16(b0, 1)),
            _mm_add_epi16(_mm_add_epi16(a2, c2), _mm_slli_epi16(b2, 1)));
        const __m128i gy = _mm_sub_epi16(_mm_add_epi16(_mm_add_epi16(a0, a2), _mm_slli_epi16(a1, 1)),
            _mm_add_epi16(_mm_add_epi16(c0, c2), _mm_slli_epi16(c1, 1)));
        const __m128i words = sobelCostsSse41(gx, gy);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(cost + i), _mm_packus_epi16(words, words));
    }
    const unsigned char* rest[3] = {rows[0] + i, rows[1] + i, rows[2] + i};
    scalar().sobel(rest, cost + i, count - i);
}

void invertRowSse41(const unsigned char* source, unsigned char* cost, unsigned int count)
{
    const __m128i all = _mm_set1_epi8(static_cast<char>(0xFF));
    unsigned int i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(cost + i), _mm_xor_si128(v, all));
    }
    scalar().invert(source + i, cost + i, count - i);
}

Kernels sse41Kernels()
{
    return Kernels {greyRow, reduce2x2Row, reduce3x3RowSse41, sobelRowSse41, scalar().map, invertRowSse41};
}

} // namespace PXScissorsKernels

#endif
