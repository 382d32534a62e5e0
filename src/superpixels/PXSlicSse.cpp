// The 4-lane assignment kernel. Compiled for the baseline instruction set;
// only the kernel itself is built for SSE4.1 and reached after a run-time check.
#include "PXSlic.h"

#include "PXSimd.h"
#include "PXSlicStripe.h"

#ifdef PX_X86_64

namespace {

PX_TARGET_SSE41 void assignSse(const PXSlicSlice& slice)
{
    // Lanes 0..3 hold 3, 2, 1, 0: lane i measures the spatial distance of
    // column x0 + 3 - i while taking the colour of column x0 + i. Labels have
    // always come out this way; keep the order.
    static const __m128 plus0123 = _mm_set_ps(0.0f, 1.0f, 2.0f, 3.0f);
    static const __m128 ncQuadratX4 = _mm_set1_ps(900.0f);
    static const __m128i maskY = _mm_setr_epi8(2, -1, -1, -1, 6, -1, -1, -1, 10, -1, -1, -1, 14, -1, -1, -1);
    static const __m128i maskCb = _mm_setr_epi8(1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1);
    static const __m128i maskCr = _mm_setr_epi8(0, -1, -1, -1, 4, -1, -1, -1, 8, -1, -1, -1, 12, -1, -1, -1);
    constexpr int B = 4;

    PXSlicStripe stripe(slice);
    if (stripe.isEmpty())
        return;
    const float gridStep = float(slice.gridStep);
    const __m128 gridStepX4 = _mm_set1_ps(gridStep);

    for (int k = 1; k < slice.superPixels.size(); ++k) {
        const PXSuperPixel& record = *slice.superPixels.at(k);
        int xLo, xHi, yLo, yHi;
        if (!stripe.window(record, slice.gridStep, xLo, xHi, yLo, yHi))
            continue;
        // Head and tail columns stay inside the window, also when it holds no whole block.
        const int bodyStart = std::min((xLo + B - 1) / B * B, xHi);
        const int bodyEnd = std::max(xHi / B * B, bodyStart);

        const __m128 luminance = record.luminanceX4();
        const __m128 cb = record.cbX4();
        const __m128 cr = record.crX4();
        const __m128 xCenter = record.xCenterX4();
        const __m128 yCenter = record.YCenterX4();
        const __m128i label = _mm_set1_epi32(k);

        for (int y = yLo; y < yHi; ++y) {
            const __m128 dy = _mm_sub_ps(yCenter, _mm_set1_ps(float(y)));
            const __m128 dy2 = _mm_mul_ps(dy, dy);
            stripe.assignRange(record, quint32(k), xLo, bodyStart, y, gridStep);

            const PXYCbCrPixel* pixels = stripe.pixelRow(y);
            quint32* labels = stripe.labelRow(y);
            float* distances = stripe.distanceRow(y);
            for (int x0 = bodyStart; x0 < bodyEnd; x0 += B) {
                const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels + x0));

                const __m128 dx = _mm_sub_ps(xCenter, _mm_add_ps(_mm_set1_ps(float(x0)), plus0123));
                const __m128 spatial = _mm_div_ps(_mm_sqrt_ps(_mm_add_ps(_mm_mul_ps(dx, dx), dy2)), gridStepX4);

                const __m128 dY = _mm_sub_ps(luminance, _mm_cvtepi32_ps(_mm_shuffle_epi8(block, maskY)));
                const __m128 dCb = _mm_sub_ps(cb, _mm_cvtepi32_ps(_mm_shuffle_epi8(block, maskCb)));
                const __m128 dCr = _mm_sub_ps(cr, _mm_cvtepi32_ps(_mm_shuffle_epi8(block, maskCr)));
                const __m128 colour = _mm_div_ps(
                    _mm_add_ps(_mm_add_ps(_mm_mul_ps(dY, dY), _mm_mul_ps(dCb, dCb)), _mm_mul_ps(dCr, dCr)),
                    ncQuadratX4);
                const __m128 d = _mm_add_ps(colour, spatial);

                // Lanes write distinct slots, so one masked store equals the
                // lane-by-lane strict comparison.
                float* best = distances + (x0 - stripe.xStart());
                const __m128 previous = _mm_loadu_ps(best);
                const __m128 closer = _mm_cmplt_ps(d, previous);
                _mm_storeu_ps(best, _mm_blendv_ps(previous, d, closer));
                auto* labelBlock = reinterpret_cast<__m128i*>(labels + x0);
                _mm_storeu_si128(labelBlock,
                    _mm_blendv_epi8(_mm_loadu_si128(labelBlock), label, _mm_castps_si128(closer)));
            }

            stripe.assignRange(record, quint32(k), bodyEnd, xHi, y, gridStep);
        }
    }
}

} // namespace

void PXSlic::adjustSuperPixelSliceSSE(const PXSlicSlice& slice)
{
    assignSse(slice);
}

#else

void PXSlic::adjustSuperPixelSliceSSE(const PXSlicSlice&)
{
}

#endif
