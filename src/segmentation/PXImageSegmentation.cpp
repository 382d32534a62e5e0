#include "PXImageSegmentation.h"

#include "PXImageCutterSettings.h"
#include "PXImageSegmentationPrivate.h"
#include "PXInitialSegmentationWorker.h"
#include "PXLogger.h"
#include "PXMementoSegmentation.h"
#include "PXRefinedCut.h"
#include "PXUndoCommandSegmentation.h"
#include "PXUndoController.h"

#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

namespace {

void log(const char* text)
{
    PXSingleton<PXLogger>::instance()->legacyLog(QString::fromLatin1(text), false);
}

} // namespace

PXImageSegmentation::PXImageSegmentation()
    : QThread(nullptr)
    , d(std::make_unique<PXImageSegmentationPrivate>(this))
{
}

PXImageSegmentation::~PXImageSegmentation()
{
    d->shutDown();
}

void PXImageSegmentation::setup(const QImage& image, const QFileInfo& fileInfo)
{
    cancel();
    // The interrupted job ends at its next check; waiting for it keeps a mask
    // of the old photo from being emitted after the new one is set up.
    if (QThread::currentThread() != this) {
        wait();
        d->runs.observe();
    }
    d->maskIsInverted = false;
    const QImage photo = PXSelectionModel::workingImage(image);
    d->withModel([&](PXSelectionModel& model) { model.setPhoto(photo, fileInfo); });
    reset();
}

void PXImageSegmentation::setImage(const QImage& image)
{
    d->withModel([&](PXSelectionModel& model) { model.setPhoto(image); });
}

void PXImageSegmentation::startWithMode(SegmentationMode mode)
{
    QMutexLocker locker(&d->requestMutex);
    d->request(mode);
}

void PXImageSegmentation::run()
{
    log("SEG:RunningThread");
    switch (d->mode.load()) {
    case InitialCut:
        doInitialCut();
        break;
    case PaintSelection:
    case Scribble:
        paintSelecting();
        break;
    case PaintSelectionHover:
        paintHovering();
        break;
    case ChangeMaskColor:
        d->recolourPending = false;
        updateMask();
        Q_EMIT sendNewMask(maskForeground());
        break;
    case InvertMask:
        invertMaskJob();
        Q_EMIT sendNewMask(maskForeground());
        break;
    default:
        break;
    }
    // Without the request lock: a starter may hold it while waiting for us.
    d->loopIsLeaving = true;
    // A colour change that came while another job ran had its request
    // overwritten; the mask would otherwise keep two colours. Checked after
    // leaving, so a change that missed the running thread is seen here or
    // starts a new one.
    if (d->recolourPending.exchange(false)) {
        updateMask();
        Q_EMIT sendNewMask(maskForeground());
    }
    d->runs.publish();
}

void PXImageSegmentation::cancel()
{
    log("SEG:CancelThread");
    // A worker stopped here, or merely forgotten, is released once its pool
    // task has ended (this replaces deleting it on its finished(), which a
    // stopped worker never emits).
    if (isRunning() && d->worker.load())
        d->retireWorker(true);
    requestInterruption();
    d->retireWorker(false);
    reset();
}

void PXImageSegmentation::reset()
{
    {
        QMutexLocker locker(&d->requestMutex);
        delete std::exchange(d->requests.pendingMemento, nullptr);
        d->requests.strokes = QPainterPath();
    }
    d->withModel([](PXSelectionModel& model) { model.forgetSegmentation(); });
    d->analysedRegion = QRect();
    Q_EMIT sendNewMask(QImage());
    d->currentStep = 0;
    Q_EMIT segmentationProgress(0, d->workerTotalSteps + controllerSteps());
}

bool PXImageSegmentation::isValid() const
{
    return d->snapshot().isValid();
}

int PXImageSegmentation::totalSteps() const
{
    return d->workerTotalSteps + controllerSteps();
}

void PXImageSegmentation::increaseAndUpdateProgressbar()
{
    const int step = ++d->currentStep;
    Q_EMIT segmentationProgress(step, d->workerTotalSteps + controllerSteps());
}

PXUndoController* PXImageSegmentation::undoController() const
{
    return d->undoController;
}

void PXImageSegmentation::setProgressFromWorker(int, int theTotalStep)
{
    const QObject* worker = sender();
    if (!worker || worker != d->worker.load())
        return;
    d->workerTotalSteps = theTotalStep;
    const int step = ++d->currentStep;
    Q_EMIT segmentationProgress(step, theTotalStep + controllerSteps());
}

void PXImageSegmentation::resetProgress()
{
    d->currentStep = 0;
    Q_EMIT segmentationProgress(0, d->workerTotalSteps + controllerSteps());
}

