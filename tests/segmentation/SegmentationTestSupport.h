#pragma once

// Crafted photos, label images and waits shared by the controller's tests.

#include "PXImageSegmentation.h"
#include "PXMementoSegmentation.h"

#include <QColor>
#include <QImage>
#include <QList>
#include <QPainter>
#include <QSet>
#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>

#include <memory>
#include <optional>

/**
 * Re-emits the controller's signals in the test's thread, queued as a host
 * connects them, so QSignalSpy sees them there.
 */
class SegmentationSignals : public QObject
{
    Q_OBJECT

public:
    explicit SegmentationSignals(PXImageSegmentation& controller)
    {
        connect(&controller, &PXImageSegmentation::sendNewMask, this,
                &SegmentationSignals::sendNewMask, Qt::QueuedConnection);
        connect(&controller, &PXImageSegmentation::segmentationProgress, this,
                &SegmentationSignals::segmentationProgress, Qt::QueuedConnection);
    }

Q_SIGNALS:
    void sendNewMask(QImage theImage);
    void segmentationProgress(int currentStep, int totalSteps);
};

namespace SegmentationTestSupport {

constexpr QRgb myMaskColour = 0xFF000000;

/** A label image from rows of digits, each digit a @p cell x @p cell block. */
inline QImage labelImage(const QList<QByteArray>& rows, int cell = 1)
{
    QImage labels(int(rows.first().size()) * cell, int(rows.size()) * cell, QImage::Format_ARGB32);
    for (int y = 0; y < labels.height(); ++y) {
        auto* line = reinterpret_cast<qint32*>(labels.scanLine(y));
        for (int x = 0; x < labels.width(); ++x)
            line[x] = rows.at(y / cell).at(x / cell) - '0';
    }
    return labels;
}

/** The pixels of each label, indexed by label (entry 0 for label 0). */
inline QList<QList<QPoint>> pointsOfLabels(const QImage& labels)
{
    QList<QList<QPoint>> points;
    for (int y = 0; y < labels.height(); ++y) {
        for (int x = 0; x < labels.width(); ++x) {
            const int label = int(labels.pixel(x, y));
            if (label >= points.size())
                points.resize(label + 1);
            points[label].append(QPoint(x, y));
        }
    }
    return points;
}

/** A mask transparent on @p foreground's labels, opaque black elsewhere. */
inline QImage maskOf(const QImage& labels, const QSet<int>& foreground)
{
    QImage mask(labels.size(), QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < labels.height(); ++y)
        for (int x = 0; x < labels.width(); ++x)
            mask.setPixel(x, y, foreground.contains(int(labels.pixel(x, y))) ? 0u : myMaskColour);
    return mask;
}

/**
 * Gives @p controller a grey photo of the labels' size and a segmentation
 * with @p foreground as the object and @p background as the background
 * (by default every other label). The mask shows @p foreground.
 */
inline void craftSegmentation(PXImageSegmentation& controller, const QImage& labels,
                              const QSet<int>& foreground,
                              std::optional<QSet<int>> background = std::nullopt)
{
    QImage photo(labels.size(), QImage::Format_ARGB32);
    photo.fill(Qt::gray);
    controller.setup(photo, QFileInfo());
    const QList<QList<QPoint>> points = pointsOfLabels(labels);
    if (!background) {
        background = QSet<int>();
        for (int label = 1; label < points.size(); ++label) {
            if (!foreground.contains(label))
                background->insert(label);
        }
    }
    const PXMementoSegmentation memento(QPainterPath(), foreground, *background,
                                        maskOf(labels, foreground), labels, points,
                                        QColor(myMaskColour));
    controller.setMemento(&memento);
}

inline QSet<int> foregroundOf(PXImageSegmentation& controller)
{
    std::unique_ptr<PXMementoSegmentation> memento(controller.createMemento(false));
    return memento->foregroundClusters();
}

inline QSet<int> backgroundOf(PXImageSegmentation& controller)
{
    std::unique_ptr<PXMementoSegmentation> memento(controller.createMemento(false));
    return memento->backgroundClusters();
}

/** The masks a spy on sendNewMask has seen. */
inline QList<QImage> masksOf(const QSignalSpy& spy)
{
    QList<QImage> masks;
    for (const QList<QVariant>& arguments : spy)
        masks.append(arguments.at(0).value<QImage>());
    return masks;
}

inline int nonNullCount(const QSignalSpy& spy)
{
    int count = 0;
    for (const QImage& mask : masksOf(spy))
        count += mask.isNull() ? 0 : 1;
    return count;
}

/** Waits until the controller thread has ended and its signals arrived. */
inline void settle(PXImageSegmentation& controller)
{
    controller.wait();
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
}

/** A square path covering pixels [x, x + size) x [y, y + size). */
inline QPainterPath square(int x, int y, int size)
{
    QPainterPath path;
    path.addRect(QRectF(x, y, size, size));
    return path;
}

} // namespace SegmentationTestSupport
