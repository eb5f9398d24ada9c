#include "backend/mapping/rebuild.h"

#include <string>
#include <vector>

#include "util/failure.h"

namespace mapping {

using graph::Builder;
using graph::Graph;
using graph::HeapTerm;
using graph::Node;
using graph::NodeId;
using graph::Op;
using graph::Signal;

namespace {

std::vector<bool> liveNodes(const Graph& graph) {
  std::vector<bool> live(graph.size());
  std::vector<NodeId> reached;
  const auto reach = [&](NodeId id) {
    if (live[id.index]) return;
    live[id.index] = true;
    reached.push_back(id);
  };
  for (const graph::Port& port : graph.outputs()) reach(port.signal.node);
  while (!reached.empty()) {
    const NodeId id = reached.back();
    reached.pop_back();
    for (const NodeId operand : graph.operands(id)) reach(operand);
    if (const Node& node = graph.node(id); node.op == Op::kState)
      reach(graph.states()[node.aux].next);
  }
  return live;
}

}  // namespace

Signal copyOf(Builder& b, const Graph& graph, NodeId id, std::span<const Signal> x) {
  const Node& node = graph.node(id);
  switch (node.op) {
    case Op::kLiteral:
      return b.literal(graph.literal(node), node.width);
    case Op::kState:
      return b.state(node.width, graph.states()[node.aux].initial);
    case Op::kSlice:
      return b.slice(x[0], static_cast<int>(node.aux), node.width);
    case Op::kConcat:
      return b.concat(x);
    case Op::kReplicate:
      return b.replicate(x[0], node.width / x[0].width);
    case Op::kNot:
      return b.bitNot(x[0]);
    case Op::kAnd:
      return b.bitAnd(x[0], x[1]);
    case Op::kOr:
      return b.bitOr(x[0], x[1]);
    case Op::kXor:
      return b.bitXor(x[0], x[1]);
    case Op::kSelect:
      return b.select(x[0], x[1], x[2]);
    case Op::kPick:
      return b.pick(x[0], x.subspan(1));
    case Op::kReduceAnd:
      return b.reduceAnd(x[0]);
    case Op::kReduceOr:
      return b.reduceOr(x[0]);
    case Op::kReduceXor:
      return b.reduceXor(x[0]);
    case Op::kLut:
      return b.lut(x[0], graph.literal(node), node.width);
    case Op::kTable:
      return b.table(x[0], graph.rows(node), node.width);
    case Op::kMemory:
      return b.memory(x[0], graph.rows(node), node.width);
    case Op::kAdd:
      return x.size() == 3 ? b.addCarry(x[0], x[1], x[2]) : b.addThree(x[0], x[1], x[2], x[3]);
    case Op::kEqual:
      return b.equal(x[0], x[1]);
    case Op::kLess:
      return b.less(x[0], x[1]);
    case Op::kLessSigned:
      return b.lessSigned(x[0], x[1]);
    case Op::kMultiply:
      return b.multiply(x[0], x[1]);
    case Op::kMultiplySigned:
      return b.multiplySigned(x[0], x[1]);
    case Op::kHeap: {
      std::vector<HeapTerm> terms;
      const auto shifts = graph.shifts(node);
      for (std::size_t i = 0; i < x.size(); ++i)
        terms.push_back({x[i], static_cast<int>(shifts[i])});
      return b.heap(terms, node.width);
    }
    case Op::kInput:  // made with its port
    case Op::kCount:
      break;
  }
  LOAM_ASSERT(false, "a node that is not a port");
}

Graph rebuilt(const Graph& graph, const Rewrite& rewrite, std::span<const NodeId> order) {
  Graph result;
  Builder b(result);
  b.copyScopes(graph);
  std::vector<Signal> made(graph.size());
  for (const graph::Port& port : graph.inputs())
    made[port.signal.node.index] = b.input(port.name, port.signal.width, port.isControl);

  const std::vector<bool> live = liveNodes(graph);
  std::vector<Signal> operands;
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const NodeId id = order.empty() ? NodeId{i} : order[i];
    if (!live[id.index]) continue;
    Signal& own = made[id.index];
    if (!own) {
      operands.clear();
      for (const NodeId operand : graph.operands(id)) operands.push_back(made[operand.index]);
      b.enterScope(graph.node(id).scope);
      own = rewrite(b, graph, id, operands);
      if (!own) own = copyOf(b, graph, id, operands);
    }
    if (const auto name = graph.nameOf(id); !name.empty()) b.name(own, std::string(name));
  }
  for (const graph::State& state : graph.states())
    if (live[state.node.index]) b.setNext(made[state.node.index], made[state.next.index]);
  for (const graph::Port& port : graph.outputs()) b.output(port.name, made[port.signal.node.index]);
  return result;
}

}  // namespace mapping