// ---------------------------------------------------------------------------
// Initial cut

void PXImageSegmentation::startThreadWithInitialPath(QPainterPath thePath)
{
    const QPainterPath path = PXSelectionModel::usablePath(thePath);
    const bool refining = refinedCut();
    d->refining = refining;
    d->withModel([&](PXSelectionModel& model) {
        model.setRefining(refining);
        model.startLasso(path);
    });
    {
        QMutexLocker locker(&d->requestMutex);
        d->requests.strokeIsTemporary = false;
    }
    const QRect rect = PXSelectionModel::roundedRect(path.boundingRect());
    // reset() in startInitialSegmentation() nulls the analysed region, so in
    // practice every lasso starts a worker.
    if (!d->analysedRegion.contains(rect, false)) {
        d->analysedRegion = rect;
        startInitialSegmentation(path);
        return;
    }
    QMutexLocker locker(&d->requestMutex);
    d->request(InitialCut);
}

void PXImageSegmentation::startInitialSegmentation(const QPainterPath& path)
{
    d->withModel([&](PXSelectionModel& model) { model.setLassoPath(path); });
    if (d->worker.load()) {
        log("SEG:CancelThread");
        d->retireWorker(true);
    }
    reset();

    const PXSelectionModel model = d->snapshot();
    // Without a photo there is nothing to segment; the lasso is ignored.
    if (model.photo().isNull())
        return;

    auto* worker = new PXInitialSegmentationWorker(model.analysedPhoto());
    d->worker = worker;
    connect(worker, &PXInitialSegmentationWorker::updateProgress, this,
            &PXImageSegmentation::setProgressFromWorker);
    connect(worker, &PXInitialSegmentationWorker::finished, this,
            &PXImageSegmentation::initialSegmentationIsFinished);
    d->workerTask = worker->startInitialSegmentation(path);
}

void PXImageSegmentation::initialSegmentationIsFinished()
{
    // Compared before the cast: the sender of a late signal may be gone.
    QObject* origin = sender();
    if (!origin || origin != d->worker.load())
        return;
    auto* worker = dynamic_cast<PXInitialSegmentationWorker*>(origin);
    if (!worker)
        return;
    const PXSelectionModel::Segmentation segmentation {worker->labels(), worker->superpixel(),
                                                       worker->pointsOfSuperpixel(),
                                                       worker->neighbours(), worker->pathExpanded()};
    d->withModel([&](PXSelectionModel& model) { model.takeSegmentation(segmentation); });
    QMutexLocker locker(&d->requestMutex);
    d->request(InitialCut);
}

void PXImageSegmentation::doInitialCut()
{
    PXInitialSegmentationWorker* remembered = nullptr;
    for (;;) {
        PXInitialSegmentationWorker* current = d->worker.load();
        if (current == remembered) {
            Q_EMIT sendNewMask(maskForeground());
            return;
        }
        remembered = current;
        cutObjectInitial();
        if (isInterruptionRequested())
            return;
    }
}

void PXImageSegmentation::cutObjectInitial()
{
    if (isInterruptionRequested())
        return;
    d->withModel([](PXSelectionModel& model) { model.beginCut(); });
    // The worker's share is shown as complete; the counter itself moves on
    // with the cut's own steps.
    const int workerSteps = d->workerTotalSteps;
    Q_EMIT segmentationProgress(workerSteps, workerSteps + controllerSteps());
    if (!d->refining) {
        cutObjectPlain();
        return;
    }

    d->cutRefined();
}

bool PXImageSegmentation::cutObjectPlain()
{
    const QImage lassoImage = createImageWithLassoPath();
    increaseAndUpdateProgressbar();

    const QRect region = d->snapshot().expandedRect();
    const auto insideOutside = separateForegroundAndBackgroundSuperPixels(lassoImage, region);

    if (isInterruptionRequested())
        return false;
    increaseAndUpdateProgressbar();

    if (isInterruptionRequested())
        return false;
    assignForegroundPixels(insideOutside);
    increaseAndUpdateProgressbar();

    if (isInterruptionRequested())
        return false;
    // A newer worker's results replaced the ones this cut started with; the
    // cut loop runs again on them.
    if (d->snapshot().expandedRect() != region)
        return false;

    const QSet<int> possibleBackground = extractBackground();
    increaseAndUpdateProgressbar();

    confirmPossibleBackground(possibleBackground);
    return true;
}

QImage PXImageSegmentation::createImageWithLassoPath() const
{
    return d->snapshot().lassoImage();
}

std::pair<QSet<int>, QSet<int>> PXImageSegmentation::separateForegroundAndBackgroundSuperPixels(
    const QImage& lassoImage, const QRect& rect) const
{
    return d->snapshot().separate(lassoImage, rect);
}

