#pragma once

#include "pxcore_export.h"

#include <QObject>

class PXUndoCommand;
class QUndoStack;

/**
 * The photo editor's undo stack, shared by everything in the process.
 *
 * The controller lives in the application's main thread (or the thread that
 * first asked for it when there is no application yet); its QUndoStack is a
 * child of it. Hosts bind menu actions with
 * undoStack()->createUndoAction(...) and createRedoAction(...).
 */
class PXCORE_EXPORT PXUndoController : public QObject
{
    Q_OBJECT

public:
    /** The process-wide controller; created on first use, never null. */
    static PXUndoController* instanceForFotoEditor();

    ~PXUndoController() override;

    /**
     * Pushes @p command and takes ownership of it. Safe from any thread: off
     * the stack's thread the command is handed over, queued, to that thread
     * (and deleted unpushed if that thread's event loop never runs it).
     * A null command is ignored.
     */
    virtual void push(PXUndoCommand* command);

    QUndoStack* undoStack() const;

Q_SIGNALS:
    /** Emitted in the stack's thread after a command was pushed. */
    void commandPushed();

protected:
    PXUndoController();

private:
    PXCORE_NO_EXPORT void pushHere(PXUndoCommand* command);

    QUndoStack* m_stack;
};
