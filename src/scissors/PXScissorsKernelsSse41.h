#pragma once

// SSE4.1 kernels shared with the AVX2 set. Internal header; the functions are
// compiled for SSE4.1 and only called after the processor check.

#include "PXSimd.h"

#ifdef PX_X86_64

namespace PXScissorsKernels {

void reduce3x3RowSse41(const unsigned char* const* rows, unsigned char* reduced, unsigned int count);
void sobelRowSse41(const unsigned char* const* rows, unsigned char* cost, unsigned int count);
void invertRowSse41(const unsigned char* source, unsigned char* cost, unsigned int count);

} // namespace PXScissorsKernels

#endif
