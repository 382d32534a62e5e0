#pragma once

#include "PXIntelligentScissorsWorker.h"
#include "PXPointPriorityQueue.h"
#include "SparseMatrix.h"
#include "pximagecutter_export.h"

#include <QList>
#include <QPoint>

class PXIntelligentScissorsWeightCalculator;
class QPainter;

/**
 * The live-wire search: the cheapest 8-connected paths from a seed to every
 * pixel it can reach over the weight calculator's cost map (Dijkstra), on
 * the thread "Livewire Calculator".
 *
 * A straight step costs the cost byte c of the pixel stepped onto, a
 * diagonal one truncate(c sqrt(2)); path costs are 32-bit sums that wrap.
 * Equal totals never replace a known path. Pixels of blocks the weight
 * calculator was not asked for are walls.
 *
 * While the search runs, calculateTrace(), drawTrace() and isReachable()
 * may be called from the owner's thread: a path exists as soon as its end
 * pixel is settled, and a settled pixel's path never changes. They must not
 * overlap startThread() or the destructor (the front end calls all of them
 * from one thread).
 *
 * The weight calculator is not owned and must outlive this object.
 */
class PXIMAGECUTTER_EXPORT PXIntelligentScissorsWireCalculator : public PXIntelligentScissorsWorker
{
    Q_OBJECT

public:
    /** A search over @p weights' reduced image. Does not start the thread. */
    explicit PXIntelligentScissorsWireCalculator(PXIntelligentScissorsWeightCalculator* weights);
    /** Stops the search and waits for it. */
    ~PXIntelligentScissorsWireCalculator() override;

    /**
     * Starts a new search from (@p x, @p y) over the region of @p radius
     * around it (all in full-resolution pixels), after stopping and joining a
     * running one and forgetting its results. A seed outside the image only
     * stops and forgets.
     */
    void startThread(unsigned int x, unsigned int y, unsigned int radius);

    /** The search. */
    void runningThread() override;

    /**
     * Relaxes reduced pixel (@p x, @p y) from pixel @p from (linear indices)
     * whose path costs @p score, over a diagonal step or not. @p index, the
     * pixel's own linear index, is not needed: the queue carries @p from
     * until the pixel settles. Search thread only.
     */
    void calculatePoint(unsigned int x, unsigned int y, unsigned int index, bool diagonal, unsigned int from,
        unsigned int score);

    /**
     * The path from full-resolution (@p x, @p y) back to the seed, as the
     * centres of its reduced pixels in full-resolution coordinates; empty
     * while the pixel is not settled or outside the image.
     */
    QList<QPoint> calculateTrace(unsigned int x, unsigned int y) const;

    /** Draws calculateTrace(@p x, @p y) as connected segments with @p painter as it is set up. */
    void drawTrace(unsigned int x, unsigned int y, QPainter& painter) const;

    /** Whether the reduced pixel under full-resolution (@p x, @p y) is settled. */
    bool isReachable(unsigned int x, unsigned int y) const;

    unsigned int width() const { return m_width; }
    unsigned int height() const { return m_height; }
    unsigned int scale() const { return m_scale; }
    unsigned int seedX() const { return m_seedX; }
    unsigned int seedY() const { return m_seedY; }
    unsigned int radius() const { return m_radius; }

private:
    using PXIntelligentScissorsWorker::startThread;
    PXIMAGECUTTER_NO_EXPORT void forgetResults();
    PXIMAGECUTTER_NO_EXPORT void relaxInsideBlock(unsigned int x, unsigned int y, unsigned int index, unsigned int score,
        const unsigned char* cost);

    PXIntelligentScissorsWeightCalculator* m_weights;
    unsigned int m_width;
    unsigned int m_height;
    unsigned int m_scale;
    unsigned int m_seedX = 0;
    unsigned int m_seedY = 0;
    unsigned int m_radius = 0;
    PXScissors::SparseMatrix<bool, 4096u> m_settled;
    PXPointPriorityQueue m_queue;
    PXScissors::SparseMatrix<unsigned int, 4096u> m_predecessor;
};
