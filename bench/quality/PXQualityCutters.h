#pragma once

// The cutting methods the quality bench compares, each driven as a host
// drives it: a lasso first, then paint dots.

#include <QImage>
#include <QPainterPath>

#include <memory>

class PXImageSegmentation;

/** A method's answer to a lasso or a stroke. */
struct PXCutAnswer {
    QImage selection; // Format_Grayscale8, 255 on the object; null when none came
    double milliseconds = 0.0;
    // Processor time of the whole process: on a shared, loaded machine a
    // steadier measure of the work than the wall clock.
    double cpuMilliseconds = 0.0;
};

/** A method a (simulated) user cuts with: one lasso, then strokes on its result. */
class PXCutter
{
public:
    virtual ~PXCutter() = default;
    /** A fresh cut of @p photo (Format_ARGB32) inside @p lasso. */
    virtual PXCutAnswer cut(const QImage& photo, const QPainterPath& lasso) = 0;
    /** Paints @p dot as object or background onto the last result and cuts again. */
    virtual PXCutAnswer stroke(const QPainterPath& dot, bool object) = 0;
};

/**
 * The library through PXImageSegmentation, plain or refined: a stroke is a
 * paint selection, answered by the next mask. Needs a running QApplication
 * and its thread.
 */
class PXControllerCutter : public PXCutter
{
public:
    explicit PXControllerCutter(bool refined);
    ~PXControllerCutter() override;
    PXCutAnswer cut(const QImage& photo, const QPainterPath& lasso) override;
    PXCutAnswer stroke(const QPainterPath& dot, bool object) override;

private:
    bool m_refined;
    std::unique_ptr<PXImageSegmentation> m_controller;
};

#ifdef PX_HAVE_OPENCV
/**
 * OpenCV's grabCut: the lasso gives GC_BGD outside and GC_PR_FGD inside; a
 * stroke paints GC_FGD or GC_BGD onto the last labels and runs one more
 * iteration from them (GC_INIT_WITH_MASK).
 */
class PXGrabCutCutter : public PXCutter
{
public:
    explicit PXGrabCutCutter(int iterations);
    ~PXGrabCutCutter() override;
    PXCutAnswer cut(const QImage& photo, const QPainterPath& lasso) override;
    PXCutAnswer stroke(const QPainterPath& dot, bool object) override;

private:
    struct State;
    int m_iterations;
    std::unique_ptr<State> m_state;
};
#endif
