#pragma once

#include "pximagecutter_export.h"

/**
 * Stateless colour conversions in double precision, without clamping or
 * rounding (callers truncate). Thread-safe.
 */
class PXIMAGECUTTER_EXPORT PXColorConverter
{
public:
    /**
     * Hue in degrees, saturation and value. Black gives hue -1; a grey
     * divides zero by zero and gives a NaN hue.
     */
    static void RGBtoHSV(double r, double g, double b, double* h, double* s, double* v);
    /** For inputs in 0..255 every result lies in [0, 255.5). */
    static void RGBtoYCbCr(double r, double g, double b, double* y, double* cb, double* cr);
    /** Inverse of RGBtoYCbCr, with 1.773 as the blue coefficient. */
    static void YCbCrToRGB(double y, double cb, double cr, double* r, double* g, double* b);

private:
    PXColorConverter() = delete;
};
