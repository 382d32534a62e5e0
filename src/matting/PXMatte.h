#pragma once

#include "PXMatteOptions.h"
#include "pximagecutter_export.h"

#include <QImage>

#include <functional>

/**
 * The soft matte: the alpha and the background-free colours of a cut's edge.
 *
 * Round the mask's outline an unknown band grows into the pixels whose colour
 * lies between the object's and the background's colours nearby, up to
 * PXMatteOptions::bandRadius pixels on each side: wide at a soft or fuzzy
 * edge, two or three pixels on each side at a crisp one. In the band every pixel is
 * taken as a mix alpha F + (1 - alpha) B of an object colour F and a
 * background colour B estimated from the known pixels next to the band;
 * alpha is the photo colour's projection onto the line from B to F, weighed
 * against the hard mask where F and B are alike. The object colour is then
 * solved for from the photo, alpha and B. Outside the band the mask's hard
 * value stays.
 *
 * Call order: setPhoto() and setMask(), optionally the options and the
 * progress and cancel functions, then run(), then alpha() and foreground().
 * Any thread; a plain class without threads or locks of its own. Parallel
 * passes go through PXConcurrent over fixed tiles of the photo, so the
 * result depends only on the inputs, not on the number of cores or the hash
 * seed. Memory: the two results, the scaled mask and a few tiles.
 */
class PXIMAGECUTTER_EXPORT PXMatte
{
public:
    /** How often run() calls the progress function. */
    static constexpr int progressSteps = 2;

    /**
     * The photo, any format (others than 32-bit RGB are converted), normally
     * at its full size: the results have its size.
     */
    void setPhoto(const QImage& photo);
    /**
     * The cut, object where the mask's grey value is 128 or more (any format
     * is read as grey). A mask of another size than the photo's is scaled
     * to it smoothly, so a mask cut on a scaled copy gives no stairs.
     */
    void setMask(const QImage& mask);
    /**
     * The cut as PXImageSegmentation gives it (object transparent, background
     * opaque), of any size like setMask()'s.
     */
    void setSelectionMask(const QImage& mask);
    void setOptions(const PXMatteOptions& options);
    PXMatteOptions options() const { return m_options; }
    /** Called after each stage, on the thread that calls run(). */
    void setProgressFunction(const std::function<void()>& progress);
    /** Asked between stages and tiles; true makes run() return false. */
    void setCancelFunction(const std::function<bool()>& cancelled);

    /**
     * Computes the matte. False (and null results) for a null photo, an
     * empty mask or when cancelled.
     */
    bool run();

    /** The matte: Format_Grayscale8 of the photo's size, 255 = object. */
    QImage alpha() const { return m_alpha; }
    /**
     * The cut-out: Format_ARGB32 (not premultiplied) of the photo's size
     * whose alpha is the matte. Its colours are the photo's outside the band
     * and the estimated object colours, the background's taken out, inside.
     */
    QImage foreground() const { return m_foreground; }

private:
    QImage m_photo;
    QImage m_mask;
    PXMatteOptions m_options;
    std::function<void()> m_progress;
    std::function<bool()> m_cancelled;
    QImage m_alpha;
    QImage m_foreground;
};
