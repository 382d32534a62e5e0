#include "PXImageSegmentation.h"

#include "PXBackgroundExtractor.h"
#include "PXImage.h"
#include "PXInitialSegmentationWorker.h"
#include "PXIntRange.h"
#include "PXLogger.h"
#include "PXMementoSegmentation.h"
#include "PXPlatformIndependent.h"
#include "PXUndoCommandSegmentation.h"
#include "PXUndoController.h"

#include <QApplication>
#include <QFutureWatcher>
#include <QGraphicsBlurEffect>
#include <QGraphicsPixmapItem>
#include <QGraphicsScene>
#include <QMutexLocker>
#include <QPainter>
#include <QPixmap>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cmath>

namespace {

// Neighbour walk of the contour test: W, NW, N, NE, E, SE, S, SW.
constexpr int dx8[8] = {-1, -1, 0, 1, 1, 1, 0, -1};
constexpr int dy8[8] = {0, -1, -1, -1, 0, 1, 1, 1};

constexpr quint32 myInsidePixel = 0xFFFFFFFF;

void log(const char* text)
{
    PXSingleton<PXLogger>::instance()->legacyLog(QString::fromLatin1(text), false);
}

// Coordinates beyond this are far outside any photo; keeping them there lets
// rounding to int stay defined.
constexpr double myCoordinateLimit = 1 << 24;

// A path with a NaN or a far-out coordinate is taken as empty: rounding it
// would overflow, and Qt's path operations do not expect NaN.
QPainterPath usablePath(const QPainterPath& path)
{
    for (int i = 0; i < path.elementCount(); ++i) {
        const QPainterPath::Element element = path.elementAt(i);
        if (!(std::abs(element.x) <= myCoordinateLimit && std::abs(element.y) <= myCoordinateLimit))
            return QPainterPath();
    }
    return path;
}

// QRectF::toRect() for rectangles whose coordinates fit in an int; others are
// first clamped so that the rounding never overflows.
QRect roundedRect(const QRectF& rect)
{
    const auto clamped = [](qreal value) {
        return std::isnan(value) ? 0.0 : std::clamp<qreal>(value, -myCoordinateLimit, myCoordinateLimit);
    };
    return QRectF(clamped(rect.x()), clamped(rect.y()), clamped(rect.width()), clamped(rect.height()))
        .toRect();
}

int clampedCoordinate(qreal value, const PXIntRange& range)
{
    // Clamping before rounding gives the same index as rounding first and
    // keeps huge and NaN coordinates defined.
    const qreal clamped = std::isnan(value)
        ? qreal(range.last())
        : std::clamp<qreal>(value, range.first(), range.last());
    return qRound(clamped);
}

QPoint clampedPoint(const QImage& labels, const QPointF& point)
{
    return QPoint(clampedCoordinate(point.x(), PXIntRange::columnsOfImage(labels)),
                  clampedCoordinate(point.y(), PXIntRange::rowsOfImage(labels)));
}

bool isLabelImage(const QImage& labels)
{
    return !labels.isNull() && labels.depth() == 32;
}

QImage filledPathImage(const QSize& size, const QPainterPath& path)
{
    if (size.isEmpty())
        return QImage();
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    if (!path.isEmpty()) {
        QPainter painter(&image);
        painter.fillPath(path, QBrush(QColor(myInsidePixel)));
    }
    return image;
}

} // namespace

PXImageSegmentation::PXImageSegmentation()
    : QThread(nullptr)
    , m_transparentColor(Qt::transparent)
    , m_undoController(PXUndoController::instanceForFotoEditor())
{
}

PXImageSegmentation::~PXImageSegmentation()
{
    // Terminating can kill the thread inside a lock or an allocation, so it
    // is only the last resort for a job that ignores the interruption.
    requestInterruption();
    if (!wait(2000)) {
        while (isRunning()) {
            terminate();
            PXPlatformIndependent::instance()->sleep(100);
        }
    }
    for (QFuture<void>& click : m_clicks)
        click.waitForFinished();

    delete m_pendingMemento;

    // A worker's destructor waits for its pool task and edge detector.
    for (const RetiredWorker& retired : std::as_const(m_retiredWorkers)) {
        delete retired.watcher;
        delete retired.worker;
    }
    if (PXInitialSegmentationWorker* worker = m_worker.exchange(nullptr)) {
        worker->stop();
        delete worker;
    }
}

