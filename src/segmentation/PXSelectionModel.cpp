#include "PXSelectionModel.h"

#include "PXBackgroundExtractor.h"
#include "PXConcurrent.h"
#include "PXImage.h"
#include "PXSelectionModelYCbCr.h"
#include "PXIntRange.h"
#include "PXMementoSegmentation.h"
#include "PXRefinedCut.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

// Neighbour walk of the contour test: W, NW, N, NE, E, SE, S, SW.
constexpr int dx8[8] = {-1, -1, 0, 1, 1, 1, 0, -1};
constexpr int dy8[8] = {0, -1, -1, -1, 0, 1, 1, 1};

constexpr quint32 myInsidePixel = 0xFFFFFFFF;
// Object pixels of the mask: Qt::transparent's rgba().
constexpr quint32 myTransparentPixel = 0;
// Rows per band of the passes over the whole photo.
constexpr int myApplyRows = 64;
// Radius of the mark a click leaves in the refined cut.
constexpr double myClickMarkRadius = 6.0;

// Coordinates beyond this are far outside any photo; keeping them there lets
// rounding to int stay defined.
constexpr double myCoordinateLimit = 1 << 24;

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

QImage PXSelectionModel::workingImage(const QImage& image)
{
    if (!image.isNull() && image.format() != QImage::Format_ARGB32)
        return image.convertToFormat(QImage::Format_ARGB32);
    return image;
}

QPainterPath PXSelectionModel::usablePath(const QPainterPath& path)
{
    // Rounding such a path would overflow, and Qt's path operations do not
    // expect NaN.
    for (int i = 0; i < path.elementCount(); ++i) {
        const QPainterPath::Element element = path.elementAt(i);
        if (!(std::abs(element.x) <= myCoordinateLimit && std::abs(element.y) <= myCoordinateLimit))
            return QPainterPath();
    }
    return path;
}

QRect PXSelectionModel::roundedRect(const QRectF& rect)
{
    const auto clamped = [](qreal value) {
        return std::isnan(value) ? 0.0 : std::clamp<qreal>(value, -myCoordinateLimit, myCoordinateLimit);
    };
    return QRectF(clamped(rect.x()), clamped(rect.y()), clamped(rect.width()), clamped(rect.height()))
        .toRect();
}

void PXSelectionModel::setPhoto(const QImage& photo, const QFileInfo& fileInfo)
{
    m_photo = photo;
    m_photoYCbCr = std::make_shared<PXSelectionModelYCbCr>(photo);
    m_fileInfo = fileInfo;
    m_marks = QImage();
}

void PXSelectionModel::setPhoto(const QImage& photo)
{
    m_photo = photo;
    m_photoYCbCr = std::make_shared<PXSelectionModelYCbCr>(photo);
}

void PXSelectionModel::startLasso(const QPainterPath& lasso)
{
    m_pointsOfSuperpixels.clear();
    m_foreground = QSet<int>();
    m_background = QSet<int>();
    m_lassoPath = lasso;
}

void PXSelectionModel::takeSegmentation(const Segmentation& segmentation)
{
    m_labelsSaved = false;
    m_expandedPath = segmentation.expandedPath;
    m_labels = segmentation.labels;
    m_superpixels = segmentation.superpixels;
    m_neighbours = segmentation.neighbours;
    m_pointsOfSuperpixels = segmentation.pointsOfSuperpixels;
}

void PXSelectionModel::forgetSegmentation()
{
    // A mask kept for the same photo stays until the next cut; one made
    // for a photo of another size would no longer fit it.
    if (m_photo.isNull() || m_mask.size() != m_photo.size())
        m_mask = QImage();
    m_superpixels.clear();
    m_neighbours = QHash<int, QSet<int>>();
    m_pointsOfSuperpixels.clear();
    m_clickedSuperpixel = 0;
    m_expandedPath = QPainterPath();
}

// ---------------------------------------------------------------------------
// Initial cut

void PXSelectionModel::beginCut()
{
    m_foreground = QSet<int>();
    m_background = QSet<int>();
    m_mask = QImage(m_photo.size(), QImage::Format_ARGB32_Premultiplied);
    m_mask.fill(m_maskColor.rgb());
}

