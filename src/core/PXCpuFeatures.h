#pragma once

#include "pxcore_export.h"

/** Processor features the library chooses vector kernels by. */
enum CPUFeatures {
    CPU_FEATURE_SSE = 9,  ///< SSE4.1
    CPU_FEATURE_AVX = 37  ///< AVX2 (the 8-lane kernels need its byte shuffle)
};

/**
 * Whether the processor has @p feature.
 *
 * The environment variable PX_CPU_FEATURES, read on every call, restricts the
 * answer to the listed features ("none", "sse", "avx" or "sse,avx"); it never
 * reports a feature the processor lacks. Thread-safe.
 */
PXCORE_EXPORT bool pxCpuHasFeature(CPUFeatures feature);
