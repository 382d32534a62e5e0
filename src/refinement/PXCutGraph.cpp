#include "PXCutGraph.h"

#include <boost/graph/boykov_kolmogorov_max_flow.hpp>
#include <boost/graph/compressed_sparse_row_graph.hpp>
#include <boost/property_map/property_map.hpp>

#include <cstdint>
#include <vector>

namespace {

// Built in one go from edges sorted by source: a vector per vertex grown edge
// by edge cost more than the flow itself. 32-bit indices halve the arrays the
// flow walks; a cut never has 2^32 arcs (its nodes are an image's pixels).
using BoostGraph = boost::compressed_sparse_row_graph<boost::directedS, boost::no_property, boost::no_property,
    boost::no_property, std::uint32_t, std::uint32_t>;
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

// Kept in one piece: the flow's property maps live in this one scope, from
// filling the arcs to reading the cut.
double PXCutGraph::solve()
{
    const int count = int(m_objectCost.size());
    const int source = count;
    const int sink = count + 1;
    const std::size_t vertices = std::size_t(count) + 2;
    // Only the difference of a node's two costs matters for the cut.
    double constant = 0.0;
    std::vector<double> difference(count);
    for (int node = 0; node < count; ++node) {
        difference[node] = m_objectCost.at(node) - m_backgroundCost.at(node);
        constant += std::min(m_objectCost.at(node), m_backgroundCost.at(node));
    }

    // Arcs are stored by source, each vertex's in the order they are linked,
    // so the flow sees the same graph as one grown arc by arc. The first pass
    // counts them, the second places them.
    std::vector<std::size_t> start(vertices + 1, 0);
    std::vector<std::pair<Vertex, Vertex>> sorted;
    std::vector<double> capacity;
    std::vector<BoostEdge> reverse;
    bool placing = false;
    const auto link = [&](int from, int to, double forward, double backward) {
        if (!placing) {
            ++start[std::size_t(from) + 1];
            ++start[std::size_t(to) + 1];
            return;
        }
        const std::size_t there = start[from]++;
        const std::size_t back = start[to]++;
        sorted[there] = {Vertex(from), Vertex(to)};
        sorted[back] = {Vertex(to), Vertex(from)};
        capacity[there] = forward;
        capacity[back] = backward;
        reverse[there] = BoostEdge(Vertex(to), std::uint32_t(back));
        reverse[back] = BoostEdge(Vertex(from), std::uint32_t(there));
    };
    const auto linkAll = [&]() {
        for (int node = 0; node < count; ++node) {
            if (difference[node] > 0.0)
                link(node, sink, difference[node], 0.0);
            else if (difference[node] < 0.0)
                link(source, node, -difference[node], 0.0);
        }
        for (const Edge& edge : m_graph->edges)
            link(edge.first, edge.second, edge.weight, edge.weight);
    };
    linkAll();
    for (std::size_t vertex = 0; vertex < vertices; ++vertex)
        start[vertex + 1] += start[vertex];
    const std::size_t arcCount = start[vertices];
    sorted.resize(arcCount);
    capacity.resize(arcCount);
    reverse.resize(arcCount);
    placing = true;
    linkAll();
    m_graph->edges.clear();
    m_graph->edges.shrink_to_fit();

    const BoostGraph graph(boost::edges_are_sorted, sorted.begin(), sorted.end(), vertices);
    sorted.clear();
    sorted.shrink_to_fit();
    const auto edgeIndex = boost::get(boost::edge_index, graph);
    const auto vertexIndex = boost::get(boost::vertex_index, graph);
    std::vector<double> residual(arcCount, 0.0);
    std::vector<BoostEdge> predecessor(vertices);
    std::vector<boost::default_color_type> colour(vertices);
    std::vector<long> distance(vertices, 0);
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
