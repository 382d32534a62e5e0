#include "PXHistogram3D.h"

#include "PXYCbCrPixel.h"

#include <vector>

namespace {

constexpr int myTables = 4;

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
    const bool useMarked = m_useMarkedPixels;
    // Neighbouring pixels mostly share a bin: counted in four interleaved
    // tables, an increment need not wait for the one before it.
    const qsizetype binCount = m_bins.size();
    std::vector<int> tables(std::size_t(myTables * binCount), 0);
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
            ++tables[std::size_t((x & (myTables - 1)) * binCount + binIndex(pixel.luminance, pixel.cb, pixel.cr))];
            ++size;
        }
    }
    int* bins = m_bins.data();
    for (int table = 0; table < myTables; ++table) {
        for (qsizetype bin = 0; bin < binCount; ++bin)
            bins[bin] += tables[std::size_t(table * binCount + bin)];
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
