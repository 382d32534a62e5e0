#include "PXHistogram3D.h"

#include "PXYCbCrPixel.h"

namespace {

// Four bits of each channel: luminance in the low, cr in the high ones.
unsigned int binIndex(unsigned int luminance, unsigned int cb, unsigned int cr)
{
    return (luminance >> 4) + (cb & ~15u) + ((cr & ~15u) << 4);
}

} // namespace

PXHistogram3D::PXHistogram3D(const QImage& ycbcrImage, const QImage& mask, bool useMarkedPixels)
    : m_bins(binsChannel1 * binsChannel2 * binsChannel3, 0)
    , m_image(ycbcrImage)
    // The test is on the alpha byte of a 32-bit pixel.
    , m_mask(mask.isNull() || mask.depth() == 32 ? mask : mask.convertToFormat(QImage::Format_ARGB32))
    , m_useMarkedPixels(useMarkedPixels)
{
}

PXHistogram3D::~PXHistogram3D() = default;

void PXHistogram3D::buildHistogram()
{
    if (m_bins.isEmpty() || m_image.depth() != 32 || m_mask.isNull())
        return;
    const int width = qMin(m_image.width(), m_mask.width());
    const int height = qMin(m_image.height(), m_mask.height());
    int* bins = m_bins.data();
    const bool useMarked = m_useMarkedPixels;
    int size = 0;
    for (int y = 0; y < height; ++y) {
        const auto* pixels = reinterpret_cast<const PXYCbCrPixel*>(m_image.constScanLine(y));
        const auto* mask = reinterpret_cast<const quint32*>(m_mask.constScanLine(y));
        for (int x = 0; x < width; ++x) {
            const bool marked = mask[x] >= 0x01000000u;
            if (marked != useMarked)
                continue;
            // On the pixel's bytes, kept in registers, not through a PXYCbCr.
            const PXYCbCrPixel pixel = pixels[x];
            ++bins[binIndex(pixel.luminance, pixel.cb, pixel.cr)];
            ++size;
        }
    }
    m_size += size;
}

int PXHistogram3D::createIndex(const PXYCbCr& colour) const
{
    return int(binIndex(colour.luminance(), colour.cb(), colour.cr()));
}

int PXHistogram3D::value(const PXYCbCr& colour) const
{
    const auto index = static_cast<unsigned int>(createIndex(colour));
    if (index >= static_cast<unsigned int>(m_bins.size()))
        return 0;
    return m_bins.at(index);
}
