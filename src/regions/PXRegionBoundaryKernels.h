#pragma once

// The search for boundary pixels that the region growing passes share.
// Internal header.

#include "PXSimd.h"

#include <QtGlobal>

namespace PXRegionBoundaryKernels {

/**
 * The first column in [@p x, @p end) of @p row whose label differs from its
 * left, right, @p above or @p below neighbour, @p end if there is none. Rows
 * are @p width labels long; columns 0 and width - 1 stand in for their
 * missing left and right neighbours, and a caller passes @p row itself for a
 * missing row above or below.
 */
using Kernel = int (*)(const qint32* row, const qint32* above, const qint32* below, int x, int end, int width);

/** The reference: one pixel at a time. */
int nextBoundaryScalar(const qint32* row, const qint32* above, const qint32* below, int x, int end, int width);

#ifdef PX_X86_64
/** The same column, eight pixels tested at a time. */
int nextBoundaryAvx2(const qint32* row, const qint32* above, const qint32* below, int x, int end, int width);
#endif

/** The fastest kernel the processor (and PX_CPU_FEATURES) allows. */
Kernel bestKernel();

} // namespace PXRegionBoundaryKernels