void PXImageSegmentation::setup(const QImage& image, const QFileInfo& fileInfo)
{
    cancel();
    // The interrupted job ends at its next check; waiting for it keeps a mask
    // of the old photo from being emitted after the new one is set up.
    if (QThread::currentThread() != this)
        wait();
    m_maskIsInverted = false;
    {
        QMutexLocker locker(&m_dataMutex);
        if (!image.isNull() && image.format() != QImage::Format_ARGB32)
            m_workingImage = image.convertToFormat(QImage::Format_ARGB32);
        else
            m_workingImage = image;
        m_fileInfo = fileInfo;
    }
    reset();
}

void PXImageSegmentation::setImage(const QImage& image)
{
    QMutexLocker locker(&m_dataMutex);
    m_workingImage = image;
}

void PXImageSegmentation::startWithMode(SegmentationMode mode)
{
    QMutexLocker locker(&m_strokeMutex);
    m_mode = mode;
    startThread();
}

void PXImageSegmentation::startThread()
{
    // Called with the stroke mutex held. A loop that is leaving takes no more
    // requests and touches nothing after it said so; wait for it and start
    // anew. Any other running job keeps the thread and the request waits.
    if (m_loopIsLeaving && isRunning() && QThread::currentThread() != this)
        wait();
    if (isRunning())
        return;
    m_loopIsLeaving = false;
    log("SEG:StartingThread");
    start(QThread::InheritPriority);
}

