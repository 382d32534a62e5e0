#pragma once

/**
 * The tunables of PXMatte, with the defaults it was measured with on the
 * matting composites (bench/matte). A plain value; pass it with
 * PXMatte::setOptions() before run().
 */
struct PXMatteOptions {
    /**
     * The unknown band reaches at most this many pixels from the mask's
     * outline on either side (1 to maximalBandRadius). It is that wide only
     * where the photo's colours between object and background go on that far
     * (a defocused rim, fur); at a crisp edge it is one pixel on each side.
     */
    int bandRadius = 5;
    /**
     * A pixel joins the band while its colour lies more than this far (alpha
     * units, 0..1) from the side the mask gives it, between the object's and
     * the background's colours nearby.
     */
    double uncertainty = 0.2;
    /**
     * Colour contrast (0..1 per channel) between object and background at
     * which alpha is trusted half; where they are closer the hard mask's value
     * weighs more.
     */
    double contrast = 0.03;
    /**
     * How strongly the foreground colour of a band pixel keeps to the object's
     * colour nearby rather than to the colour that explains the photo, in
     * squared alpha: small values trust the photo down to small alpha.
     */
    double colourPrior = 0.02;

    static constexpr int maximalBandRadius = 64;
};
