#include "backend/software/execution.h"

#include <algorithm>

namespace software {

using graph::Graph;
using graph::limbsOf;
using graph::Node;
using graph::NodeId;
using graph::Op;
using util::MPZ;

Execution::Execution(const Graph& graph, const schedule::Schedule& schedule)
    : graph(graph), schedule(schedule), narrow(graph), depth(1) {
  std::size_t total = 0;
  for (const Node& node : graph.nodes()) {
    offsets.push_back(total);
    total += limbsOf(node.width);
  }
  const auto remember = [&](NodeId value, int reader) {
    if (graph.node(value).op != Op::kLiteral)
      depth = std::max(depth, reader - schedule.cycleOf(value) + 1);
  };
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    for (const NodeId operand : graph.operands(NodeId{i}))
      remember(operand, schedule.cycleByNode[i]);
  for (std::size_t port = 0; port < graph.outputs().size(); ++port)
    remember(graph.outputs()[port].signal.node, schedule.cycleByOutput[port]);
  // The next values of states lie in a frame of their own: one state may be what another takes.
  if (!graph.states().empty()) depth = std::max(depth, 2);
  frames.assign(static_cast<std::size_t>(depth), std::vector<mp_limb_t>(total));
  reset();
}

void Execution::reset() {
  now = 0;
  for (std::vector<mp_limb_t>& frame : frames) {
    std::ranges::fill(frame, mp_limb_t{0});
    for (std::uint32_t i = 0; i < graph.size(); ++i) {
      const Node& node = graph.nodes()[i];
      if (node.op == Op::kLiteral)
        graph::toLimbs(graph.literal(node), node.width, &frame[offsets[i]]);
    }
  }
  for (const graph::State& state : graph.states())
    graph::toLimbs(state.initial, graph.node(state.node).width,
                   &frames[0][offsets[state.node.index]]);
}

// A value computed in cycle c and read in cycle d left its node d - c steps ago. Every node
// computes in every step, from what its registers hold then: older frames, and the states of this
// one, which the step before has written. A step that is held leaves both to the next step.
std::vector<MPZ> Execution::step(const std::vector<MPZ>& inputs, bool enable) {
  const auto frameAt = [&](int age) -> std::vector<mp_limb_t>& {
    return frames[static_cast<std::size_t>((now + depth - age) % depth)];
  };
  const auto seenFrom = [&](NodeId value, int reader) -> const mp_limb_t* {
    const bool isLiteral = graph.node(value).op == Op::kLiteral;
    return &frameAt(isLiteral ? 0 : reader - schedule.cycleOf(value))[offsets[value.index]];
  };
  std::vector<mp_limb_t>& frame = frameAt(0);
  for (std::size_t port = 0; port < graph.inputs().size(); ++port) {
    const graph::Signal signal = graph.inputs()[port].signal;
    graph::toLimbs(inputs[port], signal.width, &frame[offsets[signal.node.index]]);
  }
  std::vector<const mp_limb_t*> operands;
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const Node& node = graph.nodes()[i];
    if (node.op == Op::kLiteral || node.op == Op::kInput || node.op == Op::kState) continue;
    operands.clear();
    for (const NodeId operand : graph.operands(node))
      operands.push_back(seenFrom(operand, schedule.cycleByNode[i]));
    if (narrow.covers(i))
      frame[offsets[i]] = narrow.evaluate(i, operands.data());
    else
      evaluateNode(graph, node, operands, &frame[offsets[i]]);
  }
  std::vector<MPZ> outputs;
  for (std::size_t port = 0; port < graph.outputs().size(); ++port) {
    const graph::Signal signal = graph.outputs()[port].signal;
    outputs.push_back(
        graph::fromLimbs(seenFrom(signal.node, schedule.cycleByOutput[port]), signal.width));
  }
  if (!enable) return outputs;
  ++now;
  for (const graph::State& state : graph.states())
    std::copy_n(&frameAt(1)[offsets[state.next.index]], limbsOf(graph.node(state.node).width),
                &frameAt(0)[offsets[state.node.index]]);
  return outputs;
}

}  // namespace software
