// The 8-lane assignment kernel. Compiled for AVX2; reached only after the
// run-time check in PXSlic.
#include "PXSlic.h"

#include "PXSimd.h"

#ifdef PX_X86_64

#include "PXSlicVectorKernel.h"

namespace {

struct AvxLanes
{
    static constexpr int width = 8;
    using Floats = __m256;
    using Ints = __m256i;

    // The broadcasts of one record.
    struct Record
    {
        Record(const PXSuperPixel& record, int k)
            : luminance(record.luminanceX8()), cb(record.cbX8()), cr(record.crX8()),
              x(record.xCenterX8()), y(record.YCenterX8()), label(_mm256_set1_epi32(k))
        {
        }
        Floats luminance, cb, cr, x, y;
        Ints label;
    };

    // Lanes 0..7 hold 7..0: lane i measures the spatial distance of column
    // x0 + 7 - i while taking the colour of column x0 + i. Labels have always
    // come out this way; keep the order.
    static Floats countDown() { return _mm256_set_ps(0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f); }

    // The byte shuffle works per 128-bit half on the low four index bits.
    // These tables take lane 3's luminance from pixel 0 and the Cr of lanes 1
    // and 6 from pixels 2 and 7; the labels depend on it, so keep them as
    // they are.
    static Ints load(const PXYCbCrPixel* pixels)
    {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels));
    }
    static Floats luminanceOf(Ints block)
    {
        return _mm256_cvtepi32_ps(_mm256_shuffle_epi8(block, _mm256_setr_epi8(
            0x02, -1, -1, -1, 0x06, -1, -1, -1, 0x0A, -1, -1, -1, 0x12, -1, -1, -1,
            0x12, -1, -1, -1, 0x16, -1, -1, -1, 0x1A, -1, -1, -1, 0x1E, -1, -1, -1)));
    }
    static Floats cbOf(Ints block)
    {
        return _mm256_cvtepi32_ps(_mm256_shuffle_epi8(block, _mm256_setr_epi8(
            0x01, -1, -1, -1, 0x05, -1, -1, -1, 0x09, -1, -1, -1, 0x0D, -1, -1, -1,
            0x11, -1, -1, -1, 0x15, -1, -1, -1, 0x19, -1, -1, -1, 0x1D, -1, -1, -1)));
    }
    static Floats crOf(Ints block)
    {
        return _mm256_cvtepi32_ps(_mm256_shuffle_epi8(block, _mm256_setr_epi8(
            0x00, -1, -1, -1, 0x08, -1, -1, -1, 0x08, -1, -1, -1, 0x0C, -1, -1, -1,
            0x10, -1, -1, -1, 0x14, -1, -1, -1, 0x1C, -1, -1, -1, 0x1C, -1, -1, -1)));
    }

    static Floats loadFloats(const float* values) { return _mm256_loadu_ps(values); }
    static void store(float* values, Floats lanes) { _mm256_storeu_ps(values, lanes); }
    static bool anyLess(Floats a, Floats b) { return _mm256_movemask_ps(_mm256_cmp_ps(a, b, _CMP_LT_OQ)) != 0; }
    static Floats broadcast(float value) { return _mm256_set1_ps(value); }
    static Floats add(Floats a, Floats b) { return _mm256_add_ps(a, b); }
    static Floats sub(Floats a, Floats b) { return _mm256_sub_ps(a, b); }
    static Floats mul(Floats a, Floats b) { return _mm256_mul_ps(a, b); }
    static Floats div(Floats a, Floats b) { return _mm256_div_ps(a, b); }
    static Floats sqrt(Floats a) { return _mm256_sqrt_ps(a); }

    static void keepCloser(Floats d, float* best, quint32* labels, Ints label)
    {
        const __m256 previous = _mm256_loadu_ps(best);
        const __m256 closer = _mm256_cmp_ps(d, previous, _CMP_LT_OQ);
        _mm256_storeu_ps(best, _mm256_blendv_ps(previous, d, closer));
        auto* labelBlock = reinterpret_cast<__m256i*>(labels);
        _mm256_storeu_si256(labelBlock,
            _mm256_blendv_epi8(_mm256_loadu_si256(labelBlock), label, _mm256_castps_si256(closer)));
    }
};

} // namespace

void PXSlic::adjustSuperPixelSliceAVX(const PXSlicSlice& slice)
{
    assignVector<AvxLanes>(slice);
}

#else

void PXSlic::adjustSuperPixelSliceAVX(const PXSlicSlice&)
{
}

#endif
