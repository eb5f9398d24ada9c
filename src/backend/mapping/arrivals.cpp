#include "backend/mapping/arrivals.h"

#include <algorithm>

namespace mapping {

using device::BitTimes;
using graph::Graph;
using graph::NodeId;
using graph::Op;

Arrivals::Arrivals(const Graph& graph, const device::Device& device, device::Picoseconds period)
    : graph(graph),
      device(device),
      cover(graph, device, period),
      latest((period - device.setup()).value),
      bits(graph, device, cover),
      places(graph.size()),
      inside(graph.size(), BitTimes{.level = 0}) {
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    blocks.push_back({i});
    place({i});
  }
}

BitTimes Arrivals::timesIn(NodeId node, int cycle) const {
  if (graph.node(node).op == Op::kLiteral) return {.level = 0};
  const Place& own = places[node.index];
  if (cycle == own.cycle) return own.times;
  const NodeId block = blocks[node.index];
  int behindRegister = device.clockToOutput().value;
  if (isBlock(block))
    behindRegister =
        std::max(behindRegister,
                 device.clockToOutput(graph, block, cycle - places[block.index].cycle).value);
  // Registers stand before a cluster, not inside.
  return inside[node.index].delayed(behindRegister);
}

BitTimes Arrivals::timesOfOperands(NodeId node, int cycle) const {
  BitTimes times{.level = 0};
  for (const NodeId operand : graph.operands(node))
    times = later(times, bits.seen(operand, node, timesIn(operand, cycle)));
  return times;
}

void Arrivals::place(NodeId id) {
  const graph::Node& node = graph.node(id);
  Place& own = places[id.index];
  if (node.op == Op::kLiteral) return;
  if (node.op == Op::kInput || node.op == Op::kState) {
    own.times.level = device.clockToOutput().value;
    return;
  }
  for (const NodeId operand : graph.operands(id))
    own.cycle = std::max(own.cycle, places[operand.index].cycle);
  if (traitsOf(node.op).wiring || node.op == Op::kNot || cover.isInner(id)) {
    BitTimes before{.level = 0};
    for (const NodeId operand : graph.operands(id))
      before = later(before, bits.seen(operand, id, inside[operand.index]));
    inside[id.index] = bits.through(id, before);
    own.times = bits.through(id, timesOfOperands(id, own.cycle));
    own.times.level = std::min(kNever, own.times.level);
    const auto cycleOf = [&](NodeId block) {
      return isBlock(block) ? places[block.index].cycle : -1;
    };
    for (const NodeId operand : graph.operands(id))
      if (const NodeId block = blocks[operand.index]; cycleOf(block) > cycleOf(blocks[id.index]))
        blocks[id.index] = block;
    return;
  }
  for (int tries = 0; tries < 4; ++tries, ++own.cycle) {
    const BitTimes start = timesOfOperands(id, own.cycle);
    const BitTimes times = bits.through(id, start);
    if ((isBlock(id) ? start.last() + cover.delayToRegister(id) : times.last()) > latest) continue;
    own.times = times.last() <= latest ? times : BitTimes{.level = kNever};
    return;
  }
  own.times = {
      .level = kNever};  // longer than a stage; the pieces that it is cut into are not known here
}

}  // namespace mapping
