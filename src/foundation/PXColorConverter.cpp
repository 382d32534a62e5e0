#include "PXColorConverter.h"

#include <algorithm>

void PXColorConverter::RGBtoHSV(double r, double g, double b, double* h, double* s, double* v)
{
    const double max = std::max({ r, g, b });
    const double min = std::min({ r, g, b });
    *v = max;
    if (max == 0.0) {
        *s = 0.0;
        *h = -1.0;
        return;
    }
    const double delta = max - min;
    *s = delta / max;
    double hue;
    if (max == r)
        hue = (g - b) / delta;
    else if (max == g)
        hue = (b - r) / delta + 2.0;
    else
        hue = (r - g) / delta + 4.0;
    hue *= 60.0;
    if (hue < 0.0)
        hue += 360.0;
    *h = hue;
}

void PXColorConverter::RGBtoYCbCr(double r, double g, double b, double* y, double* cb, double* cr)
{
    const double luminance = 0.114 * b + (0.299 * r + 0.587 * g);
    *y = luminance;
    *cb = (b - luminance) * 0.564 + 128.0;
    *cr = (r - luminance) * 0.713 + 128.0;
}

void PXColorConverter::YCbCrToRGB(double y, double cb, double cr, double* r, double* g, double* b)
{
    *r = 1.402 * (cr - 128.0) + y;
    *g = -0.34414 * (cb - 128.0) + (-0.71414 * (cr - 128.0) + y);
    *b = 1.773 * (cb - 128.0) + y;
}
