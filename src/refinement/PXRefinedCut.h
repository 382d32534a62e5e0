#pragma once

#include "PXRefinedCutOptions.h"
#include "pximagecutter_export.h"

#include <QImage>
#include <QPainterPath>
#include <QSet>

#include <functional>
#include <memory>

/**
 * The refined cut: turns the superpixel cut of a lasso into a mask that
 * follows the object's edges.
 *
 * Colour models of object and background (Gaussian mixtures) are learnt from
 * the current cut and from a band outside the lasso; a minimum cut over the
 * regions, split into small blocks so that a region that leaks over the edge
 * can be cut too, chooses the side of every block, with edge strength as the
 * cost of separating neighbours; the models are learnt again from the result
 * and the cut repeated. Last, a minimum cut over the pixels of a narrow band
 * around the outline moves it onto the object's edge.
 *
 * Call order: the setters (photo, lasso and regions are needed; marks are
 * optional), optionally prepare(), then run(). Any thread; a plain class
 * without threads or locks of its own. Parallel passes go through
 * PXConcurrent. Copies share what prepare() made. The result depends only on
 * the inputs, not on the number of cores or the hash seed.
 */
class PXIMAGECUTTER_EXPORT PXRefinedCut
{
public:
    /** The values of the marks image. */
    enum Mark : uchar { NoMark = 0, ObjectMark = 1, BackgroundMark = 2 };

    /** How often run() calls the progress function. */
    static constexpr int progressSteps = 3;

    /** The photo, any 32-bit format (others are converted). */
    void setPhoto(const QImage& photo);
    /** The area the object may cover (the grown lasso); outside is background. */
    void setLasso(const QPainterPath& lasso);
    /**
     * The label image of the regions (32-bit signed labels, the photo's size;
     * 0 for none) and the labels of the current cut's object.
     */
    void setRegions(const QImage& labels, const QSet<int>& objectLabels);
    /** Only the labels of the current cut's object; keeps what prepare() made. */
    void setObjectLabels(const QSet<int>& objectLabels);
    /**
     * User strokes as a Format_Grayscale8 image of the photo's size holding
     * Mark values: marked pixels are kept on their side whatever the models
     * say (object marks only inside the lasso). A null image means no marks.
     */
    void setMarks(const QImage& marks);
    /** The tunables; drops what prepare() made. */
    void setOptions(const PXRefinedCutOptions& options);
    PXRefinedCutOptions options() const { return m_options; }
    /** Called after each stage, on the thread that calls run(). */
    void setProgressFunction(const std::function<void()>& progress);
    /** Asked between stages; true makes run() return a null image. */
    void setCancelFunction(const std::function<bool()>& cancelled);

    /**
     * Reads the photo, lasso, labels and marks into the working area and
     * measures its edge strengths: the part of run() that needs no object
     * labels. Optional: run() does it when it has not been done. Lets a
     * caller set the cut up while the cut that gives the object labels is
     * still under way, then pass them with setObjectLabels(); any other
     * setter drops what was prepared.
     */
    void prepare();

    /**
     * The selection: a Format_Grayscale8 image of the photo's size, 255 for
     * the object and 0 for the background. A null image for a null photo or
     * when cancelled.
     */
    QImage run() const;

private:
    struct Prepared;
    std::shared_ptr<const Prepared> makePrepared() const;

    QImage m_photo;
    QPainterPath m_lasso;
    QImage m_labels;
    QSet<int> m_objectLabels;
    QImage m_marks;
    PXRefinedCutOptions m_options;
    std::function<void()> m_progress;
    std::function<bool()> m_cancelled;
    std::shared_ptr<const Prepared> m_prepared;
};
