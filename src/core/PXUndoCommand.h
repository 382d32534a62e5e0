#pragma once

#include "pxcore_export.h"

#include <QUndoCommand>

/**
 * Base of every undoable edit pushed to the host's undo stack.
 *
 * undo() calls undoCore() and redo() calls doCoreAction(). A command made with
 * executeOnPush false describes an edit that is already on screen, so the
 * first redo() after construction (the one QUndoStack::push() makes) does
 * nothing; every later redo() calls doCoreAction().
 *
 * The remaining virtual operations are hooks for subclasses; their defaults
 * describe an empty command that cannot redo fast and records nothing.
 */
class PXCORE_EXPORT PXUndoCommand : public QUndoCommand
{
public:
    PXUndoCommand(const QString& text, QUndoCommand* parent, bool executeOnPush);
    ~PXUndoCommand() override;

    void undo() override;
    void redo() override;
    /** -1: commands do not merge unless a subclass says so. */
    int id() const override;
    bool mergeWith(const QUndoCommand* other) override;

    /** True when the command changes nothing and need not be kept. */
    virtual bool isEmpty() const;
    /** A one-line description for logs; the command's text by default. */
    virtual QString describe() const;
    /** The text shown in undo menus; the command's text by default. */
    virtual QString textContent() const;

    /** Reverts the edit. */
    virtual void undoCore();
    /** Applies the edit. */
    virtual void doCoreAction();
    virtual bool fastRedoPossible() const;
    /** Applies the edit from recorded state; calls doCoreAction() by default. */
    virtual void fastRedo();
    virtual void recordStartState();
    virtual void recordEndState();

    bool executesOnPush() const { return m_executeOnPush; }

private:
    bool m_executeOnPush;
    bool m_redoneOnce = false;
};
