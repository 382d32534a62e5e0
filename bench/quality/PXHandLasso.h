#pragma once

// A lasso as a hand draws it round an object: it wanders nearer and farther,
// trembles, and may cut into the object for a stretch.

#include <QImage>
#include <QPainterPath>

struct PXHandLassoOptions {
    /** Nearest and farthest the lasso wanders from the object, in pixels. */
    double nearest = 6.0;
    double farthest = 43.0;
    /** Largest sideways tremor, in pixels, added to the wandering. */
    double tremor = 2.0;
    /** Share of the turn round the object drawn inside it (0 to 1). */
    double insideShare = 0.0;
    /** How deep inside the object that stretch runs, in pixels. */
    double insideDepth = 4.0;
    /** Multiplies every length above (and the wandering's waves): for larger photos. */
    double scale = 1.0;
    int points = 3000;
    quint32 seed = 1;
};

/**
 * A closed lasso of @p options.points points round the set pixels of @p object
 * (Format_Grayscale8), following its outer outline only; where it runs inside
 * the object (insideShare) it keeps insideDepth off the object's edge.
 */
QPainterPath handLasso(const QImage& object, const PXHandLassoOptions& options);
