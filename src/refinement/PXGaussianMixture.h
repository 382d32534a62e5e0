#pragma once

#include "PXRefinedCutOptions.h"

#include <QList>

#include <array>

/**
 * A mixture of a few Gaussians over RGB colours, with full covariances: the
 * colour model of one side of a refined cut.
 *
 * learn() fits it to a list of colours (0xRRGGBB) deterministically: the
 * cluster with the widest spread is split at its mean along its principal
 * axis until there are enough, then every colour is moved to its most likely
 * component twice. Sums are exact integers, so the result does not depend on
 * the order of the colours. logDensity() is the natural log of the density.
 *
 * A plain value; use from one thread at a time.
 */
class PXGaussianMixture
{
public:
    static constexpr int maximalComponents = PXRefinedCutOptions::maximalComponents;

    /**
     * Fits a mixture of @p components Gaussians (clamped to 1 ..
     * maximalComponents) to @p colours; an empty list leaves it empty.
     * @p varianceFloor is added to every variance (see
     * PXRefinedCutOptions::varianceFloor).
     */
    void learn(const QList<quint32>& colours, int components, double varianceFloor);
    bool isEmpty() const { return m_components.isEmpty(); }
    /** log p(r, g, b); a very small value for an empty mixture. */
    double logDensity(double red, double green, double blue) const;

private:
    struct Component {
        double logWeight = 0.0;
        std::array<double, 3> mean {};
        // Inverse covariance, row by row.
        std::array<double, 9> inverse {};
    };

    int mostLikely(quint32 colour) const;
    double componentLog(const Component& component, double red, double green, double blue) const;

    QList<Component> m_components;
};
