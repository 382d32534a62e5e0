#pragma once

#include "PXIntelligentScissorsWeightCalculator.h"
#include "pximagecutter_export.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QPoint>
#include <QPointF>

class PXIntelligentScissorsWireCalculator;

/**
 * The live-wire tool a host drives while the user traces an outline.
 *
 * Call order: setup() with the photo, initializeSeed() at each click,
 * bestWire() or containsWireToPoint() at each mouse move (while the search
 * still runs), stopRunning() or clear() at the end. All calls come from the
 * host's thread; progressChanged of the two calculator threads arrives as
 * progessChanged on the host's thread.
 *
 * The photo is padded on the right and bottom (padding reads as black, the
 * dearest cost) and halved by a 2 x 2 mean; wires are returned in
 * full-resolution pixel coordinates of the photo. Calls before setup(), or
 * after a setup() with a null image, do nothing and return empty values.
 */
class PXIMAGECUTTER_EXPORT PXIntelligentScissors : public QObject
{
    Q_OBJECT

public:
    explicit PXIntelligentScissors(QObject* parent = nullptr);
    /** Stops both threads and releases everything. */
    ~PXIntelligentScissors() override;

    /**
     * Takes a padded working copy of @p image and starts the weight
     * calculator's thread. Calculators of an earlier setup() are released
     * first; the seeds are kept.
     */
    void setup(const QImage& image);

    /**
     * Starts a search from @p point, rounded half away from zero and clamped
     * to the padded image, and appends it to seeds(). A NaN coordinate is
     * ignored.
     */
    void initializeSeed(const QPointF& point);

    /**
     * The wire from @p point (coordinates truncated, negative ones taken as 0)
     * back to the last seed, as pixel centres; empty while the point is not
     * settled yet or lies outside the image. Also kept as wire().
     */
    QList<QPoint> bestWire(const QPointF& point);

    /** Whether the search has settled the pixel under @p point (rounded and clamped). */
    bool containsWireToPoint(const QPointF& point) const;

    /** Clamps @p point to the padded image. */
    void checkBoundsOfPoint(QPoint& point) const;

    /** 4096: the radius, in pixels, of the region a search requests, and the padding modulus. */
    unsigned int windowSize() const { return m_windowSize; }

    /** Stops and releases both calculators (search first); keeps the image and the lists. */
    void clear();

    /** Stops the search and waits for it, then reports its total as progessChanged. */
    void stopRunning();

    QList<QPoint> seeds() const { return m_seeds; }
    QList<QPoint> wire() const { return m_wire; }
    /** The padded working image the calculators read. */
    QImage image() const { return m_image; }

    /** The calculators; null before setup(). Owned by this object. */
    PXIntelligentScissorsWeightCalculator* weightCalculator() const { return m_weightCalculator; }
    PXIntelligentScissorsWireCalculator* wireCalculator() const { return m_wireCalculator; }

signals:
    /** A fraction done, or the raw total of pixels after stopRunning(). */
    void progessChanged(double theValue);

private:
    PXIMAGECUTTER_NO_EXPORT bool pointInImage(const QPointF& point, unsigned int& x, unsigned int& y) const;

    QImage m_image;
    PXIntelligentScissorsWeightCalculator::Settings m_settings;
    PXIntelligentScissorsWeightCalculator* m_weightCalculator = nullptr;
    PXIntelligentScissorsWireCalculator* m_wireCalculator = nullptr;
    QList<QPoint> m_wire;
    QList<QPoint> m_seeds;
    unsigned int m_windowSize = 4096;
};

Q_DECLARE_METATYPE(PXIntelligentScissors*)
