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
    int bandRadius = 10;
    /**
     * At most this many rounds of learning the models and cutting the blocks;
     * fewer when a round moves no pixel. More rounds let the models drift on
     * the quality composites (two objects in one lasso lost 0.02 IoU at four).
     */
    int rounds = 2;
    /**
     * The same when the cut starts from the lasso alone (the superpixel cut
     * lost the object): it starts far from the object, and its models need
     * more rounds to part.
     */
    int roundsFromLasso = 5;
    /** Gaussians in each colour model (1 to PXRefinedCutOptions::maximalComponents). */
    int components = 5;
    /** At most this many pixels of each side teach its colour model. */
    int sampleSize = 8000;
    /**
     * Added to every variance of the colour models. Colours are costed
     * exactly, and a small floor keeps differences of a grey level or two:
     * an object in the background's own texture, only a shade lighter, is
     * told apart by them (a floor of 4 lost such an object's outline to the
     * texture's stones). Zero would let a flat patch make a density of no
     * width.
     */
    double varianceFloor = 0.01;
    /**
     * A block is recut pixel by pixel when at least this share of its pixels
     * clearly prefers the other side: a region that straddles an edge.
     */
    double recutShare = 0.1;
    /**
     * How far a user's mark reaches: along paths that cross no strong edge,
     * pixels up to this many steps away lean to the mark's side, and their
     * colours teach that side's model. A dot on a missed part thus brings the
     * part back up to its edges. Within twice this reach of a stroke's own
     * marks the last solve teaches neither model (the stroke says it was
     * wrong there), and only there (and bandRadius farther) does the cut
     * change; farther, the last solve's outline stands.
     */
    int strokeReach = 48;
    /** How hard a mark pulls the pixels it reaches, in nats, fading with the distance. */
    double strokePull = 4.0;
    /**
     * The colour evidence (mean difference of the two models' costs inside
     * the lasso, in nats) at and above which the block cut keeps its whole
     * smoothness; below, the smoothness shrinks with the evidence, down to
     * weakestSmoothing. An object in the background's own colours differs
     * from it only a little per pixel, and the full smoothness would cut it
     * all away.
     */
    double clearEvidence = 2.0;
    /** The least share of the smoothness the block cut keeps. */
    double weakestSmoothing = 0.25;
    /**
     * A hole in the object (background that reaches neither the lasso's line
     * nor the photo's border) stays background only when the background seen
     * outside the lasso explains its pixels better than the object does by at
     * least this much, in nats per pixel on average. A hole that shows the
     * background behind the object is explained by tens of nats; one the
     * first guess missed (a shaded inner wall, an eye, a reflection) by a
     * few, and it joins the object.
     */
    double holeEvidence = 6.0;
    /** Weight of the smoothness against the colour term, in nats per pixel pair. */
    double smoothness = 50.0;

    static constexpr int maximalComponents = 8;
};
