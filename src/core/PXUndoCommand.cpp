#include "PXUndoCommand.h"

PXUndoCommand::PXUndoCommand(const QString& text, QUndoCommand* parent, bool executeOnPush)
    : QUndoCommand(text, parent)
    , m_executeOnPush(executeOnPush)
{
}

PXUndoCommand::~PXUndoCommand() = default;

void PXUndoCommand::undo()
{
    undoCore();
}

void PXUndoCommand::redo()
{
    const bool first = !m_redoneOnce;
    m_redoneOnce = true;
    if (first && !m_executeOnPush)
        return;
    doCoreAction();
}

int PXUndoCommand::id() const
{
    return -1;
}

bool PXUndoCommand::mergeWith(const QUndoCommand*)
{
    return false;
}

bool PXUndoCommand::isEmpty() const
{
    return false;
}

QString PXUndoCommand::describe() const
{
    return text();
}

QString PXUndoCommand::textContent() const
{
    return text();
}

void PXUndoCommand::undoCore()
{
}

void PXUndoCommand::doCoreAction()
{
}

bool PXUndoCommand::fastRedoPossible() const
{
    return false;
}

void PXUndoCommand::fastRedo()
{
    doCoreAction();
}

void PXUndoCommand::recordStartState()
{
}

void PXUndoCommand::recordEndState()
{
}
