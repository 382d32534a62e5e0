#include "PXYCbCr.h"

#include <cmath>
#include <cstdint>

namespace {

unsigned int absDifference(unsigned int a, unsigned int b)
{
    const auto difference = static_cast<std::int32_t>(a - b);
    return difference < 0 ? 0u - static_cast<unsigned int>(difference)
                          : static_cast<unsigned int>(difference);
}

// Signed square in wrapping arithmetic: the unsigned product has the same bits.
unsigned int square(unsigned int difference)
{
    return difference * difference;
}

unsigned int roundedQuotient(unsigned int component, int n)
{
    const double quotient = double(component) / double(n);
    const double rounded = std::trunc(quotient + std::copysign(0.5, quotient));
    return static_cast<unsigned int>(static_cast<std::int64_t>(rounded));
}

int truncatedChannel(double value)
{
    if (!(value > 0.0))
        return 0;
    if (value >= 255.0)
        return 255;
    return int(value);
}

} // namespace

PXYCbCr::PXYCbCr(const PXYCbCrPixel& pixel)
    : m_luminance(pixel.luminance)
    , m_cb(pixel.cb)
    , m_cr(pixel.cr)
{
}

PXYCbCr::PXYCbCr(unsigned int luminance, unsigned int cb, unsigned int cr)
    : m_luminance(luminance)
    , m_cb(cb)
    , m_cr(cr)
{
}

PXYCbCr::~PXYCbCr() = default;

void PXYCbCr::clear()
{
    m_luminance = m_cb = m_cr = 0;
}

bool PXYCbCr::operator==(const PXYCbCr& other) const
{
    return m_luminance == other.m_luminance && m_cb == other.m_cb && m_cr == other.m_cr;
}

PXYCbCr& PXYCbCr::operator+=(const PXYCbCr& other)
{
    m_luminance += other.m_luminance;
    m_cb += other.m_cb;
    m_cr += other.m_cr;
    return *this;
}

PXYCbCr& PXYCbCr::operator+=(const PXYCbCrPixel& pixel)
{
    m_luminance += pixel.luminance;
    m_cb += pixel.cb;
    m_cr += pixel.cr;
    return *this;
}

PXYCbCr& PXYCbCr::operator/=(int n)
{
    if (n == 0)
        return *this;
    m_luminance = roundedQuotient(m_luminance, n);
    m_cb = roundedQuotient(m_cb, n);
    m_cr = roundedQuotient(m_cr, n);
    return *this;
}

PXYCbCr PXYCbCr::absDistance(const PXYCbCr& other) const
{
    return PXYCbCr(absDifference(m_luminance, other.m_luminance),
        absDifference(m_cb, other.m_cb), absDifference(m_cr, other.m_cr));
}

int PXYCbCr::distanceQuadrat(const PXYCbCr& other) const
{
    const unsigned int sum = square(m_luminance - other.m_luminance) + square(m_cb - other.m_cb)
        + square(m_cr - other.m_cr);
    return static_cast<int>(sum);
}

int PXYCbCr::distanceQuadrat(const PXYCbCrPixel& pixel) const
{
    return distanceQuadrat(PXYCbCr(pixel));
}

QRgb PXYCbCr::rgb() const
{
    const double y = double(float(m_luminance));
    const double cb = double(float(m_cb) - 128.0f);
    const double cr = double(float(m_cr) - 128.0f);
    // Red from Cb is the long-standing behaviour, see the header.
    const double red = y + 1.402 * cb;
    const double green = (y - 0.34414 * cb) + (-0.71414 * cr);
    const double blue = y + 1.772 * cb;
    return 0xFF000000u | unsigned(truncatedChannel(red)) << 16
        | unsigned(truncatedChannel(green)) << 8 | unsigned(truncatedChannel(blue));
}
