#pragma once

#include <QColor>
#include <QImage>
#include <QString>

#include <memory>

class PXImageSegmentation;
class PXMementoSegmentation;

/**
 * The studio's selection beyond one lasso: several lassos combined (a new
 * one replaces, adds to or removes from the selection), grown, shrunk,
 * feathered, saved and loaded. The selection lives in the library's mask, so
 * paint, scribble and clicks keep working on the result; each edit here is
 * one command on the library's undo stack (PXUndoCommandSegmentation with
 * a text of its own), so a new lasso is undone like a paint stroke.
 *
 * All calls on the host's thread while the controller thread is idle, except
 * beginLasso(), which is called just before the lasso is sent.
 */
class PXStudioSelection
{
public:
    enum LassoMode { Replace, Add, Subtract };

    /** @p segmentation is not owned and must outlive this object. */
    explicit PXStudioSelection(PXImageSegmentation* segmentation);
    ~PXStudioSelection();

    /** The selection shown: 255 over the object (see PXSelectionMask); null before the first cut. */
    QImage selection() const;

    /** Remembers the state before a lasso that will be cut with @p mode. */
    void beginLasso(LassoMode mode);
    /**
     * The cut of the lasso has arrived: combines it with the selection before
     * it as its mode says and pushes one undo command for the whole lasso.
     * Returns false when no lasso was begun.
     */
    bool finishLasso();
    /** Forgets a lasso that was cancelled. */
    void dropLasso();

    /** Replaces the selection by @p selection as one undo command named @p text. */
    void replace(const QImage& selection, const QString& text);

private:
    void setMask(const QImage& selection);

    PXImageSegmentation* m_segmentation;
    std::unique_ptr<PXMementoSegmentation> m_beforeLasso;
    LassoMode m_mode = Replace;
};