QSet<int> PXImageSegmentation::assignForegroundPixels(
    const std::pair<QSet<int>, QSet<int>>& insideOutside)
{
    return d->withModel(
        [&](PXSelectionModel& model) { return model.assignForeground(insideOutside); });
}

QSet<int> PXImageSegmentation::extractBackground()
{
    // The colour model runs on a copy: it may wait for the pool, where a
    // clicker may be waiting for the model.
    const QSet<int> background = d->snapshot().backgroundByColour(
        [this]() { increaseAndUpdateProgressbar(); });
    d->withModel([&](PXSelectionModel& model) { model.moveToBackground(background); });
    return background;
}

QSet<int> PXImageSegmentation::confirmPossibleBackground(const QSet<int>& possibleBackground)
{
    return d->withModel([&](PXSelectionModel& model) {
        return model.confirmPossibleBackground(possibleBackground);
    });
}

void PXImageSegmentation::drawSuperpixelOnForegroundUserMask(int label, bool isForeground)
{
    d->withModel([&](PXSelectionModel& model) { model.setSide(label, isForeground); });
}

// ---------------------------------------------------------------------------
// Interactive refinement

void PXImageSegmentation::startThreadWithPaintSelection(QPainterPath theScribble, bool isForeground,
                                                        bool isTemporary)
{
    d->requestStroke(theScribble, isForeground, isTemporary, PaintSelection);
}

void PXImageSegmentation::startThreadWithScribble(QPainterPath theScribble, bool isForeground,
                                                  bool isTemporary)
{
    d->requestStroke(theScribble, isForeground, isTemporary, Scribble);
}

void PXImageSegmentation::startThreadWithPaintSelectionHover(QSet<int> theClusters,
                                                             bool isForeground)
{
    QMutexLocker locker(&d->requestMutex);
    d->requests.hoverClusters = theClusters;
    d->requests.strokeIsForeground = isForeground;
    d->request(PaintSelectionHover);
}

void PXImageSegmentation::startThreadWithClicker(QPointF thePosition)
{
    d->clicks.removeIf([](const QFuture<void>& click) { return click.isFinished(); });
    d->clicks.append(QtConcurrent::run(QThreadPool::globalInstance(),
                                       &PXImageSegmentation::cutObjectWithClicker, this,
                                       thePosition));
}

void PXImageSegmentation::cutObjectWithClicker(const QPointF& position)
{
    if (!d->refineStroke([&](PXSelectionModel& model) { model.markClick(position); }))
        d->withModel([&](PXSelectionModel& model) { model.click(position); });
}

void PXImageSegmentation::cutObjectWithPaintSelection(const QPainterPath& path, bool isForeground)
{
    log("SEG:CutIS");
    if (!d->refineStroke([&](PXSelectionModel& model) { model.markStroke(path, isForeground); }))
        d->withModel([&](PXSelectionModel& model) { model.paintSelection(path, isForeground); });
}

void PXImageSegmentation::cutObjectWithScribble(const QPainterPath& path, bool isForeground)
{
    log("SEG:CutS");
    drawPathOnForegroundUserMask(path, isForeground);
}

void PXImageSegmentation::drawPathOnForegroundUserMask(const QPainterPath& path, bool isForeground)
{
    if (!d->refineStroke([&](PXSelectionModel& model) { model.markStroke(path, isForeground); }))
        d->withModel([&](PXSelectionModel& model) { model.scribble(path, isForeground); });
}

void PXImageSegmentation::paintSelecting()
{
    if (isInterruptionRequested())
        return;
    for (;;) {
        const PXImageSegmentationPrivate::Stroke stroke = d->takeStroke();
        if (stroke.command)
            d->undoController->push(stroke.command);
        if (stroke.path.isEmpty())
            return;

        // Anything but a scribble paints whole superpixels.
        if (d->mode.load() == Scribble)
            cutObjectWithScribble(stroke.path, stroke.isForeground);
        else
            cutObjectWithPaintSelection(stroke.path, stroke.isForeground);
        Q_EMIT sendNewMask(maskForeground());
        if (isInterruptionRequested())
            return;
    }
}

void PXImageSegmentation::paintHovering()
{
    if (isInterruptionRequested())
        return;
    QImage preview;
    for (;;) {
        const PXImageSegmentationPrivate::Hover hover = d->takeHover();
        if (!hover.clusters.isEmpty())
            preview = maskWithSegments(hover.clusters, hover.isForeground);
        Q_EMIT sendNewMask(preview);
        if (!d->moreHover() || isInterruptionRequested())
            return;
    }
}

