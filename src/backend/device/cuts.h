#pragma once

#include <array>
#include <optional>
#include <span>
#include <vector>

#include "backend/graph/graph.h"

// Inside covering: bits of nodes as inputs of look-up tables.

namespace device {

// Which bit of a node a table reads: for each bit of a word the one `offset` places higher, or one
// and the same.
struct BitPlace {
  int offset = 0;
  bool isFixed = false;
  bool operator==(const BitPlace&) const = default;
};

// What one bit of a node reads of another one, wiring and inversions between them left out.
struct Input {
  graph::NodeId node;
  BitPlace bit;
};

struct Leaf {
  graph::NodeId node;
  BitPlace bit;
  bool operator==(const Leaf&) const = default;
  // The leaf of a node's cut as the reader of that node sees it.
  Leaf seenBy(const graph::Graph& graph, const Input& input) const;
};

// A node that a cut takes in, by which of its own cuts.
struct Taken {
  graph::NodeId node;
  std::uint32_t cut = 0;
};

// One way to compute a node: the bits that it needs and the nodes that vanish in it.
struct Cut {
  static constexpr int kMost = 6;

  std::array<Leaf, kMost> leaves{};
  std::array<Taken, kMost> taken{};
  int count = 0;
  int takenCount = 0;
  bool isTable = false;  // a single table for each bit, which others may take in
  int delay = 0;
  int arrival = 0;    // of the result, in ps, without registers
  double tables = 0;  // of the cluster itself
  double area = 0;    // with its share in those before it

  std::span<const Leaf> all() const {
    return std::span(leaves).first(static_cast<std::size_t>(count));
  }
  std::span<const Taken> allTaken() const {
    return std::span(taken).first(static_cast<std::size_t>(takenCount));
  }
  bool takes(graph::NodeId node) const;
  // False when there is no room left, or the node is taken in otherwise already.
  bool add(const Leaf& leaf);
  bool take(graph::NodeId node, std::size_t cut);
};

constexpr std::size_t kMostCuts = 5;

// Wiring, literals and inversions, which vanish in the tables that read them; not states.
bool isTransparent(const graph::Graph& graph, graph::NodeId node);

// The word that an operand of a bitwise node of `width` bits is, with literals around it; the
// nearest join where it is several. Nothing for a literal.
std::optional<Input> inputOf(const graph::Graph& graph, graph::NodeId operand, int width);

// All that one bit of a logic node reads; nothing when those are more bits than a table has.
std::optional<std::vector<Input>> inputsOfOneBit(const graph::Graph& graph, graph::NodeId node);

// Calls `visit` with each run of neighbouring bits of an operand, as an input and its width;
// literals left out.
template <typename Visit>
void forEachPart(const graph::Graph& graph, graph::NodeId operand, const Visit& visit) {
  const graph::Node& node = graph.node(operand);
  if (node.op == graph::Op::kConcat || node.op == graph::Op::kNot) {
    for (const graph::NodeId part : graph.operands(node)) forEachPart(graph, part, visit);
  } else if (const auto input = inputOf(graph, operand, node.width)) {
    visit(*input, node.width);
  }
}

// Neighbouring bits of a sum whose addends are each a run of bits of one word; nothing for zeros.
struct SumSegment {
  int width = 0;
  std::array<std::optional<Input>, 2> addends{};
};
std::vector<SumSegment> segmentsOf(const graph::Graph& graph, graph::NodeId a, graph::NodeId b);

// The one node that reads each node, seen through wiring and inversions; none where several or
// ports or states do.
std::vector<graph::NodeId> soleReaders(const graph::Graph& graph);

// How many bits read a bit of each node, about.
std::vector<int> fanOuts(const graph::Graph& graph);

}  // namespace device
