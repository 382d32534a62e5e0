#pragma once

#include "PXRegionGrowingFromTo.h"
#include "PXSuperPixel.h"
#include "PXYCbCr.h"
#include "pximagecutter_export.h"

#include <QList>
#include <QMetaType>

/**
 * One edge of the superpixel graph: the ordered label pair, the mean edge
 * strength sampled along the boundary on the first label's side, and the
 * absolute per-channel difference of the two superpixels' mean colours.
 * Plain value type, held by value in lists.
 */
class PXIMAGECUTTER_EXPORT PXRegionGrowingEdge
{
public:
    PXRegionGrowingEdge() = default;
    PXRegionGrowingEdge(const PXRegionGrowingFromTo& fromTo, const PXYCbCr& colorDifference,
        double edgeStrength);
    /**
     * Takes the colour difference of the records at the pair's labels in
     * @p superpixels; a label outside the list gives no difference.
     */
    PXRegionGrowingEdge(const PXRegionGrowingFromTo& fromTo,
        const QList<PXSuperPixel>& superpixels, double edgeStrength);
    virtual ~PXRegionGrowingEdge();

    PXRegionGrowingEdge(const PXRegionGrowingEdge&) = default;
    PXRegionGrowingEdge& operator=(const PXRegionGrowingEdge&) = default;

    double edgeStrength() const { return m_edgeStrength; }
    PXRegionGrowingFromTo fromTo() const { return m_fromTo; }
    PXYCbCr colorDifference() const { return m_colorDifference; }

private:
    double m_edgeStrength = 0.0;
    PXRegionGrowingFromTo m_fromTo;
    PXYCbCr m_colorDifference;
};

/**
 * Orders edges by ascending strength and nothing else, so edges of equal
 * strength keep no defined order in an unstable sort.
 */
PXIMAGECUTTER_EXPORT bool sortByWeight(const PXRegionGrowingEdge& a, const PXRegionGrowingEdge& b);

Q_DECLARE_METATYPE(PXRegionGrowingEdge)
