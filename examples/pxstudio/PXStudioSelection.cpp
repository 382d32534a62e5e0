#include "PXStudioSelection.h"

#include "PXSelectionMask.h"

#include <PXImageSegmentation.h>
#include <PXMementoSegmentation.h>
#include <PXUndoCommandSegmentation.h>
#include <PXUndoController.h>

#include <QCoreApplication>

PXStudioSelection::PXStudioSelection(PXImageSegmentation* segmentation)
    : m_segmentation(segmentation)
{
}

PXStudioSelection::~PXStudioSelection() = default;

QImage PXStudioSelection::selection() const
{
    return PXSelectionMask::fromMask(m_segmentation->maskForeground());
}

void PXStudioSelection::beginLasso(LassoMode mode)
{
    // With its labels: undoing the lasso brings back the regions it replaced.
    m_beforeLasso.reset(m_segmentation->createMemento(true));
    m_mode = mode;
}

bool PXStudioSelection::finishLasso()
{
    if (!m_beforeLasso)
        return false;
    const QImage before = PXSelectionMask::fromMask(m_beforeLasso->mask());
    QString text = QCoreApplication::translate("PXStudioSelection", "New selection");
    if (m_mode != Replace && !before.isNull() && before.size() == selection().size()) {
        const bool add = m_mode == Add;
        setMask(add ? PXSelectionMask::united(before, selection()) : PXSelectionMask::subtracted(before, selection()));
        text = add ? QCoreApplication::translate("PXStudioSelection", "Add to selection")
                   : QCoreApplication::translate("PXStudioSelection", "Subtract from selection");
    }
    auto* command = new PXUndoCommandSegmentation(m_beforeLasso.release(), m_segmentation->createMemento(true),
        m_segmentation);
    command->setText(text);
    m_segmentation->undoController()->push(command);
    return true;
}

void PXStudioSelection::dropLasso()
{
    m_beforeLasso.reset();
}

void PXStudioSelection::replace(const QImage& selection, const QString& text)
{
    if (selection.isNull())
        return;
    PXMementoSegmentation* before = m_segmentation->createMemento(false);
    setMask(selection);
    auto* command = new PXUndoCommandSegmentation(before, m_segmentation->createMemento(false), m_segmentation);
    command->setText(text);
    m_segmentation->undoController()->push(command);
}

void PXStudioSelection::setMask(const QImage& selection)
{
    const std::unique_ptr<PXMementoSegmentation> now(m_segmentation->createMemento(false));
    const QColor colour = now->maskColor();
    // The sets follow the library's (a region stays where the library put
    // it); the mask is the combined selection.
    const PXMementoSegmentation combined(now->lassoPath(), now->foregroundClusters(), now->backgroundClusters(),
        PXSelectionMask::toMask(selection, colour), QImage(), {}, colour);
    m_segmentation->setMemento(&combined);
}
