#include "backend/schedule/block_registers.h"

#include <algorithm>

#include "backend/schedule/schedule.h"
#include "backend/schedule/stage_model.h"
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
