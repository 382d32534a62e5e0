#include "PXYCbCrConversion.h"

#include "PXColorConverter.h"
#include "PXCpuFeatures.h"

namespace PXYCbCrConversion {

void convertRowScalar(const quint32* rgb, quint32* ycbcr, int count)
{
    for (int x = 0; x < count; ++x) {
        const quint32 pixel = rgb[x];
        double y;
        double cb;
        double cr;
        PXColorConverter::RGBtoYCbCr(double((pixel >> 16) & 0xFF), double((pixel >> 8) & 0xFF),
            double(pixel & 0xFF), &y, &cb, &cr);
        ycbcr[x] = (quint32(int(cr)) & 0xFF) | (quint32(int(cb)) & 0xFF) << 8
            | quint32(int(y)) << 16 | 0xFF000000u;
    }
}

RowKernel bestRowKernel()
{
#ifdef PX_X86_64
    if (pxCpuHasFeature(CPU_FEATURE_AVX))
        return convertRowAvx2;
#endif
    return convertRowScalar;
}

} // namespace PXYCbCrConversion
