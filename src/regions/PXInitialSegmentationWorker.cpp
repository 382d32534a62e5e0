#include "PXInitialSegmentationWorker.h"

#include "PXImage.h"
#include "PXLassoRaster.h"

#include <QDateTime>
#include <QPainterPathStroker>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

PXInitialSegmentationWorker::PXInitialSegmentationWorker(const QImage& image, const QFileInfo& file)
    : PXInitialSegmentationWorker(PXImage(image, file))
{
}

PXInitialSegmentationWorker::PXInitialSegmentationWorker(const PXImage& image)
    : QObject(nullptr)
    , m_image(new PXImage(image))
    , m_timestamp(QDateTime::currentMSecsSinceEpoch())
{
    connect(&m_regionGrowing, &PXRegionGrowing::increaseProgress, this,
        &PXInitialSegmentationWorker::increaseAndUpdateProgressbar);
    connect(&m_slic, &PXSlic::increaseProgress, this,
        &PXInitialSegmentationWorker::increaseAndUpdateProgressbar);
    setTotalStepsForProgressbar(PXSlic::totalProgressSteps() + PXRegionGrowing::totalProgressSteps());
}

PXInitialSegmentationWorker::~PXInitialSegmentationWorker()
{
    // The run and the edge detector use the working image and the members:
    // a run that has not begun is dropped, one under way is waited for.
    m_future.cancel();
    m_future.waitForFinished();
    m_handOver.observe();
    m_edgeDetector.join();
    delete m_image;
}

QFuture<void> PXInitialSegmentationWorker::startInitialSegmentation(const QPainterPath& lasso)
{
    // One run per worker: the engines are set up once and a second run
    // would race with the first on the same members.
    if (m_started)
        return m_future;
    m_started = true;
    m_path = lasso;
    m_handOver.publish();
    m_future = QtConcurrent::run(QThreadPool::globalInstance(), [this] {
        const PXHandOver::Turn turn(m_handOver);
        run();
    });
    return m_future;
}

void PXInitialSegmentationWorker::stop()
{
    m_flags.store(StopRequestedFlag);
}

bool PXInitialSegmentationWorker::isRunning() const
{
    return (m_flags.load() & RunningFlag) != 0;
}

bool PXInitialSegmentationWorker::stopRequested() const
{
    return (m_flags.load() & StopRequestedFlag) != 0;
}

bool PXInitialSegmentationWorker::operator==(const PXInitialSegmentationWorker& other) const
{
    return m_timestamp == other.m_timestamp;
}

void PXInitialSegmentationWorker::setTotalStepsForProgressbar(int total)
{
    m_totalSteps = total;
    emit updateProgress(m_currentStep, m_totalSteps);
}

void PXInitialSegmentationWorker::increaseAndUpdateProgressbar()
{
    ++m_currentStep;
    emit updateProgress(m_currentStep, m_totalSteps);
}

void PXInitialSegmentationWorker::run()
{
    // A stop that came before the pool began the run ends it here, so a
    // stopped worker never reports anything, however busy the pool was.
    int idle = 0;
    if (!m_flags.compare_exchange_strong(idle, RunningFlag))
        return;
    emit resetProgress();

    m_edgeDetector.setup(m_image);
    m_edgeDetector.start(QThread::InheritPriority);

    snapToImageBorder();
    // The grown lasso only goes out with the results, so it is grown on
    // another pool thread while the superpixels are made.
    const QPainterPath lasso = m_path;
    const QRect bounds = m_image->rect();
    QFuture<QPainterPath> grown = QtConcurrent::run(QThreadPool::globalInstance(),
        [this, lasso, bounds] { return growPainterPath(lasso, bounds, 10); });
    if (!stopRequested())
        runSlic();
    m_expandedPath = grown.result();
    if (stopRequested())
        return;
    runRegionGrowing();
    // Clears the running flag only if no stop came in between, so a stopped
    // worker never reports finished().
    int expected = RunningFlag;
    if (m_flags.compare_exchange_strong(expected, 0))
        emit finished();
}

void PXInitialSegmentationWorker::snapToImageBorder()
{
    if (m_path.elementCount() < 1)
        return;
    const int width = m_image->width();
    const int height = m_image->height();
    const int marginX = int(0.02 * width);
    const int marginY = int(0.02 * height);
    for (int i = 0; i < m_path.elementCount(); ++i) {
        const QPainterPath::Element element = m_path.elementAt(i);
        qreal x = element.x;
        qreal y = element.y;
        if (x < marginX)
            x = 0;
        else if (x > width - marginX)
            x = width;
        if (y < marginY)
            y = 0;
        else if (y > height - marginY)
            y = height;
        m_path.setElementPositionAt(i, x, y);
    }
}

QPainterPath PXInitialSegmentationWorker::growPainterPath(
    const QPainterPath& path, const QRect& rect, int width) const
{
    QPainterPathStroker stroker;
    stroker.setWidth(2 * width);
    if (PXLassoRaster::isIntricate(path)) {
        // A hand-drawn lasso is grown on a raster: the path clipper would take
        // minutes over a jittery one. The outline then follows pixel edges.
        const QRectF reach = path.boundingRect().adjusted(-2 * width, -2 * width, 2 * width, 2 * width);
        const QRect area = QRectF(rect).intersected(reach).toAlignedRect();
        QPen pen(QBrush(QColor(0xFFFFFFFF)), 2 * width, Qt::SolidLine, stroker.capStyle(), stroker.joinStyle());
        pen.setMiterLimit(stroker.miterLimit());
        return PXLassoRaster::pathOfMask(PXLassoRaster::fill(path, area, pen), area.topLeft());
    }
    const QPainterPath stroke = stroker.createStroke(path);
    QPainterPath bounds;
    bounds.addRect(QRectF(rect));
    return stroke.united(path).intersected(bounds);
}

void PXInitialSegmentationWorker::runSlic()
{
    m_slic.setup(m_image, m_path);
    m_slic.run();
    m_labels = m_slic.superPixelAssignments();
    m_superpixels = m_slic.clusterInformations();
}

void PXInitialSegmentationWorker::runRegionGrowing()
{
    m_edgeDetector.join();
    m_regionGrowing.setup(m_image, m_path, m_edgeDetector.sobel(), m_edgeDetector.mean());
    m_regionGrowing.setClusterData(m_superpixels, m_labels);
    m_regionGrowing.run();
    m_labels = m_regionGrowing.labels();
    m_superpixels = m_regionGrowing.superPixelInformations();
    m_neighbours = m_regionGrowing.neighbors();
    m_pointsOfSuperpixels = m_regionGrowing.superPixelPoints();
}

QImage PXInitialSegmentationWorker::drawClustersWithTransparentColorsAndContours() const
{
    QImage image = m_image->imageRGB().copy();
    QList<QRgb> colours;
    colours.reserve(m_superpixels.size());
    for (const PXSuperPixel& record : m_superpixels)
        colours.append(record.averageRgb());
    if (image.depth() != 32 || m_labels.depth() != 32)
        return image;
    const int width = qMin(image.width(), m_labels.width());
    const int height = qMin(image.height(), m_labels.height());
    for (int y = 0; y < height; ++y) {
        const auto* labels = reinterpret_cast<const qint32*>(m_labels.constScanLine(y));
        auto* pixels = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const int label = labels[x];
            // Opaque colours read the same in every 32-bit format.
            if (label >= 0 && label < colours.size())
                pixels[x] = colours.at(label);
        }
    }
    return image;
}
