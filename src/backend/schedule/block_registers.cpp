#include "backend/schedule/block_registers.h"

#include <algorithm>
#include <climits>

#include "backend/schedule/wiring_placement.h"

namespace schedule {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

std::vector<NodeId> productByNode(const Graph& graph, const device::Device& device) {
  std::vector<NodeId> products(graph.size());
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const NodeId id{i};
    const Node& node = graph.node(id);
    if (!isWiring(node)) {
      if (device.delayToRegister(graph, id) != device.delayOf(graph, id)) products[i] = id;
      continue;
    }
    bool isFirst = true;
    for (const NodeId operand : graph.operands(node)) {
      if (isLiteral(graph.node(operand))) continue;
      const NodeId other = products[operand.index];
      products[i] = isFirst || other == products[i] ? other : NodeId{};
      isFirst = false;
    }
  }
  return products;
}

void keepProductsWhole(const StageModel& model, Schedule& schedule) {
  const Graph& graph = model.graph;
  const std::vector<NodeId> products = productByNode(graph, model.device);
  const auto isMovable = [&](NodeId id) {
    const NodeId product = products[id.index];
    return product != NodeId{} && product != id && !model.isNext(id) &&
           !model.loops.isJoint(model.loops.setOf(id));
  };
  std::vector<int> firstRead(graph.size(), INT_MAX);  // by node; of products through such wiring
  const auto isMoved = [&](NodeId id) { return isMovable(id) && firstRead[id.index] != INT_MAX; };
  const auto readIn = [&](NodeId id, int cycle) {
    int& first = firstRead[id.index];
    first = std::min(first, cycle);
  };
  for (std::size_t port = 0; port < graph.outputs().size(); ++port)
    readIn(graph.outputs()[port].signal.node, schedule.cycleByOutput[port]);
  for (const graph::State& state : graph.states()) readIn(state.next, schedule.cycleOf(state.node));
  for (std::uint32_t i = static_cast<std::uint32_t>(graph.size()); i-- > 0;)
    for (const NodeId operand : graph.operands(NodeId{i}))
      readIn(operand, isMoved({i}) ? firstRead[i] : schedule.cycleByNode[i]);
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    if (!isMoved({i})) continue;
    const NodeId product = products[i];
    const int end = std::min(firstRead[product.index], schedule.cycleOf(product) + kBlockRegisters);
    schedule.cycleByNode[i] = std::max(schedule.cycleByNode[i], end);
  }
}

long registerBitsOutsideBlocks(const Graph& graph, const device::Device& device,
                               const Schedule& schedule) {
  const std::vector<int> last = lastReads(graph, schedule);
  const std::vector<NodeId> products = productByNode(graph, device);
  long bits = registerBits(graph, schedule);
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    if (products[i] == NodeId{}) continue;
    const int end = std::min(last[i], schedule.cycleOf(products[i]) + kBlockRegisters);
    bits -= static_cast<long>(graph.nodes()[i].width) * std::max(0, end - schedule.cycleByNode[i]);
  }
  return bits;
}

}  // namespace schedule
