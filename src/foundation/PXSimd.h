#pragma once

// Instruction-set helpers for the vector kernels. The library is built for the
// baseline x86-64 instruction set; code that needs SSE4.1 or AVX2 is marked
// with these attributes (or lives in a file compiled for that set) and is only
// reached after pxCpuHasFeature() said yes.

#if defined(__x86_64__) || defined(_M_X64)
#define PX_X86_64 1
#include <immintrin.h>
#if defined(__GNUC__)
#define PX_TARGET_SSE41 __attribute__((target("sse4.1")))
#define PX_TARGET_AVX2 __attribute__((target("avx2")))
#else
#define PX_TARGET_SSE41
#define PX_TARGET_AVX2
#endif
#endif
