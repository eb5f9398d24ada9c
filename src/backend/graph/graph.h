#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "util/mpz.h"

namespace graph {

// Operations on bit vectors. Bits have no sign, operations have. W is the width of the result.
enum class Op : std::uint8_t {
  kInput,           // aux: index of the input port
  kLiteral,         // aux: index into Graph::literals()
  kState,           // aux: index into Graph::states(); what its `next` was one cycle ago
  kSlice,           // x -> W bits of x from bit aux up
  kConcat,          // (top, ..., bottom)
  kReplicate,       // x -> x, W / width(x) times
  kNot,             // x
  kAnd,             // a, b of W bits
  kOr,              // a, b
  kXor,             // a, b
  kSelect,          // condition (1 bit), if one, if zero
  kPick,            // index, choice 0, choice 1, ...; an index past the end picks the last choice
  kReduceAnd,       // x -> 1 bit
  kReduceOr,        // x -> 1 bit
  kReduceXor,       // x -> 1 bit
  kLut,             // x of at most 6 bits -> bits [x * W, (x + 1) * W) of literal aux
  kTable,           // x of more bits -> row x of Graph::rows(), aux: its index; computed by logic
  kMemory,          // the same out of a memory block, which a register follows right behind
  kAdd,             // two or three addends of W bits, then a carry in of 1 bit; modulo 2^W
  kEqual,           // a, b -> 1 bit
  kLess,            // a < b, unsigned -> 1 bit
  kLessSigned,      // a < b, signed -> 1 bit
  kMultiply,        // a, b unsigned -> the full product, W = width(a) + width(b)
  kMultiplySigned,  // a, b signed -> the full product, W = width(a) + width(b)
  kHeap,            // the sum of operand i * 2^shift(i), modulo 2^W; kept whole until mapping
  kCount
};

struct OpTraits {
  Op op;
  std::string_view name;
  bool wiring;  // costs nothing: neither delay nor area
};
inline constexpr OpTraits kOpTraits[] = {
    {Op::kInput, "input", true},
    {Op::kLiteral, "literal", true},
    {Op::kState, "state", true},
    {Op::kSlice, "slice", true},
    {Op::kConcat, "concat", true},
    {Op::kReplicate, "replicate", true},
    {Op::kNot, "not", false},
    {Op::kAnd, "and", false},
    {Op::kOr, "or", false},
    {Op::kXor, "xor", false},
    {Op::kSelect, "select", false},
    {Op::kPick, "pick", false},
    {Op::kReduceAnd, "reduce-and", false},
    {Op::kReduceOr, "reduce-or", false},
    {Op::kReduceXor, "reduce-xor", false},
    {Op::kLut, "lut", false},
    {Op::kTable, "table", false},
    {Op::kMemory, "memory", false},
    {Op::kAdd, "add", false},
    {Op::kEqual, "equal", false},
    {Op::kLess, "less", false},
    {Op::kLessSigned, "less-signed", false},
    {Op::kMultiply, "multiply", false},
    {Op::kMultiplySigned, "multiply-signed", false},
    {Op::kHeap, "heap", false},
};
constexpr bool rowsFollowEnum() {
  for (int i = 0; i < static_cast<int>(Op::kCount); ++i)
    if (kOpTraits[i].op != static_cast<Op>(i)) return false;
  return std::size(kOpTraits) == static_cast<std::size_t>(Op::kCount);
}
static_assert(rowsFollowEnum(), "one row per Op, in the order of the enum");
inline const OpTraits& traitsOf(Op op) { return kOpTraits[static_cast<int>(op)]; }

struct NodeId {
  std::uint32_t index = UINT32_MAX;
  auto operator<=>(const NodeId&) const = default;
};

// The bits that a node computes. A default one is no signal at all.
struct Signal {
  NodeId node;
  int width = 0;
  explicit operator bool() const { return node.index != UINT32_MAX; }
  bool operator==(const Signal&) const = default;
};

// A building block that made nodes: what comments, reports and drawings are sorted by. Scope 0 is
// the unit itself.
struct Scope {
  std::string name;
  int parent = -1;
};

struct Node {
  Op op;
  int width;
  std::uint32_t firstOperand;
  std::uint32_t operandCount;
  std::uint32_t aux;
  std::uint32_t scope;
};

struct Port {
  std::string name;
  Signal signal;
  bool isControl = false;  // input ports: travels beside the data (valid, channel)
};

// A register that closes a loop: `node` shows `initial` at first and after a reset, and from then
// on what `next` was in the cycle before. The only way to make a loop: the node itself has no
// operands.
struct State {
  NodeId node;
  NodeId next;
  util::MPZ initial;
};

// Bit-vector operations between input and output ports.
//
// Nodes stand in topological order: every operand has a smaller index than its reader. Only Builder
// makes nodes; a pass makes a new graph. Knows nothing of number formats, cycles, devices or HDL.
class Graph {
 public:
  std::size_t size() const { return nodeRows.size(); }
  const Node& node(NodeId id) const { return nodeRows[id.index]; }
  const std::vector<Node>& nodes() const { return nodeRows; }
  std::span<const NodeId> operands(const Node& node) const {
    return {operandRows.data() + node.firstOperand, node.operandCount};
  }
  std::span<const NodeId> operands(NodeId id) const { return operands(node(id)); }
  // The shifts of a kHeap node, one for each operand.
  std::span<const std::uint32_t> shifts(const Node& heap) const {
    return {shiftRows.data() + heap.aux, heap.operandCount};
  }
  const util::MPZ& literal(const Node& node) const { return literalRows[node.aux]; }
  // The contents of a kTable or kMemory node, a row for each value of its operand.
  std::span<const util::MPZ> rows(const Node& table) const { return tables[table.aux]; }
  Signal signal(NodeId id) const { return {id, node(id).width}; }

  const std::vector<Port>& inputs() const { return inputPorts; }
  const std::vector<Port>& outputs() const { return outputPorts; }
  const std::vector<State>& states() const { return stateRows; }
  const std::vector<Scope>& scopes() const { return scopeRows; }
  // The name that a construction gave a node, or an empty text.
  std::string_view nameOf(NodeId id) const {
    const auto found = names.find(id.index);
    return found == names.end() ? std::string_view{} : std::string_view{found->second};
  }

 private:
  friend class Builder;
  std::vector<Node> nodeRows;
  std::vector<NodeId> operandRows;
  std::vector<std::uint32_t> shiftRows;
  std::vector<util::MPZ> literalRows;
  std::vector<std::vector<util::MPZ>> tables;
  std::vector<Port> inputPorts;
  std::vector<Port> outputPorts;
  std::vector<State> stateRows;
  std::vector<Scope> scopeRows{{"unit", -1}};
  std::unordered_map<std::uint32_t, std::string> names;
};

}  // namespace graph
