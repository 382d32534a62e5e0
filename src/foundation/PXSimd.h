#pragma once

// Instruction-set helpers for the vector kernels. The library is built for the
// baseline x86-64 instruction set; a kernel that needs SSE4.1 or AVX2 lives in
// a file of its own compiled for that set (px_add_simd_source) and is reached
// only after pxCpuHasFeature() said yes, in one dispatch per kernel family.

#if defined(__x86_64__) || defined(_M_X64)
#define PX_X86_64 1
#include <immintrin.h>
// Marks the public inline 8-lane broadcasts: hosts include their headers in
// baseline code, where an unmarked __m256 return would not compile cleanly.
#if defined(__GNUC__)
#define PX_TARGET_AVX2 __attribute__((target("avx2")))
#else
#define PX_TARGET_AVX2
#endif
#endif
