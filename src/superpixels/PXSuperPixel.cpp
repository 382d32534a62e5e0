#include "PXSuperPixel.h"

#include <cmath>
#include <cstdlib>

namespace {

// Coordinate sums wrap instead of overflowing: large pieces of the outside of
// a lasso on a big photo may exceed 2^31, and no result relies on those sums.
int wrappingAdd(int a, int b)
{
    return static_cast<int>(static_cast<unsigned int>(a) + static_cast<unsigned int>(b));
}

} // namespace

PXSuperPixel::PXSuperPixel(int luminance, int cb, int cr, int x, int y)
    : m_color(static_cast<unsigned int>(luminance), static_cast<unsigned int>(cb),
        static_cast<unsigned int>(cr))
    , m_xCenter(x)
    , m_yCenter(y)
    , m_pixelCount(1)
{
}

PXSuperPixel::PXSuperPixel(const PXYCbCrPixel& pixel, const QPoint& centre)
    : m_color(pixel)
    , m_xCenter(centre.x())
    , m_yCenter(centre.y())
    , m_pixelCount(1)
{
}

PXSuperPixel::~PXSuperPixel() = default;

void PXSuperPixel::reset()
{
    m_color.clear();
    m_xCenter = 0;
    m_yCenter = 0;
    m_pixelCount = 0;
}

void PXSuperPixel::addPixel(const PXYCbCrPixel& pixel, int x, int y)
{
    m_color += pixel;
    m_xCenter = wrappingAdd(m_xCenter, x);
    m_yCenter = wrappingAdd(m_yCenter, y);
    ++m_pixelCount;
}

void PXSuperPixel::normalize()
{
    if (m_pixelCount < 2)
        return;
    m_color /= m_pixelCount;
    m_xCenter /= m_pixelCount;
    m_yCenter /= m_pixelCount;
}

QRgb PXSuperPixel::averageRgb() const
{
    return m_color.rgb();
}

PXYCbCr PXSuperPixel::absColorDistance(const PXSuperPixel& other) const
{
    return m_color.absDistance(other.m_color);
}

int PXSuperPixel::colorDistanceQuadrat(const PXYCbCrPixel& pixel) const
{
    return m_color.distanceQuadrat(pixel);
}

int PXSuperPixel::colorDistanceQuadrat(const PXSuperPixel& other) const
{
    return m_color.distanceQuadrat(other.m_color);
}

float PXSuperPixel::distance(int x, int y, const PXYCbCrPixel& pixel, float gridStep) const
{
    const int colorQuadrat = colorDistanceQuadrat(pixel);
    // 64-bit so that far-off centres (a reset record sits at the origin) cannot overflow.
    const qint64 dx = qint64(m_xCenter) - x;
    const qint64 dy = qint64(m_yCenter) - y;
    // The root in double, rounded to float: the vector kernels' float root of
    // the same exact integer gives the identical value.
    const float spatial = float(std::sqrt(double(dx * dx + dy * dy)));
    return spatial / gridStep + float(colorQuadrat) / 900.0f;
}

bool PXSuperPixel::isXCloserThan(float d, int x) const
{
    return d > float(std::llabs(qint64(m_xCenter) - x));
}

bool PXSuperPixel::isYCloserThan(float d, int y) const
{
    return d > float(std::llabs(qint64(m_yCenter) - y));
}

bool PXSuperPixel::isCloserThan(float d, int x, int y) const
{
    return isXCloserThan(d, x) && isYCloserThan(d, y);
}
