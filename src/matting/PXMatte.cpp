#include "PXMatte.h"

#include "PXConcurrent.h"
#include "PXMatteSteps.h"

#include <atomic>

void PXMatte::setPhoto(const QImage& photo)
{
    m_photo = photo;
}

void PXMatte::setMask(const QImage& mask)
{
    m_mask = mask;
}

void PXMatte::setSelectionMask(const QImage& mask)
{
    if (mask.isNull()) {
        m_mask = QImage();
        return;
    }
    const QImage source = mask.convertToFormat(QImage::Format_ARGB32);
    m_mask = QImage(source.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < source.height(); ++y) {
        const QRgb* in = reinterpret_cast<const QRgb*>(source.constScanLine(y));
        uchar* out = m_mask.scanLine(y);
        for (int x = 0; x < source.width(); ++x)
            out[x] = qAlpha(in[x]) == 0 ? 255 : 0;
    }
}

void PXMatte::setOptions(const PXMatteOptions& options)
{
    m_options = options;
}

void PXMatte::setProgressFunction(const std::function<void()>& progress)
{
    m_progress = progress;
}

void PXMatte::setCancelFunction(const std::function<bool()>& cancelled)
{
    m_cancelled = cancelled;
}

bool PXMatte::run()
{
    m_alpha = QImage();
    m_foreground = QImage();
    const auto cancelled = [this]() { return m_cancelled && m_cancelled(); };
    const auto progress = [this]() {
        if (m_progress)
            m_progress();
    };
    if (m_photo.isNull())
        return false;
    PXMatteSteps::Frame frame;
    frame.photo = m_photo.format() == QImage::Format_RGB32 || m_photo.format() == QImage::Format_ARGB32
        ? m_photo
        : m_photo.convertToFormat(QImage::Format_ARGB32);
    frame.mask = PXMatteSteps::hardMask(m_mask, frame.photo.size());
    if (frame.mask.isNull())
        return false;
    frame.options = m_options;
    progress();
    if (cancelled())
        return false;

    QImage alpha(frame.photo.size(), QImage::Format_Grayscale8);
    QImage foreground(frame.photo.size(), QImage::Format_ARGB32);
    if (alpha.isNull() || foreground.isNull())
        return false;
    // Detached here, once: the tiles write their own pixels through these.
    frame.alpha = alpha.bits();
    frame.alphaStride = alpha.bytesPerLine();
    frame.foreground = foreground.bits();
    frame.foregroundStride = foreground.bytesPerLine();
    std::atomic<bool> stopped {false};
    QList<PXMatteSteps::Tile> tiles = PXMatteSteps::tiles(frame.photo.size());
    PXConcurrent::blockingMap(tiles, [&](const PXMatteSteps::Tile& tile) {
        if (stopped.load(std::memory_order_relaxed) || cancelled()) {
            stopped = true;
            return;
        }
        PXMatteSteps::matteTile(tile, frame);
    });
    if (stopped || cancelled())
        return false;
    progress();
    m_alpha = alpha;
    m_foreground = foreground;
    return true;
}
