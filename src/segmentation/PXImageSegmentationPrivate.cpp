#include "PXImageSegmentationPrivate.h"

#include "PXImageSegmentation.h"
#include "PXInitialSegmentationWorker.h"
#include "PXLogger.h"
#include "PXMatte.h"
#include "PXMementoSegmentation.h"
#include "PXPlatformIndependent.h"
#include "PXUndoCommandSegmentation.h"
#include "PXUndoController.h"

#include <QApplication>
#include <QFutureWatcher>
#include <QGraphicsBlurEffect>
#include <QGraphicsPixmapItem>
#include <QGraphicsScene>
#include <QPainter>
#include <QPixmap>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>

PXImageSegmentationPrivate::PXImageSegmentationPrivate(PXImageSegmentation* owner)
    : q(owner)
    , undoController(PXUndoController::instanceForFotoEditor())
{
}

PXImageSegmentationPrivate::~PXImageSegmentationPrivate()
{
    delete requests.pendingMemento;
}

QImage PXImageSegmentationPrivate::matteCutout(const QImage& photo, const PXMatteOptions& options,
    const std::function<void()>& progress, const std::function<bool()>& cancelled) const
{
    const PXSelectionModel selection = snapshot();
    PXMatte matte;
    matte.setPhoto(photo.isNull() ? selection.photo() : photo);
    matte.setSelectionMask(selection.mask());
    matte.setOptions(options);
    matte.setProgressFunction(progress);
    matte.setCancelFunction(cancelled);
    return matte.run() ? matte.foreground() : QImage();
}

void PXImageSegmentationPrivate::request(int newMode)
{
    mode = newMode;
    // A loop that is leaving takes no more requests and touches nothing after
    // it said so; wait for it and start anew. Any other running job keeps the
    // thread and the request waits.
    if (loopIsLeaving && q->isRunning() && QThread::currentThread() != q) {
        q->wait();
        runs.observe();
    }
    if (q->isRunning())
        return;
    loopIsLeaving = false;
    PXSingleton<PXLogger>::instance()->legacyLog(QStringLiteral("SEG:StartingThread"), false);
    q->start(QThread::InheritPriority);
}

void PXImageSegmentationPrivate::requestStroke(const QPainterPath& path, bool isForeground, bool isTemporary,
                                               int newMode)
{
    QMutexLocker locker(&requestMutex);
    requests.strokes = requests.strokes.united(PXSelectionModel::usablePath(path));
    requests.strokeIsForeground = isForeground;
    requests.strokeIsTemporary = isTemporary;
    request(newMode);
}

PXUndoCommandSegmentation* PXImageSegmentationPrivate::takeUndoCommand()
{
    if (!requests.pendingMemento)
        return nullptr;
    PXMementoSegmentation* after = withModel(
        [](PXSelectionModel& selection) { return selection.createMemento(false); });
    auto* command = new PXUndoCommandSegmentation(requests.pendingMemento->clone(), after, q);
    delete std::exchange(requests.pendingMemento, nullptr);
    return command;
}

PXImageSegmentationPrivate::Stroke PXImageSegmentationPrivate::takeStroke()
{
    QMutexLocker locker(&requestMutex);
    Stroke stroke {std::exchange(requests.strokes, QPainterPath()), requests.strokeIsForeground,
                   nullptr};
    // The after state is taken before this pass paints, so redo shows the
    // gesture without its final stroke; kept as designed.
    if (requests.strokeIsTemporary) {
        if (!requests.pendingMemento)
            requests.pendingMemento = q->createMemento(false);
    } else {
        stroke.command = takeUndoCommand();
    }
    if (stroke.path.isEmpty())
        loopIsLeaving = true;
    return stroke;
}

PXImageSegmentationPrivate::Hover PXImageSegmentationPrivate::takeHover()
{
    QMutexLocker locker(&requestMutex);
    return {std::exchange(requests.hoverClusters, QSet<int>()), requests.strokeIsForeground};
}

bool PXImageSegmentationPrivate::moreHover()
{
    QMutexLocker locker(&requestMutex);
    const bool more = !requests.hoverClusters.isEmpty();
    if (!more)
        loopIsLeaving = true;
    return more;
}

void PXImageSegmentationPrivate::retireWorker(bool stop)
{
    PXInitialSegmentationWorker* retired = worker.exchange(nullptr);
    if (!retired)
        return;
    if (stop)
        retired->stop();
    // The watcher reports in the controller's thread after everything the task
    // posted there, so no queued signal of the worker outlives it.
    auto* watcher = new QFutureWatcher<void>();
    if (watcher->thread() != q->thread())
        watcher->moveToThread(q->thread());
    retiredWorkers.append({retired, watcher});
    QObject::connect(watcher, &QFutureWatcherBase::finished, q,
                     [this, watcher]() { releaseRetiredWorker(watcher); });
    watcher->setFuture(workerTask);
    workerTask = QFuture<void>();
}

