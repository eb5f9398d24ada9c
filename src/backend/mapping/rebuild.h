#pragma once

#include <functional>
#include <span>

#include "backend/graph/builder.h"
#include "backend/graph/graph.h"

namespace mapping {

// What a pass makes of one node whose operands are already rebuilt; no signal to keep the node.
using Rewrite = std::function<graph::Signal(graph::Builder&, const graph::Graph&, graph::NodeId,
                                            std::span<const graph::Signal> operands)>;

// The graph made anew, each live node by `rewrite` or else as it was. Nodes that no output reads
// vanish; all ports stay, in their order, and so do scopes and names. Nodes are made in the order
// in which they stand, or in another one that is given, which has all of them, operands first.
graph::Graph rebuilt(const graph::Graph& graph, const Rewrite& rewrite,
                     std::span<const graph::NodeId> order = {});

// A node that is no port, of new operands.
graph::Signal copyOf(graph::Builder& b, const graph::Graph& graph, graph::NodeId id,
                     std::span<const graph::Signal> operands);

}  // namespace mapping
