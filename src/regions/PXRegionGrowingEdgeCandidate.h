#pragma once

#include "pximagecutter_export.h"

#include <QMetaType>

/**
 * Running statistics of the edge strengths sampled along one side of the
 * boundary between two superpixels: how many samples, how many of them were
 * above 0 and their sum. Made while the graph is built, one per label pair.
 */
class PXIMAGECUTTER_EXPORT PXRegionGrowingEdgeCandidate
{
public:
    PXRegionGrowingEdgeCandidate() = default;
    virtual ~PXRegionGrowingEdgeCandidate();

    PXRegionGrowingEdgeCandidate(const PXRegionGrowingEdgeCandidate&) = default;
    PXRegionGrowingEdgeCandidate& operator=(const PXRegionGrowingEdgeCandidate&) = default;

    /** Counts @p strength; only values above 0 reach the non-zero count and the sum. */
    void addEdge(int strength)
    {
        ++m_numberOfEdges;
        if (strength > 0) {
            ++m_numberOfNonZeroEdges;
            m_sumOfEdgeStrengths += strength;
        }
    }

    /** Whether more than one sample in ten was above 0. */
    bool hasEnoughEdges() const;
    /** The mean of the samples above 0. */
    double averageEdgeStrength() const;
    /**
     * averageEdgeStrength() if hasEnoughEdges(), else 0: a boundary that
     * hardly shows an edge is among the first to be merged.
     */
    double normalizedAverageEdgeStrength() const;

    int numberOfEdges() const { return m_numberOfEdges; }
    int numberOfNonZeroEdges() const { return m_numberOfNonZeroEdges; }
    int sumOfEdgeStrengths() const { return m_sumOfEdgeStrengths; }

private:
    int m_numberOfEdges = 0;
    int m_numberOfNonZeroEdges = 0;
    int m_sumOfEdgeStrengths = 0;
};

Q_DECLARE_METATYPE(PXRegionGrowingEdgeCandidate)
