#pragma once

#include "PXRegionGrowingEdge.h"
#include "PXSuperPixel.h"
#include "PXSuperPixelEdgeDetectionSlice.h"
#include "pximagecutter_export.h"

#include <QHash>
#include <QImage>
#include <QList>
#include <QObject>
#include <QPainterPath>
#include <QPoint>
#include <QSet>

class PXImage;

/**
 * Merges the superpixels of one lasso into larger clusters.
 *
 * It builds the graph of touching superpixels, weighted by the edge image
 * along their common boundary (createGraph()), merges it with a union-find
 * forest in ascending order of strength under fixed colour limits and a
 * minimum cluster size that grows with the photo (segmentGraph()), numbers the
 * clusters 1..N in raster order (reorderLabels()), and rebuilds one mean
 * colour record, one pixel list and one neighbour set per cluster
 * (buildClusters(), findNeighborhood()).
 *
 * Call setup(), setClusterData(), run(), then read the results. run() works
 * in the calling thread (the graph in parallel slices on the global pool) and
 * emits increaseProgress() after each of its totalProgressSteps() steps. The
 * working image is not owned. Edges of equal strength are merged in
 * ascending order of their label pair, so the result depends on neither the
 * hash seed nor the core count.
 */
class PXIMAGECUTTER_EXPORT PXRegionGrowing : public QObject
{
    Q_OBJECT

public:
    PXRegionGrowing();
    ~PXRegionGrowing() override;

    /**
     * @p image is the photo (not owned), @p lasso bounds the graph,
     * @p edgeImage holds the edge strength in its red byte and @p threshold
     * is the strength below which similar superpixels merge.
     */
    void setup(PXImage* image, const QPainterPath& lasso, const QImage& edgeImage, double threshold);
    /** The superpixel records (indexed by label) and their 32-bit label image. */
    void setClusterData(const QList<PXSuperPixel>& superpixels, const QImage& labels);

    /** createGraph, segmentGraph, reorderLabels, buildClusters, findNeighborhood. */
    void run();
    /** The number of increaseProgress() signals per run(): 5. */
    static int totalProgressSteps();

    /** Replaces the edge list with the graph of the lasso's bounding rectangle. */
    void createGraph();
    /** The edges of one slice, one per ordered label pair it sees. */
    static QList<PXRegionGrowingEdge> createGraphSlice(const PXSuperPixelEdgeDetectionSlice& slice);

    /** Merges the graph into clusters in a fresh union-find forest. */
    void segmentGraph();
    /** Unites the trees with roots @p a and @p b (union by rank). */
    void join(int a, int b);
    /** The root of @p label's tree; points @p label straight at it. */
    int findParent(int label) const;
    /** The number of pixels of the tree with root @p label. */
    int size(int label) const;
    /** Numbers the clusters 1..N in raster order of first appearance; 0 outside. */
    void reorderLabels();
    /** One mean colour record and one pixel list per cluster label. */
    void buildClusters();
    /** For every label (0 included), the labels of the clusters that touch it. */
    void findNeighborhood();

    QImage labels() const { return m_labels; }
    QHash<int, QSet<int>> neighbors() const { return m_neighbors; }
    QList<PXSuperPixel> superPixelInformations() const { return m_superPixels; }
    QList<QList<QPoint>> superPixelPoints() const { return m_superPixelPoints; }
    /** The graph built by the last createGraph(), sorted after segmentGraph(). */
    QList<PXRegionGrowingEdge> edges() const { return m_edges; }
    /** Clusters left; after reorderLabels() one more than the highest label. */
    int numberOfClusters() const { return m_numberOfClusters; }
    double threshold() const { return m_threshold; }

    /** Diagnostic: each tree of the forest in a random opaque colour. */
    QImage drawClusters() const;

Q_SIGNALS:
    void increaseProgress();

private:
    struct ForestNode
    {
        int rank;
        int parent;
        int size;
    };

    /** The lasso's rounded bounding rectangle. */
    PXIMAGECUTTER_NO_EXPORT QRect lassoRect() const;
    PXIMAGECUTTER_NO_EXPORT void releaseForest();

    int m_numberOfClusters = 0;
    double m_threshold = 0.0;
    QHash<int, QSet<int>> m_neighbors;
    QImage m_labels;
    QList<PXRegionGrowingEdge> m_edges;
    QList<PXSuperPixel> m_superPixels;
    QList<QList<QPoint>> m_superPixelPoints;
    ForestNode* m_forest = nullptr;
    int m_forestSize = 0;
    PXImage* m_image = nullptr;
    QPainterPath m_lasso;
    QImage m_edgeImage;
};
