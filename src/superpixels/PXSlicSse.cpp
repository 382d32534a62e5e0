// The 4-lane assignment kernel. Compiled for SSE4.1; reached only after the
// run-time check in PXSlic.
#include "PXSlic.h"

#include "PXSimd.h"

#ifdef PX_X86_64

#include "PXSlicVectorKernel.h"

namespace {

struct SseLanes
{
    static constexpr int width = 4;
    using Floats = __m128;
    using Ints = __m128i;

    // The broadcasts of one record.
    struct Record
    {
        Record(const PXSuperPixel& record, int k)
            : luminance(record.luminanceX4()), cb(record.cbX4()), cr(record.crX4()),
              x(record.xCenterX4()), y(record.YCenterX4()), label(_mm_set1_epi32(k))
        {
        }
        Floats luminance, cb, cr, x, y;
        Ints label;
    };

    // Lanes 0..3 hold 3, 2, 1, 0: lane i measures the spatial distance of
    // column x0 + 3 - i while taking the colour of column x0 + i. Labels have
    // always come out this way; keep the order.
    static Floats countDown() { return _mm_set_ps(0.0f, 1.0f, 2.0f, 3.0f); }

    static Ints load(const PXYCbCrPixel* pixels) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels)); }
    static Floats luminanceOf(Ints block)
    {
        return _mm_cvtepi32_ps(_mm_shuffle_epi8(block,
            _mm_setr_epi8(2, -1, -1, -1, 6, -1, -1, -1, 10, -1, -1, -1, 14, -1, -1, -1)));
    }
    static Floats cbOf(Ints block)
    {
        return _mm_cvtepi32_ps(_mm_shuffle_epi8(block,
            _mm_setr_epi8(1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1)));
    }
    static Floats crOf(Ints block)
    {
        return _mm_cvtepi32_ps(_mm_shuffle_epi8(block,
            _mm_setr_epi8(0, -1, -1, -1, 4, -1, -1, -1, 8, -1, -1, -1, 12, -1, -1, -1)));
    }

    static Floats loadFloats(const float* values) { return _mm_loadu_ps(values); }
    static void store(float* values, Floats lanes) { _mm_storeu_ps(values, lanes); }
    static bool anyLess(Floats a, Floats b) { return _mm_movemask_ps(_mm_cmplt_ps(a, b)) != 0; }
    static Floats broadcast(float value) { return _mm_set1_ps(value); }
    static Floats add(Floats a, Floats b) { return _mm_add_ps(a, b); }
    static Floats sub(Floats a, Floats b) { return _mm_sub_ps(a, b); }
    static Floats mul(Floats a, Floats b) { return _mm_mul_ps(a, b); }
    static Floats div(Floats a, Floats b) { return _mm_div_ps(a, b); }
    static Floats sqrt(Floats a) { return _mm_sqrt_ps(a); }

    static void keepCloser(Floats d, float* best, quint32* labels, Ints label)
    {
        const __m128 previous = _mm_loadu_ps(best);
        const __m128 closer = _mm_cmplt_ps(d, previous);
        _mm_storeu_ps(best, _mm_blendv_ps(previous, d, closer));
        auto* labelBlock = reinterpret_cast<__m128i*>(labels);
        _mm_storeu_si128(labelBlock, _mm_blendv_epi8(_mm_loadu_si128(labelBlock), label, _mm_castps_si128(closer)));
    }
};

} // namespace

void PXSlic::adjustSuperPixelSliceSSE(const PXSlicSlice& slice)
{
    assignVector<SseLanes>(slice);
}

#else

void PXSlic::adjustSuperPixelSliceSSE(const PXSlicSlice&)
{
}

#endif
