#pragma once

/**
 * The tunables of PXRefinedCut, with the defaults it was measured with on
 * the quality composites (bench/quality). A plain value; pass it with
 * PXRefinedCut::setOptions() before prepare() or run().
 */
struct PXRefinedCutOptions {
    /** Width in pixels of the band outside the lasso whose colours teach the background model. */
    int outerBand = 16;
    /**
     * Regions are split into square blocks of this many pixels a side, so the
     * region cut can follow an edge that region growing ran over.
     */
    int blockSize = 8;
    /** Pixels on each side of the block cut's outline that the pixel cut may move. */
    int bandRadius = 4;
    /**
     * At most this many rounds of learning the models and cutting the blocks;
     * fewer when a round changes no pixel.
     */
    int rounds = 4;
    /** Gaussians in each colour model (1 to PXRefinedCutOptions::maximalComponents). */
    int components = 5;
    /** At most this many pixels of each side teach its colour model. */
    int sampleSize = 8000;
    /**
     * A block is recut pixel by pixel when at least this share of its pixels
     * clearly prefers the other side: a region that straddles an edge.
     */
    double recutShare = 0.25;
    /**
     * How far a user's mark reaches: along paths that cross no strong edge,
     * pixels up to this many steps away lean to the mark's side, and their
     * colours teach that side's model. A dot on a missed part thus brings the
     * part back up to its edges.
     */
    int strokeReach = 48;
    /** How hard a mark pulls the pixels it reaches, in nats, fading with the distance. */
    double strokePull = 4.0;
    /**
     * The share of the smoothness the block cut keeps when it starts from the
     * lasso alone (the superpixel cut lost the object): an object in the
     * background's own colours differs from it only a little per pixel, and
     * the full smoothness would cut it all away.
     */
    double lassoSmoothing = 0.25;
    /** Weight of the smoothness against the colour term, in nats per pixel pair. */
    double smoothness = 50.0;

    static constexpr int maximalComponents = 8;
};
