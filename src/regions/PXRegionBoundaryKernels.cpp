#include "PXRegionBoundaryKernels.h"

#include "PXCpuFeatures.h"

namespace PXRegionBoundaryKernels {

int nextBoundaryScalar(const qint32* row, const qint32* above, const qint32* below, int x, int end, int width)
{
    for (; x < end; ++x) {
        const qint32 label = row[x];
        const qint32 left = x > 0 ? row[x - 1] : label;
        const qint32 right = x + 1 < width ? row[x + 1] : label;
        if (left != label || right != label || below[x] != label || above[x] != label)
            return x;
    }
    return end;
}

Kernel bestKernel()
{
#ifdef PX_X86_64
    if (pxCpuHasFeature(CPU_FEATURE_AVX))
        return nextBoundaryAvx2;
#endif
    return nextBoundaryScalar;
}

} // namespace PXRegionBoundaryKernels
