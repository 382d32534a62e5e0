#pragma once

#include "pximagecutter_export.h"

#include <QColor>
#include <QImage>
#include <QList>
#include <QMetaType>
#include <QPainterPath>
#include <QPoint>
#include <QSet>

/**
 * A snapshot of a segmentation's selection state, taken by
 * PXImageSegmentation::createMemento() and restored by
 * PXImageSegmentation::setMemento().
 *
 * A memento taken without labels has a null labels() image and an empty
 * pointsOfSuperpixels() list; restoring it keeps the segmentation's current
 * superpixel structure and restores only the sets, the mask, the mask colour
 * and the lasso.
 *
 * All members are implicitly shared Qt values, so a memento is cheap to copy
 * and may be read from any thread.
 */
class PXIMAGECUTTER_EXPORT PXMementoSegmentation
{
public:
    /** An empty memento: no sets, null images, the opaque black mask colour. */
    PXMementoSegmentation();
    PXMementoSegmentation(const QPainterPath& lassoPath, const QSet<int>& foreground,
                          const QSet<int>& background, const QImage& mask, const QImage& labels,
                          const QList<QList<QPoint>>& pointsOfSuperpixels, const QColor& maskColor);
    PXMementoSegmentation(const PXMementoSegmentation&) = default;
    PXMementoSegmentation& operator=(const PXMementoSegmentation&) = default;
    virtual ~PXMementoSegmentation();

    /** A new memento with copies of every member; the caller owns it. */
    PXMementoSegmentation* clone() const;

    QPainterPath lassoPath() const { return m_lassoPath; }
    QSet<int> foregroundClusters() const { return m_foregroundClusters; }
    QSet<int> backgroundClusters() const { return m_backgroundClusters; }
    QImage mask() const { return m_mask; }
    /** The label image, or a null image for a memento taken without labels. */
    QImage labels() const { return m_labels; }
    /** The pixels of each label, or empty for a memento taken without labels. */
    QList<QList<QPoint>> pointsOfSuperpixels() const { return m_pointsOfSuperpixels; }
    /** Opaque in every memento the controller takes. */
    QColor maskColor() const { return m_maskColor; }
    /** The user's strokes kept for the refined cut (PXRefinedCut marks), or null. */
    QImage strokeMarks() const { return m_strokeMarks; }
    void setStrokeMarks(const QImage& marks) { m_strokeMarks = marks; }

private:
    QList<QList<QPoint>> m_pointsOfSuperpixels;
    QSet<int> m_foregroundClusters;
    QSet<int> m_backgroundClusters;
    QImage m_mask;
    QImage m_labels;
    QColor m_maskColor;
    QPainterPath m_lassoPath;
    QImage m_strokeMarks;
};

Q_DECLARE_METATYPE(PXMementoSegmentation)
