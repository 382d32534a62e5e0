#include "PXCutGraph.h"

// Boost's edge iterators trip GCC's flow analysis once inlined here.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include <boost/graph/adjacency_list.hpp>
#include <boost/graph/boykov_kolmogorov_max_flow.hpp>

#include <vector>

namespace {

using Traits = boost::adjacency_list_traits<boost::vecS, boost::vecS, boost::directedS>;
using BoostGraph = boost::adjacency_list<boost::vecS, boost::vecS, boost::directedS,
    boost::property<boost::vertex_color_t, boost::default_color_type,
        boost::property<boost::vertex_distance_t, long,
            boost::property<boost::vertex_predecessor_t, Traits::edge_descriptor>>>,
    boost::property<boost::edge_capacity_t, double,
        boost::property<boost::edge_residual_capacity_t, double,
            boost::property<boost::edge_reverse_t, Traits::edge_descriptor>>>>;

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
    BoostGraph graph(count + 2);
    auto capacity = boost::get(boost::edge_capacity, graph);
    auto reverse = boost::get(boost::edge_reverse, graph);
    const auto link = [&](int from, int to, double forward, double backward) {
        const auto there = boost::add_edge(from, to, graph).first;
        const auto back = boost::add_edge(to, from, graph).first;
        capacity[there] = forward;
        capacity[back] = backward;
        reverse[there] = back;
        reverse[back] = there;
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

    const double flow = boost::boykov_kolmogorov_max_flow(graph, source, sink);
    auto colour = boost::get(boost::vertex_color, graph);
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
