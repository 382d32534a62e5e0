#pragma once

// Row kernels of PXSlic's centre update. Internal header.

#include "PXSimd.h"
#include "PXSlicPixelSums.h"
#include "PXYCbCrPixel.h"

#include <QtGlobal>

namespace PXSlicSumKernels {

/**
 * Adds the pixels of columns [left, right) of row @p row to the sums of
 * their labels: label firstIndex + i goes to @p sums[i] for i up to
 * @p span; other labels are skipped.
 */
using RowKernel = void (*)(const PXYCbCrPixel* pixels, const quint32* labels, int left, int right, int row,
    quint32 firstIndex, quint32 span, PXSlicPixelSums* sums);

/** The reference: runs of one label, each summed by PXSlicPixelSums::addRun(). */
void sumRowScalar(const PXYCbCrPixel* pixels, const quint32* labels, int left, int right, int row,
    quint32 firstIndex, quint32 span, PXSlicPixelSums* sums);

#ifdef PX_X86_64
/** The same sums, eight labels compared and eight pixels added at a time. */
void sumRowAvx2(const PXYCbCrPixel* pixels, const quint32* labels, int left, int right, int row,
    quint32 firstIndex, quint32 span, PXSlicPixelSums* sums);
#endif

/** The fastest kernel the processor (and PX_CPU_FEATURES) allows. */
RowKernel bestRowKernel();

} // namespace PXSlicSumKernels
