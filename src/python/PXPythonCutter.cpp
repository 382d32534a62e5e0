#include "PXPythonCutter.h"

#include "PXPythonErrors.h"
#include "PXPythonHost.h"
#include "PXSegmentationQueries.h"

#include <PXImageSegmentation.h>
#include <PXMementoSegmentation.h>
#include <PXUndoCommandSegmentation.h>

#include <QFileInfo>
#include <QThreadPool>
#include <QUndoStack>

#include <memory>
#include <stdexcept>

PXPythonCutter::PXPythonCutter(const QImage& photo, bool refine)
{
    PXPythonHost& host = PXPythonHost::instance();
    host.run([&] {
        m_controller = new PXImageSegmentation;
        m_controller->setRefinedCut(refine);
        m_controller->setup(photo, QFileInfo());
        // Each cutter keeps its own history: the library's undo controller
        // is one per process and would mix the steps of cutters in other threads.
        m_history = new QUndoStack;
    });
    PXMaskWaiter* waiter = &m_waiter;
    QObject::connect(m_controller, &PXImageSegmentation::sendNewMask,
        [waiter](const QImage& mask) { waiter->offer(mask); });
    m_releaseKey = host.addRelease([this] { release(); });
}

PXPythonCutter::~PXPythonCutter()
{
    PXPythonHost& host = PXPythonHost::instance();
    host.removeRelease(m_releaseKey);
    try {
        host.run([this] { release(); });
    } catch (const std::runtime_error&) {
        // The host has shut down and released this cutter already.
    }
}

void PXPythonCutter::release()
{
    // The history's commands point at the controller; they go first.
    delete std::exchange(m_history, nullptr);
    delete std::exchange(m_controller, nullptr);
}

QImage PXPythonCutter::request(const std::function<void()>& ask, bool withLabels, int timeoutMs,
    const Interrupted& interrupted)
{
    PXPythonHost& host = PXPythonHost::instance();
    std::unique_ptr<PXMementoSegmentation> before;
    m_waiter.arm();
    host.run([&] {
        before.reset(m_controller->createMemento(withLabels));
        ask();
    });
    bool stopped = false;
    const QImage mask = m_waiter.wait(timeoutMs, [&] { return stopped = interrupted && interrupted(); });
    if (mask.isNull()) {
        host.run([this] { m_controller->cancel(); });
        if (stopped)
            throw PXPythonErrors::Interrupted("interrupted; the work was cancelled");
        throw PXPythonErrors::Timeout(
            "no mask within the timeout of " + std::to_string(timeoutMs / 1000.0) + " s; the work was cancelled");
    }
    // The controller's run() ends right after it emits.
    m_controller->wait();
    host.run([&] {
        m_history->push(
            new PXUndoCommandSegmentation(before.release(), m_controller->createMemento(withLabels), m_controller));
    });
    return mask;
}

QImage PXPythonCutter::lasso(const QPainterPath& path, int timeoutMs, const Interrupted& interrupted)
{
    const std::lock_guard<std::mutex> locker(m_calls);
    // With labels: undoing a lasso brings back the regions it replaced.
    return request([&] { m_controller->startThreadWithInitialPath(path); }, true, timeoutMs, interrupted);
}

QImage PXPythonCutter::click(const QPointF& point, int timeoutMs)
{
    const std::lock_guard<std::mutex> locker(m_calls);
    PXPythonHost& host = PXPythonHost::instance();
    std::unique_ptr<PXMementoSegmentation> before;
    host.run([&] {
        if (!PXSegmentationQueries::insideLasso(*m_controller, point))
            throw std::invalid_argument("lies outside the lasso (a click there would toggle all that the lasso "
                                        "left out)");
        before.reset(m_controller->createMemento(false));
        m_controller->startThreadWithClicker(point);
    });
    // The clicker runs on the global pool and emits nothing.
    if (!QThreadPool::globalInstance()->waitForDone(timeoutMs))
        throw PXPythonErrors::Timeout("the click did not finish within the timeout");
    QImage mask;
    host.run([&] {
        mask = m_controller->maskForeground();
        m_history->push(
            new PXUndoCommandSegmentation(before.release(), m_controller->createMemento(false), m_controller));
    });
    return mask;
}

QImage PXPythonCutter::paint(const QPainterPath& stroke, bool object, int timeoutMs, const Interrupted& interrupted)
{
    const std::lock_guard<std::mutex> locker(m_calls);
    // A final stroke: no gesture of temporary strokes precedes it, so the
    // controller records nothing and the history here does.
    return request([&] { m_controller->startThreadWithPaintSelection(stroke, object, false); }, false, timeoutMs,
        interrupted);
}

QImage PXPythonCutter::scribble(const QPainterPath& stroke, bool object, int timeoutMs,
    const Interrupted& interrupted)
{
    const std::lock_guard<std::mutex> locker(m_calls);
    return request([&] { m_controller->startThreadWithScribble(stroke, object, false); }, false, timeoutMs,
        interrupted);
}

QImage PXPythonCutter::invert(int timeoutMs, const Interrupted& interrupted)
{
    const std::lock_guard<std::mutex> locker(m_calls);
    return request([&] { m_controller->invertMask(); }, false, timeoutMs, interrupted);
}

QImage PXPythonCutter::undo()
{
    return stepThroughHistory(true);
}

QImage PXPythonCutter::redo()
{
    return stepThroughHistory(false);
}

QImage PXPythonCutter::stepThroughHistory(bool back)
{
    const std::lock_guard<std::mutex> locker(m_calls);
    QImage mask;
    // The commands restore mementos on this thread; the mask is then at hand.
    PXPythonHost::instance().run([&] {
        if (back)
            m_history->undo();
        else
            m_history->redo();
        mask = m_controller->maskForeground();
    });
    return mask;
}

QImage PXPythonCutter::mask()
{
    const std::lock_guard<std::mutex> locker(m_calls);
    QImage mask;
    PXPythonHost::instance().run([&] { mask = m_controller->maskForeground(); });
    return mask;
}

QImage PXPythonCutter::matte()
{
    const std::lock_guard<std::mutex> locker(m_calls);
    QImage cutout;
    PXPythonHost::instance().run([&] { cutout = m_controller->matteCutout(); });
    return cutout;
}

QImage PXPythonCutter::regions()
{
    const std::lock_guard<std::mutex> locker(m_calls);
    QImage labels;
    PXPythonHost::instance().run([&] {
        const std::unique_ptr<PXMementoSegmentation> state(m_controller->createMemento(true));
        labels = state->labels();
    });
    return labels;
}

bool PXPythonCutter::hasCut()
{
    bool valid = false;
    PXPythonHost::instance().run([&] { valid = m_controller->isValid(); });
    return valid;
}
