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
 * a first guess of the object and from a band outside the lasso; a minimum
 * cut over the regions, split into small blocks so that a region that leaks
 * over the edge can be cut too, chooses the side of every block, with edge
 * strength as the cost of separating neighbours, weighed down where the
 * models tell the sides apart by little; the models are learnt again from the
 * result and the cut repeated until no block moves or the rounds run out.
 * Should the superpixel cut have lost the object, the lasso's whole inside is
 * the first guess instead, its blocks taking sides by colour alone first.
 * Last, a minimum cut over single pixels moves the outline onto the object's
 * edge: pixels near it, those a mark reaches, and every pixel of a block
 * whose colours disagree with its side.
 *
 * User marks are hard: marked pixels stay on their side, and a stroke is
 * answered by setting the marks and the current selection and running again,
 * which starts from that selection alone and reuses what prepare() made.
 *
 * Call order: the setters (photo, lasso and regions are needed; marks and a
 * start selection are optional), optionally prepare(), then run(). Any
 * thread; a plain class without threads or locks of its own. Parallel passes
 * go through PXConcurrent. Copies share what prepare() made. The result
 * depends only on the inputs, not on the number of cores or the hash seed.
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
     * Keeps what prepare() made.
     */
    void setMarks(const QImage& marks);
    /**
     * The selection to start from (Format_Grayscale8, the photo's size,
     * non-zero for the object), as after an earlier run(): run() then learns
     * its models from it and the marks alone, as for a stroke. A null image
     * (the default) starts from the regions' object and the lasso. Keeps
     * what prepare() made.
     */
    void setStartSelection(const QImage& selection);
    /** The tunables; drops what prepare() made. */
    void setOptions(const PXRefinedCutOptions& options);
    PXRefinedCutOptions options() const { return m_options; }
    /** Called after each stage, on the thread that calls run(). */
    void setProgressFunction(const std::function<void()>& progress);
    /** Asked between stages; true makes run() return a null image. */
    void setCancelFunction(const std::function<bool()>& cancelled);

    /**
     * Reads the photo, lasso and labels into the working area, measures its
     * edge strengths and splits its regions into blocks: the part of run()
     * that needs neither object labels nor marks. Optional: run() does it when it has not been done. Lets a
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
    QImage m_startSelection;
    PXRefinedCutOptions m_options;
    std::function<void()> m_progress;
    std::function<bool()> m_cancelled;
    std::shared_ptr<const Prepared> m_prepared;
};
