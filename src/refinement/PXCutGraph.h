#pragma once

#include <QList>

#include <memory>

/**
 * A two-terminal graph and its minimum cut, by Boost.Graph's
 * boykov_kolmogorov_max_flow: the object is the source side, the background
 * the sink side.
 *
 * Call order: addNodes(), then any number of addTerminalWeights() and
 * addEdge(), then solve() once, then isObject(). Weights are costs: a node's
 * source weight is paid when it ends on the background side, its sink weight
 * when it ends on the object side, an edge's weight when its ends are
 * separated. Adding in the same order gives the same cut.
 *
 * A plain class; use from one thread at a time.
 */
class PXCutGraph
{
public:
    /** A weight no finite sum of data terms reaches: a hard constraint. */
    static constexpr double hardWeight = 1e12;

    PXCutGraph();
    ~PXCutGraph();
    PXCutGraph(const PXCutGraph&) = delete;
    PXCutGraph& operator=(const PXCutGraph&) = delete;

    /** Makes nodes 0 .. @p count - 1. */
    void addNodes(int count);
    /** Adds to the costs of @p node's two sides; nodes out of range are ignored. */
    void addTerminalWeights(int node, double objectCost, double backgroundCost);
    /** Links two nodes with a symmetric cost; self links are ignored. */
    void addEdge(int first, int second, double weight);
    /** Computes the minimum cut; returns its cost. */
    double solve();
    /** Whether @p node lies on the object side after solve(). */
    bool isObject(int node) const;

private:
    struct Graph;
    std::unique_ptr<Graph> m_graph;
    QList<double> m_objectCost;
    QList<double> m_backgroundCost;
    QList<bool> m_object;
};
