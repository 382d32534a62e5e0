#pragma once

#include "PXUndoCommand.h"
#include "pximagecutter_export.h"

#include <QPointer>

class PXImageSegmentation;
class PXMementoSegmentation;

/**
 * An undoable refinement gesture: the selection state before and after it.
 *
 * undo() restores the before memento and every redo() after the first
 * restores the after memento, both through PXImageSegmentation::setMemento().
 * The first redo(), the one the undo stack makes when the command is pushed,
 * does nothing: the gesture is already on screen.
 *
 * The command owns both mementos. It does not own the controller; once the
 * controller is destroyed, undo and redo do nothing (the photo editor's undo
 * stack may outlive the segmentation of one photo).
 */
class PXIMAGECUTTER_EXPORT PXUndoCommandSegmentation : public PXUndoCommand
{
public:
    /** Takes ownership of @p before and @p after. */
    PXUndoCommandSegmentation(PXMementoSegmentation* before, PXMementoSegmentation* after,
                              PXImageSegmentation* controller);
    ~PXUndoCommandSegmentation() override;

    void undoCore() override;
    void doCoreAction() override;

private:
    PXMementoSegmentation* m_before;
    PXMementoSegmentation* m_after;
    QPointer<PXImageSegmentation> m_controller;
};
