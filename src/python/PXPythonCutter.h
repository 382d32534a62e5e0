#pragma once

#include "PXMaskWaiter.h"

#include <QImage>
#include <QPainterPath>
#include <QPointF>

#include <functional>
#include <memory>
#include <mutex>

class PXImageSegmentation;
class QUndoStack;

/**
 * One photo being cut from Python: a PXImageSegmentation on the module's
 * host thread (PXPythonHost) and the calls a host makes on it, each returning
 * once the library has produced its mask.
 *
 * Call order: lasso() first; click(), paint(), scribble() and invert() refine
 * what it gave; undo() and redo() step through this cutter's own history.
 * Every call is made without the GIL from any thread; calls on one cutter
 * are serialised. A call that gets no mask within its timeout cancels the
 * work and throws PXPythonErrors::Timeout; @p interrupted is asked while
 * waiting and ends the wait with PXPythonErrors::Interrupted.
 *
 * Masks are the library's: QImage::Format_ARGB32_Premultiplied, the
 * background opaque, the object transparent; null before the first lasso.
 */
class PXPythonCutter
{
public:
    using Interrupted = std::function<bool()>;

    /** @p photo in QImage::Format_ARGB32; @p refine picks the refined cut for lassos. */
    PXPythonCutter(const QImage& photo, bool refine);
    ~PXPythonCutter();
    PXPythonCutter(const PXPythonCutter&) = delete;
    PXPythonCutter& operator=(const PXPythonCutter&) = delete;

    QImage lasso(const QPainterPath& path, int timeoutMs, const Interrupted& interrupted);
    /**
     * Toggles the region under @p point. Throws std::invalid_argument when
     * the point lies outside the lasso: the library would toggle all that the
     * lasso left out as one region.
     */
    QImage click(const QPointF& point, int timeoutMs);
    /** Moves every region @p stroke touches to the object or the background. */
    QImage paint(const QPainterPath& stroke, bool object, int timeoutMs, const Interrupted& interrupted);
    /** Paints @p stroke into the mask pixel by pixel. */
    QImage scribble(const QPainterPath& stroke, bool object, int timeoutMs, const Interrupted& interrupted);
    QImage invert(int timeoutMs, const Interrupted& interrupted);
    /** Steps back one call; the mask stays when there is nothing to undo. */
    QImage undo();
    QImage redo();

    QImage mask();
    /** The soft matte of the current mask (PXImageSegmentation::matteCutout()). */
    QImage matte();
    /** The label image: one signed 32-bit region label per pixel (QImage::Format_ARGB32). */
    QImage regions();
    /** Whether a lasso has been cut, so refinement is possible. */
    bool hasCut();

private:
    // Runs @p ask on the host thread and waits for the mask it makes; the
    // change is recorded for undo with mementos taken with or without labels.
    QImage request(const std::function<void()>& ask, bool withLabels, int timeoutMs,
        const Interrupted& interrupted);
    QImage stepThroughHistory(bool back);
    void release();

    std::mutex m_calls;
    PXImageSegmentation* m_controller = nullptr;
    QUndoStack* m_history = nullptr;
    PXMaskWaiter m_waiter;
    int m_releaseKey = 0;
};