void PXImageSegmentationPrivate::releaseRetiredWorker(QFutureWatcher<void>* watcher)
{
    const auto found = std::find_if(retiredWorkers.begin(), retiredWorkers.end(),
                                    [watcher](const RetiredWorker& retired) {
                                        return retired.watcher == watcher;
                                    });
    if (found == retiredWorkers.end())
        return;
    PXInitialSegmentationWorker* retired = found->worker;
    retiredWorkers.erase(found);
    // Its destructor joins the edge detector's thread if that still runs.
    delete retired;
    watcher->deleteLater();
}

void PXImageSegmentationPrivate::shutDown()
{
    // Terminating can kill the thread inside a lock or an allocation, so it
    // is only the last resort for a job that ignores the interruption.
    q->requestInterruption();
    if (!q->wait(2000)) {
        while (q->isRunning()) {
            q->terminate();
            PXPlatformIndependent::instance()->sleep(100);
        }
    }
    runs.observe();
    for (QFuture<void>& click : clicks)
        click.waitForFinished();
    deleteWorkers();
}

void PXImageSegmentationPrivate::deleteWorkers()
{
    // A worker's destructor waits for its pool task and edge detector.
    for (const RetiredWorker& retired : std::as_const(retiredWorkers)) {
        delete retired.watcher;
        delete retired.worker;
    }
    retiredWorkers.clear();
    if (PXInitialSegmentationWorker* current = worker.exchange(nullptr)) {
        current->stop();
        delete current;
    }
}

bool PXImageSegmentationPrivate::refineStroke(const std::function<void(PXSelectionModel&)>& mark)
{
    PXRefinedCut cut;
    QImage labels;
    int strokes = 0;
    const bool refining = withModel([&](PXSelectionModel& current) {
        if (!current.refining() || !current.isValid())
            return false;
        mark(current);
        cut = current.strokeCut();
        labels = current.labels();
        strokes = current.strokes();
        return true;
    });
    if (!refining)
        return false;
    // A click runs on the pool: only the controller's own solve stops with it.
    if (QThread::currentThread() == q)
        cut.setCancelFunction([this]() { return q->isInterruptionRequested(); });
    // Not under the model's lock: the cut waits for the pool.
    cut.prepare();
    const QImage selection = cut.run();
    if (selection.isNull())
        return true;
    withModel([&](PXSelectionModel& current) {
        if (current.applyStrokeSelection(selection, labels, strokes))
            current.keepRefinedCut(cut, labels);
    });
    return true;
}

QImage PXImageSegmentationPrivate::smoothMask(const QImage& mask, int radius)
{
    // Pixmaps and graphics scenes exist only in a widget application's thread.
    const QCoreApplication* application = QCoreApplication::instance();
    if (!qobject_cast<const QApplication*>(application) || QThread::currentThread() != application->thread())
        return QImage();
    if (mask.isNull())
        return QImage();

    auto* effect = new QGraphicsBlurEffect;
    effect->setBlurRadius(double(radius));
    auto* item = new QGraphicsPixmapItem(QPixmap::fromImage(mask));
    item->setGraphicsEffect(effect);
    QGraphicsScene scene;
    scene.addItem(item);

    // One bit per pixel thresholds the blurred edge; that is what hosts use.
    QImage result(mask.size(), QImage::Format_Mono);
    result.fill(Qt::transparent);
    QPainter painter(&result);
    scene.render(&painter, QRectF(), QRectF(0, 0, mask.width(), mask.height()), Qt::KeepAspectRatio);
    painter.end();
    return result;
}

void PXImageSegmentationPrivate::cutRefined()
{
    // The refined cut's set-up needs no object: it is made on a pool thread
    // while the plain cut that gives the object runs here.
    PXRefinedCut refinement;
    QImage labels;
    {
        const PXSelectionModel current = snapshot();
        refinement = current.refinedCut();
        labels = current.labels();
    }
    PXHandOver handOver;
    handOver.publish();
    QFuture<void> preparing = QtConcurrent::run(QThreadPool::globalInstance(), [&refinement, &handOver] {
        const PXHandOver::Turn turn(handOver);
        refinement.prepare();
    });
    const bool cut = q->cutObjectPlain();
    // Waited for even when interrupted: the set-up works on this frame.
    preparing.waitForFinished();
    handOver.observe();
    if (!cut)
        return;
    refinement.setObjectLabels(snapshot().foreground());
    refinement.setProgressFunction([this]() { q->increaseAndUpdateProgressbar(); });
    refinement.setCancelFunction([this]() { return q->isInterruptionRequested(); });
    // Not under the model's lock: the cut waits for the pool.
    const QImage selection = refinement.run();
    withModel([&](PXSelectionModel& current) {
        current.applyRefinedSelection(selection, labels);
        current.keepRefinedCut(refinement, labels);
    });
}
