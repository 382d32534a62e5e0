#pragma once

#include <QtGlobal>

/**
 * Vector forms of the colour Sobel pass over one row, for the detector's
 * slices. Each computes the strengths of output columns 1 .. 8n of the row
 * whose neighbours are @p top, @p middle and @p bottom (32-bit pixels of a
 * row @p width long), writes them as opaque grey to @p out and counts them in
 * @p histogram; it returns 8n, the first window start it left to the scalar
 * loop. Results equal the scalar loop's bit for bit. Call only after
 * pxCpuHasFeature() said yes to the instruction set.
 */
namespace PXSobelRowKernels {

int rowAvx2(const quint32* top, const quint32* middle, const quint32* bottom, quint32* out, int width,
    int* histogram);

} // namespace PXSobelRowKernels
