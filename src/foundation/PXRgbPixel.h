#pragma once

#include <cstdint>

/**
 * One pixel of a 32-bit QImage (Format_RGB32 / Format_ARGB32) as it lies in
 * memory: a little-endian QRgb. Laid over scan lines, never constructed.
 */
struct PXRgbPixel
{
    std::uint8_t blue;
    std::uint8_t green;
    std::uint8_t red;
    std::uint8_t alpha; ///< not read by any colour computation
};

static_assert(sizeof(PXRgbPixel) == 4, "PXRgbPixel must overlay one 32-bit pixel");