QImage PXImageSegmentation::maskWithSegments(const QSet<int>& clusters, bool isForeground) const
{
    return d->snapshot().hoverPreview(clusters, isForeground);
}

QSet<int> PXImageSegmentation::superpixels(const QPoint& centre, int radius) const
{
    return d->snapshot().labelsUnderBrush(centre, radius);
}

QList<QPoint> PXImageSegmentation::pointsOfSuperpixel(const QPointF& point) const
{
    return d->snapshot().pointsAt(point);
}

int PXImageSegmentation::safeGetSuperPixelAt(const QPoint& point) const
{
    return d->snapshot().labelAt(point);
}

void PXImageSegmentation::clearLastScribble()
{
    QMutexLocker locker(&d->requestMutex);
    d->requests.strokes = QPainterPath();
}

bool PXImageSegmentation::containsPath(const QPainterPath& path) const
{
    return d->snapshot().expandedPathContains(path);
}

QPainterPath PXImageSegmentation::lastPath() const
{
    return d->snapshot().lastPath();
}

void PXImageSegmentation::pushUndoCommand()
{
    PXUndoCommandSegmentation* command = nullptr;
    {
        QMutexLocker locker(&d->requestMutex);
        command = d->takeUndoCommand();
    }
    // Pushed outside the lock: the stack runs the host's slots.
    if (command)
        d->undoController->push(command);
}

// ---------------------------------------------------------------------------
// Mask output

void PXImageSegmentation::updateMask()
{
    d->withModel([](PXSelectionModel& model) { model.recolour(); });
}

void PXImageSegmentation::setMaskColor(const QColor& colour)
{
    const bool repaint = d->withModel([&](PXSelectionModel& model) {
        return model.setMaskColor(colour) && !model.mask().isNull();
    });
    if (!repaint)
        return;
    d->recolourPending = true;
    QMutexLocker locker(&d->requestMutex);
    d->request(ChangeMaskColor);
}

QColor PXImageSegmentation::maskColor() const
{
    return d->snapshot().maskColor();
}

void PXImageSegmentation::invertMask()
{
    d->maskIsInverted = !d->maskIsInverted;
    // While the thread runs only the flag changes; kept as designed.
    if (isRunning())
        return;
    QMutexLocker locker(&d->requestMutex);
    d->request(InvertMask);
}

void PXImageSegmentation::invertMaskJob()
{
    d->withModel([](PXSelectionModel& model) { model.invert(); });
}

void PXImageSegmentation::setMaskIsInverted(bool inverted)
{
    const bool changed = inverted != d->maskIsInverted;
    d->maskIsInverted = inverted;
    if (changed && isValid())
        invertMaskJob();
}

bool PXImageSegmentation::maskIsInverted() const
{
    return d->maskIsInverted;
}

QImage PXImageSegmentation::createMask(const QPainterPath& path) const
{
    return d->snapshot().pathImage(path);
}

QImage PXImageSegmentation::maskForeground() const
{
    return d->snapshot().mask();
}

QImage PXImageSegmentation::matteCutout(const QImage& photo, const PXMatteOptions& options,
    const std::function<void()>& progress, const std::function<bool()>& cancelled) const
{
    return d->matteCutout(photo, options, progress, cancelled);
}

QImage PXImageSegmentation::createSmoothForegroundMask(int radius) const
{
    return PXImageSegmentationPrivate::smoothMask(maskForeground(), radius);
}

QImage PXImageSegmentation::drawContour() const
{
    return d->snapshot().contour();
}

// ---------------------------------------------------------------------------
// Undo

PXMementoSegmentation* PXImageSegmentation::createMemento(bool withLabels)
{
    return d->withModel([&](PXSelectionModel& model) { return model.createMemento(withLabels); });
}

void PXImageSegmentation::setMemento(const PXMementoSegmentation* memento)
{
    if (!memento)
        return;
    const QImage mask = d->withModel([&](PXSelectionModel& model) {
        model.setMemento(*memento);
        return model.mask();
    });
    Q_EMIT sendNewMask(mask);
}

// ---------------------------------------------------------------------------
// Refined cut

void PXImageSegmentation::setRefinedCut(bool refined)
{
    d->refinedCutChoice = refined ? 1 : 0;
}

void PXImageSegmentation::followRefinedCutSetting()
{
    d->refinedCutChoice = -1;
}

bool PXImageSegmentation::refinedCut() const
{
    const int choice = d->refinedCutChoice;
    if (choice >= 0)
        return choice == 1;
    return PXSingleton<PXImageCutterSettings>::instance()->refinedCut();
}

int PXImageSegmentation::controllerSteps() const
{
    return d->refining ? 5 + PXRefinedCut::progressSteps : 5;
}
