#include "backend/device/read_bits.h"

#include <algorithm>

namespace device {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

std::vector<std::vector<bool>> readBits(const Graph& graph) {
  std::vector<std::vector<bool>> read(graph.size());
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    read[i].resize(static_cast<std::size_t>(graph.node({i}).width));
  const auto readAll = [&](NodeId id) { read[id.index].assign(read[id.index].size(), true); };
  for (const graph::Port& port : graph.outputs()) readAll(port.signal.node);
  for (const graph::State& state : graph.states()) readAll(state.next);

  for (std::uint32_t i = static_cast<std::uint32_t>(graph.size()); i-- > 0;) {
    const std::vector<bool>& own = read[i];
    const Node& node = graph.node({i});
    const auto operands = graph.operands(node);
    const auto top = std::ranges::find(own.rbegin(), own.rend(), true);
    if (top == own.rend()) continue;
    const auto widthOf = [&](std::size_t k) { return read[operands[k].index].size(); };
    // Bits [from, from + count) of the node as those of an operand from `low` up.
    const auto pass = [&](std::size_t k, std::size_t from, std::size_t count, std::size_t low = 0) {
      std::vector<bool>& its = read[operands[k].index];
      for (std::size_t bit = 0; bit < count; ++bit)
        if (own[from + bit]) its[low + bit] = true;
    };
    switch (node.op) {
      case Op::kSlice:
        pass(0, 0, own.size(), static_cast<std::size_t>(node.aux));
        break;
      case Op::kConcat:
        for (std::size_t k = operands.size(), from = 0; k-- > 0; from += widthOf(k))
          pass(k, from, widthOf(k));
        break;
      case Op::kReplicate:
        for (std::size_t from = 0; from < own.size(); from += widthOf(0)) pass(0, from, widthOf(0));
        break;
      case Op::kNot:
      case Op::kAnd:
      case Op::kOr:
      case Op::kXor:
      case Op::kSelect:
      case Op::kPick: {
        const bool chooses = node.op == Op::kSelect || node.op == Op::kPick;
        if (chooses) readAll(operands[0]);
        for (std::size_t k = chooses ? 1 : 0; k < operands.size(); ++k) pass(k, 0, own.size());
        break;
      }
      case Op::kAdd:
      case Op::kHeap: {
        const auto end = static_cast<std::size_t>(own.rend() - top);
        for (std::size_t k = 0; k < operands.size(); ++k) {
          const auto shift = node.op == Op::kHeap ? std::size_t{graph.shifts(node)[k]} : 0;
          const auto count = end > shift ? std::min(end - shift, widthOf(k)) : 0;
          std::fill_n(read[operands[k].index].begin(), count, true);
        }
        break;
      }
      case Op::kInput:
      case Op::kLiteral:
      case Op::kState:
      case Op::kReduceAnd:
      case Op::kReduceOr:
      case Op::kReduceXor:
      case Op::kLut:
      case Op::kTable:
      case Op::kMemory:
      case Op::kEqual:
      case Op::kLess:
      case Op::kLessSigned:
      case Op::kMultiply:
      case Op::kMultiplySigned:
      case Op::kCount:
        for (const NodeId operand : operands) readAll(operand);
        break;
    }
  }
  return read;
}

}  // namespace device
