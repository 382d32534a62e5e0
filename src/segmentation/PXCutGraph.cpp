#include "PXCutGraph.h"

#include <boost/graph/boykov_kolmogorov_max_flow.hpp>
#include <boost/graph/compressed_sparse_row_graph.hpp>
#include <boost/property_map/property_map.hpp>

#include <vector>

namespace {

// Built in one go from edges sorted by source: a vector per vertex grown edge
// by edge cost more than the flow itself.
using BoostGraph = boost::compressed_sparse_row_graph<boost::directedS>;
using Vertex = boost::graph_traits<BoostGraph>::vertex_descriptor;
using BoostEdge = boost::graph_traits<BoostGraph>::edge_descriptor;

struct Edge {
    int first;
    int second;
    double weight;
};

} // namespace

struct PXCutGraph::Graph {
    std::vector<Edge> edges;
};

PXCutGraph::PXCutGraph()
    : m_graph(std::make_unique<Graph>())
{
}

PXCutGraph::~PXCutGraph() = default;

void PXCutGraph::addNodes(int count)
{
    if (count <= 0)
        return;
    m_objectCost.resize(m_objectCost.size() + count, 0.0);
    m_backgroundCost.resize(m_backgroundCost.size() + count, 0.0);
}

void PXCutGraph::addTerminalWeights(int node, double objectCost, double backgroundCost)
{
    if (node < 0 || node >= m_objectCost.size())
        return;
    m_objectCost[node] += objectCost;
    m_backgroundCost[node] += backgroundCost;
}

void PXCutGraph::addEdge(int first, int second, double weight)
{
    const int count = int(m_objectCost.size());
    if (first == second || first < 0 || second < 0 || first >= count || second >= count || weight <= 0.0)
        return;
    m_graph->edges.push_back({first, second, weight});
}

double PXCutGraph::solve()
{
    const int count = int(m_objectCost.size());
    const int source = count;
    const int sink = count + 1;
    struct Arc {
        int from;
        int to;
        double capacity;
    };
    std::vector<Arc> arcs;
    arcs.reserve(2 * (qsizetype(count) + m_graph->edges.size()));
    const auto link = [&](int from, int to, double forward, double backward) {
        arcs.push_back({from, to, forward});
        arcs.push_back({to, from, backward});
    };
    // Only the difference of a node's two costs matters for the cut.
    double constant = 0.0;
    for (int node = 0; node < count; ++node) {
        const double difference = m_objectCost.at(node) - m_backgroundCost.at(node);
        constant += std::min(m_objectCost.at(node), m_backgroundCost.at(node));
        if (difference > 0.0)
            link(node, sink, difference, 0.0);
        else if (difference < 0.0)
            link(source, node, -difference, 0.0);
    }
    for (const Edge& edge : m_graph->edges)
        link(edge.first, edge.second, edge.weight, edge.weight);
    m_graph->edges.clear();
    m_graph->edges.shrink_to_fit();

    // A stable counting sort by source keeps each vertex's arcs in the order
    // they were added, and tells where every arc and its reverse end up.
    const qsizetype arcCount = qsizetype(arcs.size());
    std::vector<qsizetype> start(qsizetype(count) + 3, 0);
    for (const Arc& arc : arcs)
        ++start[arc.from + 1];
    for (int vertex = 0; vertex < count + 2; ++vertex)
        start[vertex + 1] += start[vertex];
    std::vector<qsizetype> position(arcCount);
    std::vector<std::pair<Vertex, Vertex>> sorted(arcCount);
    std::vector<double> capacity(arcCount);
    for (qsizetype i = 0; i < arcCount; ++i) {
        const qsizetype at = start[arcs[i].from]++;
        position[i] = at;
        sorted[at] = {Vertex(arcs[i].from), Vertex(arcs[i].to)};
        capacity[at] = arcs[i].capacity;
    }
    std::vector<BoostEdge> reverse(arcCount);
    for (qsizetype i = 0; i < arcCount; ++i) {
        const qsizetype other = i ^ 1;
        reverse[position[i]] = BoostEdge(Vertex(arcs[other].from), std::size_t(position[other]));
    }
    arcs.clear();
    arcs.shrink_to_fit();
    position.clear();
    position.shrink_to_fit();

    const BoostGraph graph(boost::edges_are_sorted, sorted.begin(), sorted.end(), std::size_t(count) + 2);
    sorted.clear();
    sorted.shrink_to_fit();
    const auto edgeIndex = boost::get(boost::edge_index, graph);
    const auto vertexIndex = boost::get(boost::vertex_index, graph);
    std::vector<double> residual(arcCount, 0.0);
    std::vector<BoostEdge> predecessor(qsizetype(count) + 2);
    std::vector<boost::default_color_type> colour(qsizetype(count) + 2);
    std::vector<long> distance(qsizetype(count) + 2, 0);
    const double flow = boost::boykov_kolmogorov_max_flow(graph,
        boost::make_iterator_property_map(capacity.begin(), edgeIndex),
        boost::make_iterator_property_map(residual.begin(), edgeIndex),
        boost::make_iterator_property_map(reverse.begin(), edgeIndex),
        boost::make_iterator_property_map(predecessor.begin(), vertexIndex),
        boost::make_iterator_property_map(colour.begin(), vertexIndex),
        boost::make_iterator_property_map(distance.begin(), vertexIndex), vertexIndex, Vertex(source),
        Vertex(sink));
    m_object = QList<bool>(count, false);
    // Black: still reachable from the source in the residual graph.
    for (int node = 0; node < count; ++node)
        m_object[node] = colour[node] == boost::black_color;
    return flow + constant;
}

bool PXCutGraph::isObject(int node) const
{
    return node >= 0 && node < m_object.size() && m_object.at(node);
}
