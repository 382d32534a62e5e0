#pragma once

// Row kernels of the YCbCr conversion (PXImage::mapBlock). Internal header.

#include "PXSimd.h"

#include <QtGlobal>

namespace PXYCbCrConversion {

using RowKernel = void (*)(const quint32* rgb, quint32* ycbcr, int count);

/**
 * The reference: PXColorConverter::RGBtoYCbCr per pixel, each component
 * truncated toward zero and packed as Cr | Cb << 8 | Y << 16 | 0xFF << 24.
 */
void convertRowScalar(const quint32* rgb, quint32* ycbcr, int count);

#ifdef PX_X86_64
/** The same operations in the same order, four pixels per double vector. */
void convertRowAvx2(const quint32* rgb, quint32* ycbcr, int count);
#endif

/** The fastest kernel the processor (and PX_CPU_FEATURES) allows. */
RowKernel bestRowKernel();

} // namespace PXYCbCrConversion
