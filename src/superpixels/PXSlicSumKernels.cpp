#include "PXSlicSumKernels.h"

#include "PXCpuFeatures.h"

#include <cstring>

namespace {

// The end of the run of @p label that starts at @p begin, at most @p right;
// two labels compared at a time.
int runEnd(const quint32* labelRow, int begin, int right, quint32 label)
{
    const quint64 pair = quint64(label) * 0x100000001ull;
    int end = begin + 1;
    for (; end + 1 < right; end += 2) {
        quint64 two;
        std::memcpy(&two, labelRow + end, sizeof two);
        if (two != pair)
            break;
    }
    while (end < right && labelRow[end] == label)
        ++end;
    return end;
}

} // namespace

namespace PXSlicSumKernels {

void sumRowScalar(const PXYCbCrPixel* pixels, const quint32* labels, int left, int right, int row,
    quint32 firstIndex, quint32 span, PXSlicPixelSums* sums)
{
    for (int x = left; x < right;) {
        const quint32 label = labels[x];
        const int end = runEnd(labels, x, right, label);
        // One unsigned comparison tests firstIndex <= label <= firstIndex + span.
        const quint32 offset = label - firstIndex;
        if (offset <= span)
            sums[offset].addRun(pixels, x, end, row);
        x = end;
    }
}

RowKernel bestRowKernel()
{
#ifdef PX_X86_64
    if (pxCpuHasFeature(CPU_FEATURE_AVX))
        return sumRowAvx2;
#endif
    return sumRowScalar;
}

} // namespace PXSlicSumKernels
