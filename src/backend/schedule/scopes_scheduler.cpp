#include "backend/schedule/scopes_scheduler.h"

namespace schedule {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

// The outermost scope of each scope, kOpen for the unit itself.
std::vector<int> outermostScopes(const Graph& graph) {
  std::vector<int> outermost;
  for (std::size_t i = 0; i < graph.scopes().size(); ++i) {
    const int parent = graph.scopes()[i].parent;
    outermost.push_back(parent < 0    ? Request::kOpen
                        : parent == 0 ? static_cast<int>(i)
                                      : outermost[static_cast<std::size_t>(parent)]);
  }
  return outermost;
}

}  // namespace

Schedule scopesSchedule(const StageModel& model, const Request& request) {
  const Graph& graph = model.graph;
  const std::vector<int> outermost = outermostScopes(graph);
  const int several = static_cast<int>(graph.scopes().size());
  std::vector<int> blocks;
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const Node& node = graph.nodes()[i];
    int block = Request::kOpen;  // of ports and literals; and a state is a register itself
    if (!isWiring(node)) {
      // A cluster belongs to the scope of its root.
      block = outermost[graph.node(model.cover.rootOf({i})).scope];
    } else {
      for (const NodeId operand : graph.operands(node)) {
        const int behind = blocks[operand.index];
        if (behind != Request::kOpen)
          block = block == Request::kOpen || block == behind ? behind : several;
      }
    }
    blocks.push_back(block);
  }
  Request inBlocks = request;
  inBlocks.blocks = blocks;
  return greedySchedule(model, inBlocks);
}

}  // namespace schedule
