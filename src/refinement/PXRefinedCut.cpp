#include "PXRefinedCut.h"

#include "PXConcurrent.h"
#include "PXRefinedCutSteps.h"

#include <algorithm>

using namespace PXRefinedCutSteps;

// All of the cut that needs no object labels. Immutable once made.
struct PXRefinedCut::Prepared {
    QSize photoSize;
    Area area; // empty when the lasso misses the photo
    std::vector<int> usedBins;
};

std::shared_ptr<const PXRefinedCut::Prepared> PXRefinedCut::makePrepared() const
{
    auto prepared = std::make_shared<Prepared>();
    if (m_photo.isNull())
        return prepared;
    const QImage photo = m_photo.depth() == 32 ? m_photo : m_photo.convertToFormat(QImage::Format_ARGB32);
    prepared->photoSize = photo.size();
    Area& area = prepared->area;
    const QRect lassoRect = m_lasso.boundingRect().toAlignedRect().intersected(photo.rect());
    const int band = std::max(0, m_options.outerBand);
    area.rect = lassoRect.adjusted(-band, -band, band, band).intersected(photo.rect());
    if (lassoRect.isEmpty() || area.rect.isEmpty()) {
        area.rect = QRect();
        return prepared;
    }
    area.width = area.rect.width();
    area.height = area.rect.height();
    prepared->usedBins = readArea(area, photo, m_lasso, m_labels, m_marks);
    sobelOfArea(area, photo);
    return prepared;
}

void PXRefinedCut::prepare()
{
    if (!m_prepared)
        m_prepared = makePrepared();
}

void PXRefinedCut::setPhoto(const QImage& photo)
{
    m_photo = photo;
    m_prepared.reset();
}

void PXRefinedCut::setLasso(const QPainterPath& lasso)
{
    m_lasso = lasso;
    m_prepared.reset();
}

void PXRefinedCut::setRegions(const QImage& labels, const QSet<int>& objectLabels)
{
    m_labels = labels;
    m_objectLabels = objectLabels;
    m_prepared.reset();
}

void PXRefinedCut::setObjectLabels(const QSet<int>& objectLabels)
{
    m_objectLabels = objectLabels;
}

void PXRefinedCut::setMarks(const QImage& marks)
{
    m_marks = marks;
    m_prepared.reset();
}

void PXRefinedCut::setOptions(const PXRefinedCutOptions& options)
{
    m_options = options;
    m_prepared.reset();
}

void PXRefinedCut::setProgressFunction(const std::function<void()>& progress)
{
    m_progress = progress;
}

void PXRefinedCut::setCancelFunction(const std::function<bool()>& cancelled)
{
    m_cancelled = cancelled;
}

QImage PXRefinedCut::run() const
{
    if (m_photo.isNull())
        return QImage();
    const std::shared_ptr<const Prepared> prepared = m_prepared ? m_prepared : makePrepared();
    const auto cancelled = [this]() { return m_cancelled && m_cancelled(); };
    const auto progress = [this]() {
        if (m_progress)
            m_progress();
    };

    QImage selection(prepared->photoSize, QImage::Format_Grayscale8);
    selection.fill(0);
    const Area& area = prepared->area;
    if (area.rect.isEmpty()) {
        for (int step = 0; step < progressSteps; ++step)
            progress();
        return selection;
    }
    const std::vector<int>& usedBins = prepared->usedBins;
    // The first models: the current cut's object against the band outside
    // the lasso. Should that cut have lost the object, the whole lasso
    // against the band. They need no blocks, so both are made side by side.
    const qsizetype n = area.size();
    std::vector<uchar> object;
    std::vector<uchar> lassoSides(n);
    qsizetype insidePixels = 0;
    DataCosts costs;
    Blocks blocks;
    QList<int> jobs {0, 1};
    PXConcurrent::blockingMap(jobs, [&](int job) {
        if (job == 0) {
            blocks = makeBlocks(area, m_options);
            return;
        }
        object = selectionOfLabels(area, m_objectLabels);
        std::vector<uchar> firstSides(n);
        for (qsizetype i = 0; i < n; ++i) {
            firstSides[i] = area.inside[i] ? (object[i] ? 1 : unusedSide) : 0;
            lassoSides[i] = area.inside[i];
            insidePixels += area.inside[i];
        }
        applyMarks(area, object);
        costs = learnCosts(area, firstSides, usedBins, m_options);
    });
    progress();
    if (cancelled())
        return QImage();

    // The band cut reuses the last round's models: learning them again from
    // that round's few changed blocks moved no outline on the composites.
    for (int round = 0; round < m_options.rounds; ++round) {
        if (round > 0)
            costs = learnCosts(area, object, usedBins, m_options);
        bool changed = cutBlocks(area, blocks, costs, object);
        if (round == 0 && lostObject(object, insidePixels)) {
            costs = learnCosts(area, lassoSides, usedBins, m_options);
            changed = cutBlocks(area, blocks, costs, object);
        }
        if (!changed)
            break;
        if (cancelled())
            return QImage();
    }
    progress();
    if (cancelled())
        return QImage();

    cutBand(area, costs, m_options, object);
    progress();
    if (cancelled())
        return QImage();

    for (int y = 0; y < area.height; ++y) {
        uchar* out = selection.scanLine(y + area.rect.top()) + area.rect.left();
        for (int x = 0; x < area.width; ++x)
            out[x] = object[qsizetype(y) * area.width + x] ? 255 : 0;
    }
    return selection;
}
