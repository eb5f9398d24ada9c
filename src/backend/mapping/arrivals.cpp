#include "backend/mapping/arrivals.h"

#include <algorithm>

namespace mapping {

using graph::Graph;
using graph::NodeId;
using graph::Op;

Arrivals::Arrivals(const Graph& graph, const device::Device& device, device::Picoseconds period)
    : graph(graph),
      device(device),
      cover(graph, device, period),
      latest((period - device.setup()).value),
      places(graph.size()),
      inside(graph.size()) {
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    blocks.push_back({i});
    place({i});
  }
}

int Arrivals::timeIn(NodeId node, int cycle) const {
  if (graph.node(node).op == Op::kLiteral) return 0;
  const Arrival& own = places[node.index];
  if (cycle == own.cycle) return own.time;
  const NodeId block = blocks[node.index];
  int behindRegister = device.clockToOutput().value;
  if (isBlock(block))
    behindRegister =
        std::max(behindRegister,
                 device.clockToOutput(graph, block, cycle - places[block.index].cycle).value);
  // Registers stand before a cluster, not inside.
  return behindRegister + inside[node.index];
}

int Arrivals::timeOfOperands(NodeId node, int cycle) const {
  int time = 0;
  for (const NodeId operand : graph.operands(node)) time = std::max(time, timeIn(operand, cycle));
  return time;
}

void Arrivals::place(NodeId id) {
  const graph::Node& node = graph.node(id);
  Arrival& own = places[id.index];
  if (node.op == Op::kLiteral) return;
  if (node.op == Op::kInput || node.op == Op::kState) {
    own.time = device.clockToOutput().value;
    return;
  }
  for (const NodeId operand : graph.operands(id))
    own.cycle = std::max(own.cycle, places[operand.index].cycle);
  if (traitsOf(node.op).wiring || node.op == Op::kNot || cover.isInner(id)) {
    for (const NodeId operand : graph.operands(id))
      inside[id.index] = std::max(inside[id.index], inside[operand.index] + cover.delay(id));
    own.time = std::min(kNever, timeOfOperands(id, own.cycle) + cover.delay(id));
    const auto cycleOf = [&](NodeId block) {
      return isBlock(block) ? places[block.index].cycle : -1;
    };
    for (const NodeId operand : graph.operands(id))
      if (const NodeId block = blocks[operand.index]; cycleOf(block) > cycleOf(blocks[id.index]))
        blocks[id.index] = block;
    return;
  }
  for (int tries = 0; tries < 4; ++tries, ++own.cycle) {
    const int start = timeOfOperands(id, own.cycle);
    if (start + cover.delayToRegister(id) > latest) continue;
    own.time = start + cover.delay(id) <= latest ? start + cover.delay(id) : kNever;
    return;
  }
  own.time = kNever;  // longer than a stage; the pieces that it is cut into are not known here
}

}  // namespace mapping
