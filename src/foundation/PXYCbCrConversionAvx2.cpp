// Compiled with -mavx2; reached only through bestRowKernel().
#include "PXYCbCrConversion.h"

#ifdef PX_X86_64

namespace PXYCbCrConversion {

namespace {

// Four pixels: exactly the scalar operations, in the same order, on doubles.
inline __m128i convertFour(__m128i pixels)
{
    const __m128i byteMask = _mm_set1_epi32(0xFF);
    const __m256d blue = _mm256_cvtepi32_pd(_mm_and_si128(pixels, byteMask));
    const __m256d green = _mm256_cvtepi32_pd(_mm_and_si128(_mm_srli_epi32(pixels, 8), byteMask));
    const __m256d red = _mm256_cvtepi32_pd(_mm_and_si128(_mm_srli_epi32(pixels, 16), byteMask));

    const __m256d y = _mm256_add_pd(_mm256_mul_pd(_mm256_set1_pd(0.114), blue),
        _mm256_add_pd(_mm256_mul_pd(_mm256_set1_pd(0.299), red),
            _mm256_mul_pd(_mm256_set1_pd(0.587), green)));
    const __m256d half = _mm256_set1_pd(128.0);
    const __m256d cb = _mm256_add_pd(_mm256_mul_pd(_mm256_sub_pd(blue, y), _mm256_set1_pd(0.564)), half);
    const __m256d cr = _mm256_add_pd(_mm256_mul_pd(_mm256_sub_pd(red, y), _mm256_set1_pd(0.713)), half);

    const __m128i yi = _mm256_cvttpd_epi32(y);
    const __m128i cbi = _mm_and_si128(_mm256_cvttpd_epi32(cb), byteMask);
    const __m128i cri = _mm_and_si128(_mm256_cvttpd_epi32(cr), byteMask);
    return _mm_or_si128(_mm_or_si128(cri, _mm_slli_epi32(cbi, 8)),
        _mm_or_si128(_mm_slli_epi32(yi, 16), _mm_set1_epi32(int(0xFF000000u))));
}

} // namespace

void convertRowAvx2(const quint32* rgb, quint32* ycbcr, int count)
{
    int x = 0;
    for (; x + 4 <= count; x += 4) {
        const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rgb + x));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(ycbcr + x), convertFour(pixels));
    }
    convertRowScalar(rgb + x, ycbcr + x, count - x);
}

} // namespace PXYCbCrConversion

#endif
