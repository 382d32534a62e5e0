#include "PXRegionGrowingEdge.h"

PXRegionGrowingEdge::PXRegionGrowingEdge(
    const PXRegionGrowingFromTo& fromTo, const PXYCbCr& colorDifference, double edgeStrength)
    : m_edgeStrength(edgeStrength)
    , m_fromTo(fromTo)
    , m_colorDifference(colorDifference)
{
}

PXRegionGrowingEdge::PXRegionGrowingEdge(const PXRegionGrowingFromTo& fromTo,
    const QList<PXSuperPixel>& superpixels, double edgeStrength)
    : m_edgeStrength(edgeStrength)
    , m_fromTo(fromTo)
{
    const auto inList = [&superpixels](int label) {
        return label >= 0 && label < superpixels.size();
    };
    if (inList(fromTo.from()) && inList(fromTo.to()))
        m_colorDifference = superpixels.at(fromTo.from()).absColorDistance(superpixels.at(fromTo.to()));
}

PXRegionGrowingEdge::~PXRegionGrowingEdge() = default;

bool sortByWeight(const PXRegionGrowingEdge& a, const PXRegionGrowingEdge& b)
{
    return a.edgeStrength() < b.edgeStrength();
}