void PXImageSegmentation::run()
{
    log("SEG:RunningThread");
    switch (m_mode.load()) {
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
        m_recolourPending = false;
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
    // Without the stroke mutex: a starter may hold it while waiting for us.
    m_loopIsLeaving = true;
    // A colour change that came while another job ran had its request
    // overwritten; the mask would otherwise keep two colours. Checked after
    // leaving, so a change that missed the running thread is seen here or
    // starts a new one.
    if (m_recolourPending.exchange(false)) {
        updateMask();
        Q_EMIT sendNewMask(maskForeground());
    }
}

void PXImageSegmentation::cancel()
{
    log("SEG:CancelThread");
    // A worker stopped here, or merely forgotten, is released once its pool
    // task has ended (this replaces deleting it on its finished(), which a
    // stopped worker never emits).
    if (isRunning() && m_worker.load())
        retireWorker(true);
    requestInterruption();
    retireWorker(false);
    reset();
}

void PXImageSegmentation::reset()
{
    {
        QMutexLocker locker(&m_strokeMutex);
        delete m_pendingMemento;
        m_pendingMemento = nullptr;
        m_pendingStrokes = QPainterPath();
    }
    {
        QMutexLocker locker(&m_dataMutex);
        // A mask kept for the same photo stays until the next cut; one made
        // for a photo of another size would no longer fit it.
        if (m_workingImage.isNull() || m_mask.size() != m_workingImage.size())
            m_mask = QImage();
        m_analysedRegion = QRect();
        m_superpixels.clear();
        m_neighbours = QHash<int, QSet<int>>();
        m_pointsOfSuperpixels.clear();
        m_clickedSuperpixel = 0;
        m_expandedPath = QPainterPath();
    }
    Q_EMIT sendNewMask(QImage());
    m_currentStep = 0;
    Q_EMIT segmentationProgress(0, m_workerTotalSteps + 5);
}

bool PXImageSegmentation::isValid() const
{
    QMutexLocker locker(&m_dataMutex);
    return !m_pointsOfSuperpixels.isEmpty();
}

int PXImageSegmentation::totalSteps() const
{
    return m_workerTotalSteps + 5;
}

void PXImageSegmentation::increaseAndUpdateProgressbar()
{
    const int step = ++m_currentStep;
    Q_EMIT segmentationProgress(step, m_workerTotalSteps + 5);
}

PXUndoController* PXImageSegmentation::undoController() const
{
    return m_undoController;
}

void PXImageSegmentation::setProgressFromWorker(int, int theTotalStep)
{
    const QObject* worker = sender();
    if (!worker || worker != m_worker.load())
        return;
    m_workerTotalSteps = theTotalStep;
    const int step = ++m_currentStep;
    Q_EMIT segmentationProgress(step, theTotalStep + 5);
}

void PXImageSegmentation::resetProgress()
{
    m_currentStep = 0;
    Q_EMIT segmentationProgress(0, m_workerTotalSteps + 5);
}

// ---------------------------------------------------------------------------
// Workers

void PXImageSegmentation::retireWorker(bool stop)
{
    PXInitialSegmentationWorker* worker = m_worker.exchange(nullptr);
    if (!worker)
        return;
    if (stop)
        worker->stop();
    // The watcher reports in this object's thread after everything the task
    // posted there, so no queued signal of the worker outlives it.
    auto* watcher = new QFutureWatcher<void>();
    if (watcher->thread() != thread())
        watcher->moveToThread(thread());
    m_retiredWorkers.append({worker, watcher});
    connect(watcher, &QFutureWatcherBase::finished, this,
            [this, watcher]() { releaseRetiredWorker(watcher); });
    watcher->setFuture(m_workerTask);
    m_workerTask = QFuture<void>();
}

void PXImageSegmentation::releaseRetiredWorker(QFutureWatcher<void>* watcher)
{
    const auto found = std::find_if(m_retiredWorkers.begin(), m_retiredWorkers.end(),
                                    [watcher](const RetiredWorker& retired) {
                                        return retired.watcher == watcher;
                                    });
    if (found == m_retiredWorkers.end())
        return;
    PXInitialSegmentationWorker* worker = found->worker;
    m_retiredWorkers.erase(found);
    // Its destructor joins the edge detector's thread if that still runs.
    delete worker;
    watcher->deleteLater();
}

// ---------------------------------------------------------------------------
// Initial cut

void PXImageSegmentation::startThreadWithInitialPath(QPainterPath thePath)
{
    const QPainterPath path = usablePath(thePath);
    {
        QMutexLocker locker(&m_dataMutex);
        m_pointsOfSuperpixels.clear();
        m_foreground = QSet<int>();
        m_background = QSet<int>();
        m_lassoPath = path;
    }
    {
        QMutexLocker locker(&m_strokeMutex);
        m_strokeIsTemporary = false;
    }
    const QRect rect = roundedRect(path.boundingRect());
    // reset() in startInitialSegmentation() nulls the analysed region, so in
    // practice every lasso starts a worker.
    if (!m_analysedRegion.contains(rect, false)) {
        m_analysedRegion = rect;
        startInitialSegmentation(path);
        return;
    }
    QMutexLocker locker(&m_strokeMutex);
    m_mode = InitialCut;
    startThread();
}

void PXImageSegmentation::startInitialSegmentation(const QPainterPath& path)
{
    {
        QMutexLocker locker(&m_dataMutex);
        m_lassoPath = path;
    }
    if (m_worker.load()) {
        log("SEG:CancelThread");
        retireWorker(true);
    }
    reset();

    QImage image;
    QFileInfo fileInfo;
    {
        QMutexLocker locker(&m_dataMutex);
        image = m_workingImage;
        fileInfo = m_fileInfo;
    }
    // Without a photo there is nothing to segment; the lasso is ignored.
    if (image.isNull())
        return;

    auto* worker = new PXInitialSegmentationWorker(image, fileInfo);
    m_worker = worker;
    connect(worker, &PXInitialSegmentationWorker::updateProgress, this,
            &PXImageSegmentation::setProgressFromWorker);
    connect(worker, &PXInitialSegmentationWorker::finished, this,
            &PXImageSegmentation::initialSegmentationIsFinished);
    m_workerTask = worker->startInitialSegmentation(path);
}

void PXImageSegmentation::initialSegmentationIsFinished()
{
    // Compared before the cast: the sender of a late signal may be gone.
    QObject* origin = sender();
    if (!origin || origin != m_worker.load())
        return;
    auto* worker = dynamic_cast<PXInitialSegmentationWorker*>(origin);
    if (!worker)
        return;
    {
        QMutexLocker locker(&m_dataMutex);
        m_labelsSaved = false;
        m_expandedPath = worker->pathExpanded();
        m_labels = worker->labels();
        m_superpixels = worker->superpixel();
        m_neighbours = worker->neighbours();
        m_pointsOfSuperpixels = worker->pointsOfSuperpixel();
    }
    QMutexLocker locker(&m_strokeMutex);
    m_mode = InitialCut;
    startThread();
}

void PXImageSegmentation::doInitialCut()
{
    PXInitialSegmentationWorker* remembered = nullptr;
    for (;;) {
        PXInitialSegmentationWorker* current = m_worker.load();
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
    {
        QMutexLocker locker(&m_dataMutex);
        m_foreground = QSet<int>();
        m_background = QSet<int>();
        m_mask = QImage(m_workingImage.size(), QImage::Format_ARGB32_Premultiplied);
        m_mask.fill(m_maskColor.rgb());
    }
    // The worker's share is shown as complete; the counter itself moves on
    // with the cut's own steps.
    const int workerSteps = m_workerTotalSteps;
    Q_EMIT segmentationProgress(workerSteps, workerSteps + 5);

    const QImage lassoImage = createImageWithLassoPath();
    increaseAndUpdateProgressbar();

    const auto expandedRect = [this]() {
        QMutexLocker locker(&m_dataMutex);
        return roundedRect(m_expandedPath.boundingRect());
    };
    const QRect region = expandedRect();
    const auto insideOutside = separateForegroundAndBackgroundSuperPixels(lassoImage, region);

    if (isInterruptionRequested())
        return;
    increaseAndUpdateProgressbar();

    if (isInterruptionRequested())
        return;
    assignForegroundPixels(insideOutside);
    increaseAndUpdateProgressbar();

    if (isInterruptionRequested())
        return;
    // A newer worker's results replaced the ones this cut started with; the
    // cut loop runs again on them.
    if (expandedRect() != region)
        return;

    const QSet<int> possibleBackground = extractBackground();
    increaseAndUpdateProgressbar();

    confirmPossibleBackground(possibleBackground);
}

QImage PXImageSegmentation::createImageWithLassoPath() const
{
    QSize size;
    QPainterPath path;
    {
        QMutexLocker locker(&m_dataMutex);
        size = m_workingImage.size();
        path = m_expandedPath;
    }
    return filledPathImage(size, path);
}

std::pair<QSet<int>, QSet<int>> PXImageSegmentation::separateForegroundAndBackgroundSuperPixels(
    const QImage& lassoImage, const QRect& rect) const
{
    std::pair<QSet<int>, QSet<int>> insideOutside;
    if (rect.top() >= rect.bottom())
        return insideOutside;
    QImage labels;
    {
        QMutexLocker locker(&m_dataMutex);
        labels = m_labels;
    }
    if (!isLabelImage(labels) || lassoImage.isNull() || lassoImage.depth() != 32)
        return insideOutside;

    // The rectangle's last row and column are deliberately not visited.
    const int top = std::max(rect.top(), 0);
    const int bottom = std::min({rect.bottom(), labels.height(), lassoImage.height()});
    const int left = std::max(rect.left(), 0);
    const int right = std::min({rect.right(), labels.width(), lassoImage.width()});
    for (int y = top; y < bottom; ++y) {
        const auto* labelLine = reinterpret_cast<const qint32*>(labels.constScanLine(y));
        const auto* lassoLine = reinterpret_cast<const quint32*>(lassoImage.constScanLine(y));
        // Runs of one label are common; inserting once per run is enough.
        int lastLabel = 0;
        bool lastInside = false;
        for (int x = left; x < right; ++x) {
            const int label = labelLine[x];
            if (label <= 0)
                continue;
            const bool inside = lassoLine[x] == myInsidePixel;
            if (label == lastLabel && inside == lastInside)
                continue;
            lastLabel = label;
            lastInside = inside;
            (inside ? insideOutside.first : insideOutside.second).insert(label);
        }
    }
    return insideOutside;
}

QSet<int> PXImageSegmentation::assignForegroundPixels(
    const std::pair<QSet<int>, QSet<int>>& insideOutside)
{
    QMutexLocker locker(&m_dataMutex);
    m_background = insideOutside.second;
    QSet<int> foreground;
    for (int label : insideOutside.first) {
        if (m_background.contains(label))
            continue;
        m_foreground.insert(label);
        foreground.insert(label);
        drawSuperpixelOnForegroundUserMask(label, true);
    }
    return foreground;
}

QSet<int> PXImageSegmentation::extractBackground()
{
    QImage workingImage;
    QFileInfo fileInfo;
    {
        QMutexLocker locker(&m_dataMutex);
        workingImage = m_workingImage;
        fileInfo = m_fileInfo;
    }
    PXImage image(workingImage, fileInfo);
    PXBackgroundExtractor extractor;
    extractor.setup(&image);
    increaseAndUpdateProgressbar();

    QSet<int> candidates;
    QImage mask;
    {
        QMutexLocker locker(&m_dataMutex);
        extractor.setSuperPixelInformations(m_superpixels);
        candidates = m_foreground;
        mask = m_mask;
    }
    const QSet<int> background = extractor.extractBackground(candidates, mask);

    QMutexLocker locker(&m_dataMutex);
    for (int label : background)
        drawSuperpixelOnForegroundUserMask(label, false);
    return background;
}

QSet<int> PXImageSegmentation::confirmPossibleBackground(const QSet<int>& possibleBackground)
{
    QMutexLocker locker(&m_dataMutex);
    // Fixed copies: labels moved in this call do not sway their neighbours,
    // so the vote never spreads and a second pass only confirms the first.
    const QSet<int> background = m_background;
    const QSet<int> possible = possibleBackground;
    QSet<int> walked = m_foreground;
    QSet<int> moved {0};

    bool movedSome = true;
    while (movedSome) {
        movedSome = false;
        for (auto it = walked.begin(); it != walked.end();) {
            const int label = *it;
            const QSet<int> neighbours = m_neighbours.value(label);
            int count = 0;
            for (int neighbour : neighbours) {
                if (background.contains(neighbour) || possible.contains(neighbour))
                    ++count;
            }
            if (double(count) >= 0.5 * double(neighbours.size())) {
                m_foreground.remove(label);
                m_background.insert(label);
                drawSuperpixelOnForegroundUserMask(label, false);
                moved.insert(label);
                it = walked.erase(it);
                movedSome = true;
            } else {
                ++it;
            }
        }
    }
    return moved;
}

void PXImageSegmentation::drawSuperpixelOnForegroundUserMask(int label, bool isForeground)
{
    QMutexLocker locker(&m_dataMutex);
    quint32 value;
    if (isForeground) {
        m_foreground.insert(label);
        m_background.remove(label);
        value = m_transparentColor.rgba();
    } else {
        m_background.insert(label);
        m_foreground.remove(label);
        value = m_maskColor.rgb();
    }
    if (label < 0 || label >= m_pointsOfSuperpixels.size() || m_mask.isNull()
        || m_mask.depth() != 32)
        return;
    const int width = m_mask.width();
    const int height = m_mask.height();
    auto* pixels = reinterpret_cast<quint32*>(m_mask.bits());
    for (const QPoint& point : m_pointsOfSuperpixels.at(label)) {
        if (point.x() < 0 || point.x() >= width || point.y() < 0 || point.y() >= height)
            continue;
        pixels[qsizetype(point.y()) * width + point.x()] = value;
    }
}

// ---------------------------------------------------------------------------
// Interactive refinement

void PXImageSegmentation::startThreadWithPaintSelection(QPainterPath theScribble, bool isForeground,
                                                        bool isTemporary)
{
    QMutexLocker locker(&m_strokeMutex);
    m_pendingStrokes = m_pendingStrokes.united(usablePath(theScribble));
    m_strokeIsForeground = isForeground;
    m_strokeIsTemporary = isTemporary;
    m_mode = PaintSelection;
    startThread();
}

void PXImageSegmentation::startThreadWithScribble(QPainterPath theScribble, bool isForeground,
                                                  bool isTemporary)
{
    QMutexLocker locker(&m_strokeMutex);
    m_strokeIsForeground = isForeground;
    m_strokeIsTemporary = isTemporary;
    m_pendingStrokes = m_pendingStrokes.united(usablePath(theScribble));
    m_mode = Scribble;
    startThread();
}

void PXImageSegmentation::startThreadWithPaintSelectionHover(QSet<int> theClusters,
                                                             bool isForeground)
{
    QMutexLocker locker(&m_strokeMutex);
    m_hoverClusters = theClusters;
    m_strokeIsForeground = isForeground;
    m_mode = PaintSelectionHover;
    startThread();
}

void PXImageSegmentation::startThreadWithClicker(QPointF thePosition)
{
    m_clicks.removeIf([](const QFuture<void>& click) { return click.isFinished(); });
    m_clicks.append(QtConcurrent::run(QThreadPool::globalInstance(),
                                      &PXImageSegmentation::cutObjectWithClicker, this,
                                      thePosition));
}

void PXImageSegmentation::cutObjectWithClicker(const QPointF& position)
{
    QMutexLocker locker(&m_dataMutex);
    if (m_labels.isNull())
        return;
    const int label = int(m_labels.pixel(clampedPoint(m_labels, position)));
    m_clickedSuperpixel = label;
    if (m_foreground.contains(label)) {
        m_background.insert(label);
        drawSuperpixelOnForegroundUserMask(label, false);
        m_foreground.remove(label);
    } else {
        m_foreground.insert(label);
        drawSuperpixelOnForegroundUserMask(label, true);
        m_background.remove(label);
    }
}

void PXImageSegmentation::cutObjectWithPaintSelection(const QPainterPath& path, bool isForeground)
{
    log("SEG:CutIS");
    const QImage stroke = createMask(path);
    QSet<int> touched;
    touched.reserve(100000);

    QMutexLocker locker(&m_dataMutex);
    if (isLabelImage(m_labels) && !stroke.isNull()) {
        // As in the initial cut, the last row and column of the stroke's
        // rectangle are only reached where the photo's edge cuts it.
        const QRect rect = roundedRect(path.boundingRect());
        const int top = std::max(rect.top(), 0);
        const int bottom = std::min({m_mask.height(), rect.bottom(), m_labels.height()});
        const int left = std::max(rect.left(), 0);
        const int right = std::min({m_mask.width(), rect.right(), m_labels.width()});
        for (int y = top; y < bottom; ++y) {
            const auto* labelLine = reinterpret_cast<const qint32*>(m_labels.constScanLine(y));
            const auto* strokeLine = reinterpret_cast<const quint32*>(stroke.constScanLine(y));
            int lastTouched = 0;
            for (int x = left; x < right; ++x) {
                const int label = labelLine[x];
                if (label >= 1 && label != lastTouched && strokeLine[x] == myInsidePixel) {
                    touched.insert(label);
                    lastTouched = label;
                }
            }
        }
    }
    for (int label : std::as_const(touched)) {
        drawSuperpixelOnForegroundUserMask(label, isForeground);
        if (isForeground) {
            m_background.remove(label);
            m_foreground.insert(label);
        } else {
            m_foreground.remove(label);
            m_background.insert(label);
        }
    }
    m_lastPath = path;
}

void PXImageSegmentation::cutObjectWithScribble(const QPainterPath& path, bool isForeground)
{
    log("SEG:CutS");
    drawPathOnForegroundUserMask(path, isForeground);
}

void PXImageSegmentation::drawPathOnForegroundUserMask(const QPainterPath& path, bool isForeground)
{
    QMutexLocker locker(&m_dataMutex);
    if (m_mask.isNull())
        return;
    QPainter painter(&m_mask);
    if (isForeground)
        painter.setCompositionMode(QPainter::CompositionMode_Clear);
    painter.fillPath(path, QBrush(QColor(m_maskColor.rgb())));
}

void PXImageSegmentation::paintSelecting()
{
    if (isInterruptionRequested())
        return;
    for (;;) {
        QPainterPath path;
        bool isForeground;
        PXUndoCommandSegmentation* command = nullptr;
        {
            QMutexLocker locker(&m_strokeMutex);
            path = m_pendingStrokes;
            m_pendingStrokes = QPainterPath();
            isForeground = m_strokeIsForeground;
            // The after state is taken before this pass paints, so redo shows
            // the gesture without its final stroke; kept as designed.
            if (m_strokeIsTemporary) {
                if (!m_pendingMemento)
                    m_pendingMemento = createMemento(false);
            } else {
                command = takeUndoCommandLocked();
            }
            if (path.isEmpty())
                m_loopIsLeaving = true;
        }
        if (command)
            m_undoController->push(command);
        if (path.isEmpty())
            return;

        // Anything but a scribble paints whole superpixels.
        if (m_mode.load() == Scribble) {
            log("SEG:CutS");
            drawPathOnForegroundUserMask(path, isForeground);
        } else {
            cutObjectWithPaintSelection(path, isForeground);
        }
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
        QSet<int> clusters;
        bool isForeground;
        {
            QMutexLocker locker(&m_strokeMutex);
            clusters = m_hoverClusters;
            m_hoverClusters = QSet<int>();
            isForeground = m_strokeIsForeground;
        }
        if (!clusters.isEmpty())
            preview = maskWithSegments(clusters, isForeground);
        Q_EMIT sendNewMask(preview);
        {
            QMutexLocker locker(&m_strokeMutex);
            if (m_hoverClusters.isEmpty()) {
                m_loopIsLeaving = true;
                return;
            }
        }
        if (isInterruptionRequested())
            return;
    }
}

QImage PXImageSegmentation::maskWithSegments(const QSet<int>& clusters, bool isForeground) const
{
    QImage mask;
    QList<QList<QPoint>> points;
    QRgb colour;
    {
        QMutexLocker locker(&m_dataMutex);
        mask = m_mask;
        points = m_pointsOfSuperpixels;
        colour = m_maskColor.rgb();
    }
    QImage result = mask.copy(QRect());
    if (result.isNull() || result.depth() != 32)
        return result;
    const quint32 value = isForeground ? 0u : colour;
    const qint64 stride = mask.bytesPerLine() / 4;
    const qint64 limit = result.sizeInBytes() / 4;
    auto* pixels = reinterpret_cast<quint32*>(result.bits());
    for (int label : clusters) {
        if (label < 0 || label >= points.size())
            continue;
        for (const QPoint& point : points.at(label)) {
            const qint64 index = qint64(point.y()) * stride + point.x();
            // Index 0, the top-left pixel, is never written; kept as designed.
            if (index <= 0 || index >= limit)
                continue;
            pixels[index] = value;
        }
    }
    return result;
}

QSet<int> PXImageSegmentation::superpixels(const QPoint& centre, int radius) const
{
    QImage labels;
    {
        QMutexLocker locker(&m_dataMutex);
        labels = m_labels;
    }
    QSet<int> found;
    if (labels.isNull())
        return found;
    if (radius == 1) {
        found.insert(int(labels.pixel(clampedPoint(labels, centre))));
        return found;
    }
    if (labels.depth() != 32)
        return found;

    const int half = radius / 2;
    const qint64 cx = centre.x();
    const qint64 cy = centre.y();
    const PXIntRange columns(int(std::max<qint64>(cx - half, 0)),
                             int(std::min<qint64>(labels.width() - 1, cx + half)));
    const PXIntRange rows(int(std::max<qint64>(cy - half, 0)),
                          int(std::min<qint64>(labels.height() - 1, cy + half)));
    for (int y = rows.first(); y != rows.lastIndexEvenIfUnvalid(); ++y) {
        const auto* line = reinterpret_cast<const qint32*>(labels.constScanLine(y));
        for (int x = columns.first(); x != columns.lastIndexEvenIfUnvalid(); ++x) {
            const double dx = double(cx - x);
            const double dy = double(cy - y);
            // Truncated: a diagonal neighbour (distance 1.41) lies within 1.
            const int distance = int(std::sqrt(dx * dx + dy * dy));
            if (half >= distance && line[x] > 0)
                found.insert(line[x]);
        }
    }
    return found;
}

QList<QPoint> PXImageSegmentation::pointsOfSuperpixel(const QPointF& point) const
{
    QMutexLocker locker(&m_dataMutex);
    if (m_labels.isNull())
        return QList<QPoint>();
    const int label = int(m_labels.pixel(clampedPoint(m_labels, point)));
    if (label < 0 || label >= m_pointsOfSuperpixels.size())
        return QList<QPoint>();
    return m_pointsOfSuperpixels.at(label);
}

int PXImageSegmentation::safeGetSuperPixelAt(const QPoint& point) const
{
    QMutexLocker locker(&m_dataMutex);
    if (m_labels.isNull())
        return 0;
    return int(m_labels.pixel(clampedPoint(m_labels, point)));
}

void PXImageSegmentation::clearLastScribble()
{
    QMutexLocker locker(&m_strokeMutex);
    m_pendingStrokes = QPainterPath();
}

bool PXImageSegmentation::containsPath(const QPainterPath& path) const
{
    QMutexLocker locker(&m_dataMutex);
    return m_expandedPath.contains(path);
}

QPainterPath PXImageSegmentation::lastPath() const
{
    QMutexLocker locker(&m_dataMutex);
    return m_lastPath;
}

PXUndoCommandSegmentation* PXImageSegmentation::takeUndoCommandLocked()
{
    if (!m_pendingMemento)
        return nullptr;
    PXMementoSegmentation* after = createMemento(false);
    auto* command = new PXUndoCommandSegmentation(m_pendingMemento->clone(), after, this);
    delete m_pendingMemento;
    m_pendingMemento = nullptr;
    return command;
}

void PXImageSegmentation::pushUndoCommand()
{
    PXUndoCommandSegmentation* command = nullptr;
    {
        QMutexLocker locker(&m_strokeMutex);
        command = takeUndoCommandLocked();
    }
    // Pushed outside the lock: the stack runs the host's slots.
    if (command)
        m_undoController->push(command);
}

// ---------------------------------------------------------------------------
// Mask output

void PXImageSegmentation::recolourMaskLocked()
{
    if (m_mask.isNull())
        return;
    QPainter painter(&m_mask);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(m_mask.rect(), QColor(m_maskColor.rgb()));
}

void PXImageSegmentation::updateMask()
{
    QMutexLocker locker(&m_dataMutex);
    recolourMaskLocked();
}

void PXImageSegmentation::setMaskColor(const QColor& colour)
{
    {
        QMutexLocker locker(&m_dataMutex);
        if (colour.rgb() == m_maskColor.rgb())
            return;
        m_maskColor = colour;
        if (m_mask.isNull())
            return;
    }
    m_recolourPending = true;
    QMutexLocker locker(&m_strokeMutex);
    m_mode = ChangeMaskColor;
    startThread();
}

QColor PXImageSegmentation::maskColor() const
{
    QMutexLocker locker(&m_dataMutex);
    return m_maskColor;
}

void PXImageSegmentation::invertMask()
{
    m_maskIsInverted = !m_maskIsInverted;
    // While the thread runs only the flag changes; kept as designed.
    if (isRunning())
        return;
    QMutexLocker locker(&m_strokeMutex);
    m_mode = InvertMask;
    startThread();
}

void PXImageSegmentation::invertMaskJob()
{
    QMutexLocker locker(&m_dataMutex);
    if (!m_mask.isNull()) {
        QPainter painter(&m_mask);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOut);
        painter.fillRect(m_mask.rect(), QColor(m_maskColor.rgb()));
    }
    std::swap(m_foreground, m_background);
}

void PXImageSegmentation::setMaskIsInverted(bool inverted)
{
    const bool changed = inverted != m_maskIsInverted;
    m_maskIsInverted = inverted;
    if (changed && isValid())
        invertMaskJob();
}

bool PXImageSegmentation::maskIsInverted() const
{
    return m_maskIsInverted;
}

QImage PXImageSegmentation::createMask(const QPainterPath& path) const
{
    QSize size;
    {
        QMutexLocker locker(&m_dataMutex);
        size = m_mask.size();
    }
    return filledPathImage(size, path);
}

QImage PXImageSegmentation::maskForeground() const
{
    QMutexLocker locker(&m_dataMutex);
    return m_mask;
}

QImage PXImageSegmentation::createSmoothForegroundMask(int radius) const
{
    // Pixmaps and graphics scenes exist only in a widget application's thread.
    const QCoreApplication* application = QCoreApplication::instance();
    if (!qobject_cast<const QApplication*>(application)
        || QThread::currentThread() != application->thread())
        return QImage();
    const QImage mask = maskForeground();
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
    scene.render(&painter, QRectF(), QRectF(0, 0, mask.width(), mask.height()),
                 Qt::KeepAspectRatio);
    painter.end();
    return result;
}

QImage PXImageSegmentation::drawContour() const
{
    QImage labels;
    QSize size;
    {
        QMutexLocker locker(&m_dataMutex);
        labels = m_labels;
        size = m_workingImage.size();
    }
    QImage result(size, QImage::Format_ARGB32);
    result.fill(Qt::transparent);
    if (result.height() < 1 || !isLabelImage(labels) || labels.size() != size)
        return result;

    const int width = size.width();
    const int height = size.height();
    for (int y = 0; y < height; ++y) {
        const auto* line = reinterpret_cast<const qint32*>(labels.constScanLine(y));
        auto* out = reinterpret_cast<quint32*>(result.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const qint32 label = line[x];
            int count = 0;
            for (int k = 0; k < 8; ++k) {
                const int nx = x + dx8[k];
                const int ny = y + dy8[k];
                if (nx < 0 || nx >= width || ny < 0 || ny >= height)
                    continue;
                const auto* neighbourLine = reinterpret_cast<const qint32*>(labels.constScanLine(ny));
                const bool differs = neighbourLine[nx] != label;
                // A single differing neighbour is not yet a contour.
                if (differs && count > 0) {
                    out[x] = 0xFFFFFFFF;
                    break;
                }
                count += differs;
            }
        }
    }
    return result;
}

// ---------------------------------------------------------------------------
// Undo

PXMementoSegmentation* PXImageSegmentation::createMemento(bool withLabels)
{
    QMutexLocker locker(&m_dataMutex);
    QImage labels;
    QList<QList<QPoint>> points;
    if (withLabels) {
        labels = m_labels;
        points = m_pointsOfSuperpixels;
        m_labelsSaved = true;
    }
    return new PXMementoSegmentation(m_lassoPath, m_foreground, m_background, m_mask, labels,
                                     points, QColor(m_maskColor.rgb()));
}

void PXImageSegmentation::setMemento(const PXMementoSegmentation* memento)
{
    if (!memento)
        return;
    QImage mask;
    {
        QMutexLocker locker(&m_dataMutex);
        // A memento of an earlier photo (an old undo command after setup())
        // does not fit this one and is ignored.
        const auto fits = [this](const QImage& image) {
            return image.isNull() || image.size() == m_workingImage.size();
        };
        if (!fits(memento->mask()) || !fits(memento->labels()))
            return;
        m_foreground = memento->foregroundClusters();
        m_background = memento->backgroundClusters();
        if (!memento->labels().isNull()) {
            m_labels = memento->labels();
            m_pointsOfSuperpixels = memento->pointsOfSuperpixels();
        }
        // The mask's pixels are written as 32-bit words; a host's memento in
        // another format is converted so that they stay in bounds.
        m_mask = memento->mask();
        if (!m_mask.isNull() && m_mask.format() != QImage::Format_ARGB32_Premultiplied)
            m_mask = m_mask.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        if (memento->maskColor() != m_maskColor)
            m_maskColor = memento->maskColor();
        // Recoloured even when the colour is the same: a memento taken while
        // a colour change was still pending holds pixels of the old colour.
        // For any other memento this changes no byte.
        recolourMaskLocked();
        m_lassoPath = memento->lassoPath();
        mask = m_mask;
    }
    Q_EMIT sendNewMask(mask);
}