QImage PXSelectionModel::lassoImage() const
{
    return filledPathImage(m_photo.size(), m_expandedPath);
}

QRect PXSelectionModel::expandedRect() const
{
    return roundedRect(m_expandedPath.boundingRect());
}

std::pair<QSet<int>, QSet<int>> PXSelectionModel::separate(const QImage& lassoImage,
                                                           const QRect& rect) const
{
    std::pair<QSet<int>, QSet<int>> insideOutside;
    if (rect.top() >= rect.bottom() || !isLabelImage(m_labels) || lassoImage.isNull()
        || lassoImage.depth() != 32)
        return insideOutside;

    // The rectangle's last row and column are deliberately not visited.
    const int top = std::max(rect.top(), 0);
    const int bottom = std::min({rect.bottom(), m_labels.height(), lassoImage.height()});
    const int left = std::max(rect.left(), 0);
    const int right = std::min({rect.right(), m_labels.width(), lassoImage.width()});
    for (int y = top; y < bottom; ++y) {
        const auto* labelLine = reinterpret_cast<const qint32*>(m_labels.constScanLine(y));
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

QSet<int> PXSelectionModel::assignForeground(const std::pair<QSet<int>, QSet<int>>& insideOutside)
{
    m_background = insideOutside.second;
    QSet<int> foreground;
    for (int label : insideOutside.first) {
        if (m_background.contains(label))
            continue;
        foreground.insert(label);
        setSide(label, true);
    }
    return foreground;
}

PXImage PXSelectionModel::analysedPhoto() const
{
    return PXImage(m_photo, m_photoYCbCr ? m_photoYCbCr->image(m_fileInfo) : QImage(), m_fileInfo);
}

QSet<int> PXSelectionModel::backgroundByColour(const std::function<void()>& onSetUp) const
{
    PXImage image = analysedPhoto();
    PXBackgroundExtractor extractor;
    extractor.setup(&image);
    if (onSetUp)
        onSetUp();
    extractor.setSuperPixelInformations(m_superpixels);
    return extractor.extractBackground(m_foreground, m_mask);
}

void PXSelectionModel::moveToBackground(const QSet<int>& labels)
{
    for (int label : labels)
        setSide(label, false);
}

QSet<int> PXSelectionModel::confirmPossibleBackground(const QSet<int>& possibleBackground)
{
    // Fixed copies: labels moved in this call do not sway their neighbours,
    // so the vote never spreads and a second pass only confirms the first.
    const QSet<int> background = m_background;
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
                if (background.contains(neighbour) || possibleBackground.contains(neighbour))
                    ++count;
            }
            if (double(count) >= 0.5 * double(neighbours.size())) {
                setSide(label, false);
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

// ---------------------------------------------------------------------------
// Gestures

void PXSelectionModel::setSide(int label, bool isForeground)
{
    quint32 value;
    if (isForeground) {
        m_foreground.insert(label);
        m_background.remove(label);
        value = myTransparentPixel;
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

int PXSelectionModel::click(const QPointF& position)
{
    if (m_labels.isNull())
        return 0;
    const int label = int(m_labels.pixel(clampedPoint(m_labels, position)));
    m_clickedSuperpixel = label;
    setSide(label, !m_foreground.contains(label));
    return label;
}

void PXSelectionModel::paintSelection(const QPainterPath& path, bool isForeground)
{
    const QImage stroke = pathImage(path);
    QSet<int> touched;
    touched.reserve(100000);
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
    for (int label : std::as_const(touched))
        setSide(label, isForeground);
    m_lastPath = path;
}

void PXSelectionModel::scribble(const QPainterPath& path, bool isForeground)
{
    if (m_mask.isNull())
        return;
    QPainter painter(&m_mask);
    if (isForeground)
        painter.setCompositionMode(QPainter::CompositionMode_Clear);
    painter.fillPath(path, QBrush(QColor(m_maskColor.rgb())));
}

QImage PXSelectionModel::hoverPreview(const QSet<int>& clusters, bool isForeground) const
{
    QImage result = m_mask.copy(QRect());
    if (result.isNull() || result.depth() != 32)
        return result;
    const quint32 value = isForeground ? myTransparentPixel : m_maskColor.rgb();
    const qint64 stride = m_mask.bytesPerLine() / 4;
    const qint64 limit = result.sizeInBytes() / 4;
    auto* pixels = reinterpret_cast<quint32*>(result.bits());
    for (int label : clusters) {
        if (label < 0 || label >= m_pointsOfSuperpixels.size())
            continue;
        for (const QPoint& point : m_pointsOfSuperpixels.at(label)) {
            const qint64 index = qint64(point.y()) * stride + point.x();
            // Index 0, the top-left pixel, is never written; kept as designed.
            if (index <= 0 || index >= limit)
                continue;
            pixels[index] = value;
        }
    }
    return result;
}

void PXSelectionModel::invert()
{
    if (!m_mask.isNull()) {
        QPainter painter(&m_mask);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOut);
        painter.fillRect(m_mask.rect(), QColor(m_maskColor.rgb()));
    }
    std::swap(m_foreground, m_background);
    // The refined cut's strokes re-solve the lasso's object; on an inverted
    // mask they would undo the inversion, so from here strokes are plain.
    m_refining = false;
}

bool PXSelectionModel::setMaskColor(const QColor& colour)
{
    // Only rgb() is ever painted, so a change of alpha alone is none.
    if (colour.rgb() == m_maskColor.rgb())
        return false;
    m_maskColor = colour;
    return true;
}

void PXSelectionModel::recolour()
{
    if (m_mask.isNull())
        return;
    QPainter painter(&m_mask);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(m_mask.rect(), QColor(m_maskColor.rgb()));
}

// ---------------------------------------------------------------------------
// Mementos

PXMementoSegmentation* PXSelectionModel::createMemento(bool withLabels)
{
    QImage labels;
    QList<QList<QPoint>> points;
    if (withLabels) {
        labels = m_labels;
        points = m_pointsOfSuperpixels;
        m_labelsSaved = true;
    }
    auto* memento = new PXMementoSegmentation(m_lassoPath, m_foreground, m_background, m_mask, labels,
                                              points, QColor(m_maskColor.rgb()));
    // Undoing a stroke takes back its mark too.
    memento->setStrokeMarks(m_marks);
    return memento;
}

void PXSelectionModel::setMemento(const PXMementoSegmentation& memento)
{
    // A memento of an earlier photo (an old undo command after a new photo)
    // does not fit this one and is ignored.
    const auto fits = [this](const QImage& image) { return image.isNull() || image.size() == m_photo.size(); };
    if (!fits(memento.mask()) || !fits(memento.labels()))
        return;
    m_foreground = memento.foregroundClusters();
    m_background = memento.backgroundClusters();
    if (!memento.labels().isNull()) {
        m_labels = memento.labels();
        m_pointsOfSuperpixels = memento.pointsOfSuperpixels();
    }
    // The mask's pixels are written as 32-bit words; a host's memento in
    // another format is converted so that they stay in bounds.
    m_mask = memento.mask();
    if (!m_mask.isNull() && m_mask.format() != QImage::Format_ARGB32_Premultiplied)
        m_mask = m_mask.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (memento.maskColor() != m_maskColor)
        m_maskColor = memento.maskColor();
    // Recoloured even when the colour is the same: a memento taken while
    // a colour change was still pending holds pixels of the old colour.
    // For any other memento this changes no byte.
    recolour();
    m_lassoPath = memento.lassoPath();
    m_marks = memento.strokeMarks();
    // A solve still running for the strokes undone must not land.
    ++m_strokes;
}

// ---------------------------------------------------------------------------
// Queries

QImage PXSelectionModel::pathImage(const QPainterPath& path) const
{
    return filledPathImage(m_mask.size(), path);
}

QSet<int> PXSelectionModel::labelsUnderBrush(const QPoint& centre, int radius) const
{
    QSet<int> found;
    if (m_labels.isNull())
        return found;
    if (radius == 1) {
        found.insert(int(m_labels.pixel(clampedPoint(m_labels, centre))));
        return found;
    }
    if (m_labels.depth() != 32)
        return found;

    const int half = radius / 2;
    const qint64 cx = centre.x();
    const qint64 cy = centre.y();
    const PXIntRange columns(int(std::max<qint64>(cx - half, 0)),
                             int(std::min<qint64>(m_labels.width() - 1, cx + half)));
    const PXIntRange rows(int(std::max<qint64>(cy - half, 0)),
                          int(std::min<qint64>(m_labels.height() - 1, cy + half)));
    for (int y = rows.first(); y != rows.lastIndexEvenIfUnvalid(); ++y) {
        const auto* line = reinterpret_cast<const qint32*>(m_labels.constScanLine(y));
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

QList<QPoint> PXSelectionModel::pointsAt(const QPointF& point) const
{
    if (m_labels.isNull())
        return QList<QPoint>();
    const int label = int(m_labels.pixel(clampedPoint(m_labels, point)));
    if (label < 0 || label >= m_pointsOfSuperpixels.size())
        return QList<QPoint>();
    return m_pointsOfSuperpixels.at(label);
}

int PXSelectionModel::labelAt(const QPoint& point) const
{
    if (m_labels.isNull())
        return 0;
    return int(m_labels.pixel(clampedPoint(m_labels, point)));
}

bool PXSelectionModel::expandedPathContains(const QPainterPath& path) const
{
    return m_expandedPath.contains(path);
}

QImage PXSelectionModel::contour() const
{
    const QSize size = m_photo.size();
    QImage result(size, QImage::Format_ARGB32);
    result.fill(Qt::transparent);
    if (result.height() < 1 || !isLabelImage(m_labels) || m_labels.size() != size)
        return result;

    const int width = size.width();
    const int height = size.height();
    for (int y = 0; y < height; ++y) {
        const auto* line = reinterpret_cast<const qint32*>(m_labels.constScanLine(y));
        auto* out = reinterpret_cast<quint32*>(result.scanLine(y));
        for (int x = 0; x < width; ++x) {
            int count = 0;
            for (int k = 0; k < 8; ++k) {
                const int nx = x + dx8[k];
                const int ny = y + dy8[k];
                if (nx < 0 || nx >= width || ny < 0 || ny >= height)
                    continue;
                const auto* neighbourLine = reinterpret_cast<const qint32*>(m_labels.constScanLine(ny));
                const bool differs = neighbourLine[nx] != line[x];
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
// Refined cut

QImage& PXSelectionModel::marks()
{
    if (m_marks.size() != m_photo.size()) {
        m_marks = QImage(m_photo.size(), QImage::Format_Grayscale8);
        m_marks.fill(PXRefinedCut::NoMark);
    }
    return m_marks;
}

void PXSelectionModel::markStroke(const QPainterPath& path, bool isForeground)
{
    if (marks().isNull())
        return;
    QPainter marker(&m_marks);
    const int value = isForeground ? PXRefinedCut::ObjectMark : PXRefinedCut::BackgroundMark;
    marker.fillPath(path, QBrush(QColor(value, value, value)));
    ++m_strokes;
}

void PXSelectionModel::markClick(const QPointF& position)
{
    if (m_mask.isNull() || m_labels.isNull())
        return;
    const QPoint point = clampedPoint(m_labels, position);
    m_clickedSuperpixel = int(m_labels.pixel(point));
    // A click says "this is on the wrong side": a dot of the other side.
    const bool isObject = qAlpha(m_mask.pixel(point)) == 0;
    QPainterPath dot;
    dot.addEllipse(QPointF(point), myClickMarkRadius, myClickMarkRadius);
    markStroke(dot, !isObject);
}

QImage PXSelectionModel::maskSelection() const
{
    if (m_mask.depth() != 32)
        return QImage();
    QImage selection(m_mask.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < m_mask.height(); ++y) {
        const auto* in = reinterpret_cast<const QRgb*>(m_mask.constScanLine(y));
        uchar* out = selection.scanLine(y);
        for (int x = 0; x < m_mask.width(); ++x)
            out[x] = qAlpha(in[x]) == 0 ? 255 : 0;
    }
    return selection;
}

PXRefinedCut PXSelectionModel::strokeCut() const
{
    // What the last refined cut prepared serves as long as the regions are
    // the same.
    PXRefinedCut cut = m_keptCut && m_keptCutLabels == m_labels.cacheKey() ? *m_keptCut : refinedCut();
    cut.setMarks(m_marks);
    const bool maskUnchanged = !m_refinedSelection.isNull() && m_refinedSelectionMask == m_mask.cacheKey();
    cut.setStartSelection(maskUnchanged ? m_refinedSelection : maskSelection());
    return cut;
}

void PXSelectionModel::keepRefinedCut(const PXRefinedCut& cut, const QImage& labels)
{
    m_keptCut = std::make_shared<const PXRefinedCut>(cut);
    m_keptCutLabels = labels.cacheKey();
}

bool PXSelectionModel::applyStrokeSelection(const QImage& selection, const QImage& labels, int strokes)
{
    // A later stroke came in meanwhile; its own solve brings the mask.
    if (strokes != m_strokes)
        return false;
    applyRefinedSelection(selection, labels);
    return true;
}

PXRefinedCut PXSelectionModel::refinedCut() const
{
    PXRefinedCut cut;
    cut.setPhoto(m_photo);
    cut.setLasso(m_expandedPath);
    cut.setRegions(m_labels, m_foreground);
    cut.setMarks(m_marks);
    return cut;
}

void PXSelectionModel::applyRefinedSelection(const QImage& selection, const QImage& labels)
{
    // A newer worker's results arrived meanwhile; the cut loop starts again.
    if (selection.isNull() || labels.cacheKey() != m_labels.cacheKey() || m_mask.size() != selection.size())
        return;
    const bool hasLabels = isLabelImage(labels) && labels.size() == selection.size();
    // A region belongs to the side that holds most of its pixels, so that
    // clicks and paint strokes move it as the refined mask shows it. Counted
    // per label in a table: labels number the regions, below the pixel count.
    // Rows in parallel bands; each band counts on its own and the sums are
    // added up afterwards.
    using Counts = std::vector<std::pair<qint64, qint64>>; // per label: object pixels, all pixels
    const int width = selection.width();
    const qsizetype labelLimit = qsizetype(width) * selection.height();
    const quint32 background = m_maskColor.rgb();
    const quint32 object = QColor(Qt::transparent).rgba();
    // Rows are written through one pointer: scanLine() would detach per call.
    uchar* maskBits = m_mask.bits();
    const qsizetype maskStride = m_mask.bytesPerLine();
    const QList<Counts> bandCounts = PXConcurrent::blockingMapped<QList<Counts>>(
        PXConcurrent::ranges(0, selection.height(), myApplyRows), [&](const PXConcurrent::Range& rows) {
            Counts counts;
            for (int y = int(rows.first); y < rows.second; ++y) {
                const uchar* in = selection.constScanLine(y);
                auto* out = reinterpret_cast<quint32*>(maskBits + y * maskStride);
                for (int x = 0; x < width; ++x)
                    out[x] = in[x] ? object : background;
                if (!hasLabels)
                    continue;
                const auto* line = reinterpret_cast<const qint32*>(labels.constScanLine(y));
                for (int x = 0; x < width; ++x) {
                    const qint32 label = line[x];
                    if (label <= 0 || label >= labelLimit)
                        continue;
                    if (qsizetype(counts.size()) <= label)
                        counts.resize(qsizetype(label) + 1);
                    counts[label].first += in[x] ? 1 : 0;
                    ++counts[label].second;
                }
            }
            return counts;
        });
    Counts counts;
    for (const Counts& band : bandCounts) {
        if (counts.size() < band.size())
            counts.resize(band.size());
        for (std::size_t label = 0; label < band.size(); ++label) {
            counts[label].first += band[label].first;
            counts[label].second += band[label].second;
        }
    }
    m_foreground = QSet<int>();
    m_background = QSet<int>();
    for (qsizetype label = 0; label < qsizetype(counts.size()); ++label) {
        const auto& count = counts[label];
        if (count.second == 0)
            continue;
        if (2 * count.first >= count.second)
            m_foreground.insert(int(label));
        else
            m_background.insert(int(label));
    }
    // Every write to the mask changes its cacheKey(), so the key read after
    // the last one tells whether the mask still shows this selection.
    m_refinedSelection = selection;
    m_refinedSelectionMask = m_mask.cacheKey();
}
