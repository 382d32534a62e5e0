// The 8-lane assignment kernel. Compiled for the baseline instruction set;
// only the kernel itself is built for AVX2 and reached after a run-time check.
#include "PXSlic.h"

#include "PXSimd.h"
#include "PXSlicStripe.h"

#ifdef PX_X86_64

namespace {

PX_TARGET_AVX2 void assignAvx(const PXSlicSlice& slice)
{
    // Lanes 0..7 hold 7..0: lane i measures the spatial distance of column
    // x0 + 7 - i while taking the colour of column x0 + i. Labels have always
    // come out this way; keep the order.
    static const __m256 plus01234567 = _mm256_set_ps(0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f);
    static const __m256 ncQuadratX8 = _mm256_set1_ps(900.0f);
    // The byte shuffle works per 128-bit half on the low four index bits.
    // These tables take lane 3's luminance from pixel 0 and the Cr of lanes 1
    // and 6 from pixels 2 and 7; the labels depend on it, so keep them as
    // they are.
    static const __m256i maskY = _mm256_setr_epi8(
        0x02, -1, -1, -1, 0x06, -1, -1, -1, 0x0A, -1, -1, -1, 0x12, -1, -1, -1,
        0x12, -1, -1, -1, 0x16, -1, -1, -1, 0x1A, -1, -1, -1, 0x1E, -1, -1, -1);
    static const __m256i maskCb = _mm256_setr_epi8(
        0x01, -1, -1, -1, 0x05, -1, -1, -1, 0x09, -1, -1, -1, 0x0D, -1, -1, -1,
        0x11, -1, -1, -1, 0x15, -1, -1, -1, 0x19, -1, -1, -1, 0x1D, -1, -1, -1);
    static const __m256i maskCr = _mm256_setr_epi8(
        0x00, -1, -1, -1, 0x08, -1, -1, -1, 0x08, -1, -1, -1, 0x0C, -1, -1, -1,
        0x10, -1, -1, -1, 0x14, -1, -1, -1, 0x1C, -1, -1, -1, 0x1C, -1, -1, -1);
    constexpr int B = 8;

    PXSlicStripe stripe(slice);
    if (stripe.isEmpty())
        return;
    const float gridStep = float(slice.gridStep);
    const __m256 gridStepX8 = _mm256_set1_ps(gridStep);

    for (int k = 1; k < slice.superPixels.size(); ++k) {
        const PXSuperPixel& record = *slice.superPixels.at(k);
        int xLo, xHi, yLo, yHi;
        if (!stripe.window(record, slice.gridStep, xLo, xHi, yLo, yHi))
            continue;
        // Head and tail columns stay inside the window, also when it holds no whole block.
        const int bodyStart = std::min((xLo + B - 1) / B * B, xHi);
        const int bodyEnd = std::max(xHi / B * B, bodyStart);

        const __m256 luminance = record.luminanceX8();
        const __m256 cb = record.cbX8();
        const __m256 cr = record.crX8();
        const __m256 xCenter = record.xCenterX8();
        const __m256 yCenter = record.YCenterX8();
        const __m256i label = _mm256_set1_epi32(k);

        for (int y = yLo; y < yHi; ++y) {
            const __m256 dy = _mm256_sub_ps(yCenter, _mm256_set1_ps(float(y)));
            const __m256 dy2 = _mm256_mul_ps(dy, dy);
            stripe.assignRange(record, quint32(k), xLo, bodyStart, y, gridStep);

            const PXYCbCrPixel* pixels = stripe.pixelRow(y);
            quint32* labels = stripe.labelRow(y);
            float* distances = stripe.distanceRow(y);
            for (int x0 = bodyStart; x0 < bodyEnd; x0 += B) {
                const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels + x0));

                const __m256 dx = _mm256_sub_ps(xCenter, _mm256_add_ps(_mm256_set1_ps(float(x0)), plus01234567));
                const __m256 spatial = _mm256_div_ps(
                    _mm256_sqrt_ps(_mm256_add_ps(_mm256_mul_ps(dx, dx), dy2)), gridStepX8);

                const __m256 dY = _mm256_sub_ps(luminance, _mm256_cvtepi32_ps(_mm256_shuffle_epi8(block, maskY)));
                const __m256 dCb = _mm256_sub_ps(cb, _mm256_cvtepi32_ps(_mm256_shuffle_epi8(block, maskCb)));
                const __m256 dCr = _mm256_sub_ps(cr, _mm256_cvtepi32_ps(_mm256_shuffle_epi8(block, maskCr)));
                const __m256 colour = _mm256_div_ps(
                    _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(dY, dY), _mm256_mul_ps(dCb, dCb)),
                        _mm256_mul_ps(dCr, dCr)),
                    ncQuadratX8);
                const __m256 d = _mm256_add_ps(colour, spatial);

                // Lanes write distinct slots, so one masked store equals the
                // lane-by-lane strict comparison.
                float* best = distances + (x0 - stripe.xStart());
                const __m256 previous = _mm256_loadu_ps(best);
                const __m256 closer = _mm256_cmp_ps(d, previous, _CMP_LT_OQ);
                _mm256_storeu_ps(best, _mm256_blendv_ps(previous, d, closer));
                auto* labelBlock = reinterpret_cast<__m256i*>(labels + x0);
                _mm256_storeu_si256(labelBlock,
                    _mm256_blendv_epi8(_mm256_loadu_si256(labelBlock), label, _mm256_castps_si256(closer)));
            }

            stripe.assignRange(record, quint32(k), bodyEnd, xHi, y, gridStep);
        }
    }
}

} // namespace

void PXSlic::adjustSuperPixelSliceAVX(const PXSlicSlice& slice)
{
    assignAvx(slice);
}

#else

void PXSlic::adjustSuperPixelSliceAVX(const PXSlicSlice&)
{
}

#endif
