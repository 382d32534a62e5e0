#include "PXUndoController.h"

#include "PXUndoCommand.h"

#include <QCoreApplication>
#include <QThread>
#include <QUndoStack>

#include <memory>

namespace {
// Lets a subclass-protected constructor serve the function-local static.
class ProcessUndoController : public PXUndoController
{
};
} // namespace

PXUndoController* PXUndoController::instanceForFotoEditor()
{
    static ProcessUndoController myInstance;
    return &myInstance;
}

PXUndoController::PXUndoController()
    : m_stack(new QUndoStack(this))
{
    if (QCoreApplication* application = QCoreApplication::instance()) {
        if (thread() != application->thread())
            moveToThread(application->thread());
    }
}

PXUndoController::~PXUndoController() = default;

QUndoStack* PXUndoController::undoStack() const
{
    return m_stack;
}

void PXUndoController::push(PXUndoCommand* command)
{
    if (!command)
        return;
    if (QThread::currentThread() == thread()) {
        pushHere(command);
        return;
    }
    // The holder deletes the command if the queued call is dropped. Only the
    // call owns it: Qt releases the call inside libQt6Core, where a copy left
    // here would look unordered to ThreadSanitizer with the receiver's use.
    auto holder = std::make_shared<std::unique_ptr<PXUndoCommand>>(command);
    QMetaObject::invokeMethod(
        this, [this, holder = std::move(holder)]() { pushHere(holder->release()); },
        Qt::QueuedConnection);
}

void PXUndoController::pushHere(PXUndoCommand* command)
{
    m_stack->push(command);
    Q_EMIT commandPushed();
}
