#include "PXIntelligentScissors.h"

#include "PXIntelligentScissorsWireCalculator.h"

#include <QtGlobal>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#ifdef Q_OS_UNIX
#include <sys/mman.h>
#endif

namespace {

// The padded image lives in zero, lazily committed memory: the padding reads
// as black without being written, and costs nothing until it is read.
struct ImageMemory
{
    void* data;
    size_t size;
    bool mapped;
};

ImageMemory* allocateImageMemory(size_t size)
{
    auto* memory = new ImageMemory {nullptr, size, false};
#ifdef Q_OS_UNIX
    void* mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped != MAP_FAILED) {
        memory->data = mapped;
        memory->mapped = true;
        return memory;
    }
#endif
    memory->data = std::calloc(1, size);
    if (!memory->data) {
        delete memory;
        return nullptr;
    }
    return memory;
}

// The weight calculator reads the whole padded image, mostly padding that is
// never written; read one page at a time, untouched pages fault one by one
// (thousands of faults per seed). Rows after the first @p writtenBytes are
// left to huge pages, which read as the shared zero page one fault per 2 MiB;
// call before writing. finishImageMemory() maps the rest in one go.
void adviseImageMemory(ImageMemory* memory, size_t writtenBytes)
{
#if defined(Q_OS_UNIX) && defined(MADV_HUGEPAGE)
    constexpr size_t hugePage = size_t(1) << 21;
    const size_t start = (writtenBytes + hugePage - 1) & ~(hugePage - 1);
    if (memory->mapped && start < memory->size)
        madvise(static_cast<char*>(memory->data) + start, memory->size - start, MADV_HUGEPAGE);
#else
    Q_UNUSED(memory);
    Q_UNUSED(writtenBytes);
#endif
}

// Maps the pages that adviseImageMemory() left alone and that the copy did not
// write, readable as zero, in one call. Commits no memory.
void finishImageMemory(ImageMemory* memory, size_t writtenBytes)
{
#if defined(Q_OS_UNIX) && defined(MADV_POPULATE_READ)
    constexpr size_t hugePage = size_t(1) << 21;
    const size_t end = std::min(memory->size, (writtenBytes + hugePage - 1) & ~(hugePage - 1));
    // Older kernels refuse the advice; the pages then fault when read.
    if (memory->mapped && end > 0)
        madvise(memory->data, end, MADV_POPULATE_READ);
#else
    Q_UNUSED(memory);
    Q_UNUSED(writtenBytes);
#endif
}

void releaseImageMemory(void* info)
{
    auto* memory = static_cast<ImageMemory*>(info);
#ifdef Q_OS_UNIX
    if (memory->mapped)
        munmap(memory->data, memory->size);
    else
#endif
        std::free(memory->data);
    delete memory;
}

// w + 2 (w mod window) - 1, or w itself when w is a multiple of the window.
qint64 paddedLength(qint64 length, unsigned int window)
{
    qint64 padding = 2 * (length % window);
    if (padding < 2)
        padding = 1;
    return length + padding - 1;
}

// std::round rounds half away from zero; the result is clamped to [0, last].
unsigned int roundAndClamp(double value, int last)
{
    const double rounded = std::round(value);
    if (rounded <= 0.0 || last <= 0)
        return 0;
    if (rounded >= last)
        return static_cast<unsigned int>(last);
    return static_cast<unsigned int>(rounded);
}

// Truncation toward zero; negative values become 0.
unsigned int truncateToUnsigned(double value)
{
    if (!(value > 0.0))
        return 0;
    if (value >= 4294967295.0)
        return UINT_MAX;
    return static_cast<unsigned int>(value);
}

} // namespace

PXIntelligentScissors::PXIntelligentScissors(QObject* parent)
    : QObject(parent)
    , m_settings(PXIntelligentScissorsWeightCalculator::Mean2x2, PXIntelligentScissorsWeightCalculator::NoEdgeDetection,
          PXIntelligentScissorsWeightCalculator::NoPostProcessing, true)
{
}

PXIntelligentScissors::~PXIntelligentScissors()
{
    clear();
}

