// Compiled with -mavx2; reached only after the detector's feature check.
#include "PXSobelRowKernels.h"

#include "PXSimd.h"

#ifdef PX_X86_64

namespace PXSobelRowKernels {

namespace {

inline __m256i channel(__m256i pixels, int shift)
{
    return _mm256_and_si256(_mm256_srl_epi32(pixels, _mm_cvtsi32_si128(shift)), _mm256_set1_epi32(0xFF));
}

inline __m256i absoluteDifference(__m256i a, __m256i b)
{
    return _mm256_abs_epi32(_mm256_sub_epi32(a, b));
}

// The scalar strength() on four lanes: the same double operations in the same order.
inline __m128i strengthFour(__m128i squares)
{
    const __m256d root = _mm256_sqrt_pd(_mm256_cvtepi32_pd(squares));
    return _mm256_cvttpd_epi32(_mm256_mul_pd(_mm256_add_pd(root, _mm256_set1_pd(8.0)), _mm256_set1_pd(0.0625)));
}

} // namespace

int rowAvx2(const quint32* top, const quint32* middle, const quint32* bottom, quint32* out, int width,
    int* histogram)
{
    int x = 0;
    // Window starts x .. x + 7 read columns up to x + 9 and must stay at most width - 4.
    for (; x + 11 <= width; x += 8) {
        const auto load = [](const quint32* row) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row)); };
        const __m256i topLeft = load(top + x);
        const __m256i topMiddle = load(top + x + 1);
        const __m256i topRight = load(top + x + 2);
        const __m256i middleLeft = load(middle + x);
        const __m256i middleRight = load(middle + x + 2);
        const __m256i bottomLeft = load(bottom + x);
        const __m256i bottomMiddle = load(bottom + x + 1);
        const __m256i bottomRight = load(bottom + x + 2);
        __m256i gx = _mm256_setzero_si256();
        __m256i gy = _mm256_setzero_si256();
        for (const int shift : {0, 8, 16}) {
            const __m256i diagonals
                = _mm256_add_epi32(absoluteDifference(channel(topRight, shift), channel(bottomLeft, shift)),
                    absoluteDifference(channel(bottomRight, shift), channel(topLeft, shift)));
            const __m256i horizontal = absoluteDifference(channel(middleRight, shift), channel(middleLeft, shift));
            const __m256i vertical = absoluteDifference(channel(bottomMiddle, shift), channel(topMiddle, shift));
            gx = _mm256_add_epi32(gx, _mm256_add_epi32(diagonals, _mm256_add_epi32(horizontal, horizontal)));
            gy = _mm256_add_epi32(gy, _mm256_add_epi32(diagonals, _mm256_add_epi32(vertical, vertical)));
        }
        const __m256i squares = _mm256_add_epi32(_mm256_mullo_epi32(gx, gx), _mm256_mullo_epi32(gy, gy));
        const __m256i strengths = _mm256_min_epi32(
            _mm256_set_m128i(strengthFour(_mm256_extracti128_si256(squares, 1)),
                strengthFour(_mm256_castsi256_si128(squares))),
            _mm256_set1_epi32(255));
        const __m256i grey = _mm256_or_si256(_mm256_mullo_epi32(strengths, _mm256_set1_epi32(0x010101)),
            _mm256_set1_epi32(int(0xFF000000u)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x + 1), grey);
        alignas(32) int values[8];
        _mm256_store_si256(reinterpret_cast<__m256i*>(values), strengths);
        for (const int value : values)
            ++histogram[value];
    }
    return x;
}

} // namespace PXSobelRowKernels

#endif
