#pragma once

// A controller held as a host holds it, and crafted label images.

#include "PXImageSegmentation.h"
#include "PXLogger.h"
#include "PXMementoSegmentation.h"

#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>

#include <algorithm>
#include <memory>
#include <optional>

/** Re-emits the controller's signals queued, in the test's thread. */
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

constexpr QRgb myMaskColour = 0xFF000000;

/** A label image from rows of digits, each digit a @p cell x @p cell block. */
inline QImage labelImage(const QList<QByteArray>& rows, int cell = 1)
{
    QImage labels(int(rows.first().size()) * cell, int(rows.size()) * cell, QImage::Format_ARGB32);
    for (int y = 0; y < labels.height(); ++y)
        for (int x = 0; x < labels.width(); ++x)
            labels.setPixel(x, y, uint(rows.at(y / cell).at(x / cell) - '0'));
    return labels;
}

/** The pixels of each label, indexed by label. */
inline QList<QList<QPoint>> pointsOfLabels(const QImage& labels)
{
    QList<QList<QPoint>> points;
    for (int y = 0; y < labels.height(); ++y) {
        for (int x = 0; x < labels.width(); ++x) {
            const int label = int(labels.pixel(x, y));
            points.resize(qMax(points.size(), qsizetype(label) + 1));
            points[label].append(QPoint(x, y));
        }
    }
    return points;
}

/** Transparent on the @p object labels, opaque black elsewhere. */
inline QImage maskOf(const QImage& labels, const QSet<int>& object)
{
    QImage mask(labels.size(), QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < labels.height(); ++y)
        for (int x = 0; x < labels.width(); ++x)
            mask.setPixel(x, y, object.contains(int(labels.pixel(x, y))) ? 0u : myMaskColour);
    return mask;
}

inline QPainterPath square(int x, int y, int size)
{
    QPainterPath path;
    path.addRect(QRectF(x, y, size, size));
    return path;
}

inline QStringList segLog()
{
    return PXSingleton<PXLogger>::instance()->history();
}

/** The controller, its signals spied in the test's thread. */
struct Host
{
    PXImageSegmentation controller;
    SegmentationSignals relay {controller};
    QSignalSpy masks {&relay, &SegmentationSignals::sendNewMask};
    QSignalSpy progress {&relay, &SegmentationSignals::segmentationProgress};

    /**
     * A grey photo of the labels' size and a segmentation with @p object as
     * the object and @p background (by default every other label) as the
     * background. Forgets the signals and log lines this makes.
     */
    void craft(const QImage& labels, const QSet<int>& object,
               std::optional<QSet<int>> background = std::nullopt)
    {
        QImage photo(labels.size(), QImage::Format_ARGB32);
        photo.fill(Qt::gray);
        controller.setup(photo, QFileInfo());
        const QList<QList<QPoint>> points = pointsOfLabels(labels);
        if (!background) {
            background.emplace();
            for (int label = 1; label < points.size(); ++label)
                if (!object.contains(label))
                    background->insert(label);
        }
        const PXMementoSegmentation memento(QPainterPath(), object, *background, maskOf(labels, object),
                                            labels, points, QColor(myMaskColour));
        controller.setMemento(&memento);
        forget();
    }

    /** Waits until the controller thread, the pool and the queued signals are done. */
    void settle()
    {
        controller.wait();
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
    }

    void forget()
    {
        settle();
        masks.clear();
        progress.clear();
        PXSingleton<PXLogger>::instance()->clearHistory();
    }

    QImage lastMask() const { return masks.last().first().value<QImage>(); }

    int nonNullMasks() const
    {
        return int(std::count_if(masks.cbegin(), masks.cend(), [](const QList<QVariant>& arguments) {
            return !arguments.first().value<QImage>().isNull();
        }));
    }

    std::unique_ptr<PXMementoSegmentation> state()
    {
        return std::unique_ptr<PXMementoSegmentation>(controller.createMemento(false));
    }
    QSet<int> object() { return state()->foregroundClusters(); }
    QSet<int> background() { return state()->backgroundClusters(); }
};
