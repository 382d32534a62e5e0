#include "PXUndoCommandSegmentation.h"

#include "PXImageSegmentation.h"
#include "PXMementoSegmentation.h"

PXUndoCommandSegmentation::PXUndoCommandSegmentation(PXMementoSegmentation* before,
                                                     PXMementoSegmentation* after,
                                                     PXImageSegmentation* controller)
    : PXUndoCommand(QStringLiteral("UndoSegmentation"), nullptr, false)
    , m_before(before)
    , m_after(after)
    , m_controller(controller)
{
}

PXUndoCommandSegmentation::~PXUndoCommandSegmentation()
{
    delete m_after;
    delete m_before;
}

void PXUndoCommandSegmentation::undoCore()
{
    if (m_controller && m_before)
        m_controller->setMemento(m_before);
}

void PXUndoCommandSegmentation::doCoreAction()
{
    if (m_controller && m_after)
        m_controller->setMemento(m_after);
}
