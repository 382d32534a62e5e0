#pragma once

#include <cstdint>

/**
 * One pixel of a YCbCr image (see PXImage): the components take the places
 * of the QRgb channels, Y in the red slot, Cb in green and Cr in blue. Laid
 * over scan lines, never constructed.
 */
struct PXYCbCrPixel
{
    std::uint8_t cr;
    std::uint8_t cb;
    std::uint8_t luminance;
    std::uint8_t alpha; ///< written as 255, never read
};

static_assert(sizeof(PXYCbCrPixel) == 4, "PXYCbCrPixel must overlay one 32-bit pixel");
