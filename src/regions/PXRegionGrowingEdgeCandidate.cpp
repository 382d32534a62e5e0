#include "PXRegionGrowingEdgeCandidate.h"

PXRegionGrowingEdgeCandidate::~PXRegionGrowingEdgeCandidate() = default;

bool PXRegionGrowingEdgeCandidate::hasEnoughEdges() const
{
    return double(m_numberOfNonZeroEdges) / double(m_numberOfEdges) > 0.1;
}

double PXRegionGrowingEdgeCandidate::averageEdgeStrength() const
{
    return double(m_sumOfEdgeStrengths) / double(m_numberOfNonZeroEdges);
}

double PXRegionGrowingEdgeCandidate::normalizedAverageEdgeStrength() const
{
    return hasEnoughEdges() ? averageEdgeStrength() : 0.0;
}
