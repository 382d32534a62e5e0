#include "PXBackgroundExtractor.h"

#include "PXConcurrent.h"
#include "PXImage.h"

PXBackgroundExtractor::~PXBackgroundExtractor() = default;

void PXBackgroundExtractor::setup(PXImage* image)
{
    m_image = image;
}

void PXBackgroundExtractor::setSuperPixelInformations(const QList<PXSuperPixel>& superpixels)
{
    m_superpixels = superpixels;
}

void PXBackgroundExtractor::buildHistogram(PXHistogram3D& histogram)
{
    histogram.buildHistogram();
}

QSet<int> PXBackgroundExtractor::extractBackground(const QSet<int>& candidates, const QImage& mask)
{
    QSet<int> background;
    if (candidates.isEmpty() || !m_image)
        return background;
    const QImage ycbcr = m_image->imageYCbCr();
    QList<PXHistogram3D> histograms{
        PXHistogram3D(ycbcr, mask, false),
        PXHistogram3D(ycbcr, mask, true),
    };
    PXConcurrent::blockingMap(histograms, &PXBackgroundExtractor::buildHistogram);
    const PXHistogram3D& unmarked = histograms.at(0);
    const PXHistogram3D& marked = histograms.at(1);

    const double limit = double(int(0.3 * unmarked.size()));
    // Each label is judged on its own, so the set's order does not matter.
    for (const int label : candidates) {
        if (label < 0 || label >= m_superpixels.size())
            continue;
        const PXYCbCr mean = m_superpixels.at(label).averageYCbCr();
        const int unmarkedCount = unmarked.value(mean);
        const int markedCount = marked.value(mean);
        // The second test fails only when hardly anything is unmarked.
        if (markedCount > unmarkedCount && limit > unmarkedCount * 0.1)
            background.insert(label);
    }
    return background;
}