void PXIntelligentScissors::setup(const QImage& image)
{
    // Calculators of an earlier setup would otherwise keep running on an
    // image that is about to go away.
    clear();

    QImage working;
    PXIntelligentScissorsWeightCalculator::DataFormat format;
    // Looks at the previously kept image on purpose: the kept image is always
    // converted, so in practice every setup reads 32-bit pixels.
    if (m_image.format() == QImage::Format_Indexed8 && image.isGrayscale() && image.depth() == 8) {
        working = image;
        format = PXIntelligentScissorsWeightCalculator::Gray8;
    } else {
        working = image.convertToFormat(QImage::Format_RGB32);
        format = PXIntelligentScissorsWeightCalculator::Xrgb32;
    }
    if (working.isNull()) {
        m_image = QImage();
        return;
    }

    const qint64 width = paddedLength(working.width(), m_windowSize);
    const qint64 height = paddedLength(working.height(), m_windowSize);
    const qint64 bytesPerLine = ((width * working.depth() + 31) / 32) * 4;
    if (width > INT_MAX || height > INT_MAX || bytesPerLine > INT_MAX) {
        m_image = QImage();
        return;
    }
    ImageMemory* memory = allocateImageMemory(static_cast<size_t>(bytesPerLine * height));
    if (!memory) {
        m_image = QImage();
        return;
    }
    QImage padded(static_cast<uchar*>(memory->data), static_cast<int>(width), static_cast<int>(height),
        static_cast<qsizetype>(bytesPerLine), working.format(), releaseImageMemory, memory);
    if (padded.isNull()) {
        releaseImageMemory(memory);
        m_image = QImage();
        return;
    }
    padded.setColorTable(working.colorTable());
    // Copying the rows equals drawing the image at (0, 0) in the same format,
    // and works for 8-bit images, which a painter cannot paint on.
    const size_t rowBytes = static_cast<size_t>(working.width()) * working.depth() / 8;
    uchar* target = static_cast<uchar*>(memory->data);
    const size_t writtenBytes = static_cast<size_t>(bytesPerLine) * static_cast<size_t>(working.height());
    adviseImageMemory(memory, writtenBytes);
    for (int y = 0; y < working.height(); ++y)
        std::memcpy(target + y * bytesPerLine, working.constScanLine(y), rowBytes);
    finishImageMemory(memory, writtenBytes);
    m_image = padded;

    m_weightCalculator = new PXIntelligentScissorsWeightCalculator(
        static_cast<unsigned int>(width), static_cast<unsigned int>(height), m_settings);
    // The padding was never written: it reads as zero.
    m_weightCalculator->setImage(m_image.constBits(), format, static_cast<unsigned int>(m_image.bytesPerLine()),
        static_cast<unsigned int>(working.width()), static_cast<unsigned int>(working.height()));
    m_wireCalculator = new PXIntelligentScissorsWireCalculator(m_weightCalculator);
    connect(m_weightCalculator, &PXIntelligentScissorsWorker::progressChanged, this,
        &PXIntelligentScissors::progessChanged);
    connect(m_wireCalculator, &PXIntelligentScissorsWorker::progressChanged, this,
        &PXIntelligentScissors::progessChanged);
}

bool PXIntelligentScissors::pointInImage(const QPointF& point, unsigned int& x, unsigned int& y) const
{
    if (!m_wireCalculator || std::isnan(point.x()) || std::isnan(point.y()))
        return false;
    x = roundAndClamp(point.x(), m_image.width() - 1);
    y = roundAndClamp(point.y(), m_image.height() - 1);
    return true;
}

void PXIntelligentScissors::initializeSeed(const QPointF& point)
{
    unsigned int x;
    unsigned int y;
    if (!pointInImage(point, x, y))
        return;
    m_seeds.append(QPoint(static_cast<int>(x), static_cast<int>(y)));
    m_wireCalculator->startThread(x, y, m_windowSize);
}

QList<QPoint> PXIntelligentScissors::bestWire(const QPointF& point)
{
    if (!m_wireCalculator || std::isnan(point.x()) || std::isnan(point.y()))
        m_wire.clear();
    else
        m_wire = m_wireCalculator->calculateTrace(truncateToUnsigned(point.x()), truncateToUnsigned(point.y()));
    return m_wire;
}

bool PXIntelligentScissors::containsWireToPoint(const QPointF& point) const
{
    unsigned int x;
    unsigned int y;
    return pointInImage(point, x, y) && m_wireCalculator->isReachable(x, y);
}

void PXIntelligentScissors::checkBoundsOfPoint(QPoint& point) const
{
    point.setX(qMax(0, qMin(point.x(), m_image.width() - 1)));
    point.setY(qMax(0, qMin(point.y(), m_image.height() - 1)));
}

void PXIntelligentScissors::clear()
{
    // The search first: it may be waiting in the weight calculator's get().
    if (m_wireCalculator) {
        m_wireCalculator->stop();
        delete m_wireCalculator;
        m_wireCalculator = nullptr;
    }
    if (m_weightCalculator) {
        m_weightCalculator->stop();
        delete m_weightCalculator;
        m_weightCalculator = nullptr;
    }
}

void PXIntelligentScissors::stopRunning()
{
    if (!m_wireCalculator || !m_wireCalculator->isExecuting())
        return;
    m_wireCalculator->stoppingThread();
    // The raw total, not a fraction; hosts read it as "done".
    emit progessChanged(m_wireCalculator->totalProgress());
}
