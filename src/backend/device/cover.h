#pragma once

#include <span>
#include <string>
#include <vector>

#include "backend/device/device.h"
#include "backend/graph/graph.h"

namespace device {

// How the logic of a graph is gathered into what a device has: clusters of nodes that one look-up
// table for each bit, or one carry chain with the tables before it, computes.
//
// A cluster is its root and the inner nodes that no one else reads, wiring between them included;
// it has at most as many input bits, for each bit of its root, as a table has. Registers stand at
// the roots only, so delay and cost belong to roots; wiring and inner nodes have none, but for
// logic before one addend of a sum: the other addend does not wait for its table. Every node that
// is not inner is a root, most of them alone.
//
// Cuts are found as for look-up tables (Cong and Ding, IEEE Trans. CAD 1994; priority cuts:
// Mishchenko et al., ICCAD 2007): earliest arrival without registers first, then fewest tables,
// where one bit stands for all bits of a word. Nothing is computed twice: what two clusters read is
// a root. What chooses between a state and its next value is that register's enable and takes
// nothing. Linear in nodes and operands.
class Cover {
 public:
  // No cluster is made that alone takes longer than `period`. Loops are not crossed: a cluster is
  // inside one or outside all.
  Cover(const graph::Graph& graph, const Device& device, Picoseconds period);
  // What logic comes to between the registers that a schedule leaves, where tools map it again:
  // with the fewest tables as it stands, or as many as tools are expected to make. `cycles`: that
  // of each node. Selects of constants right before registers are those registers' clears, but for
  // `lateClears`, in order.
  enum class Logic { kAsItStands, kAsToolsMapIt };
  static Cost costBetweenRegisters(const graph::Graph& graph, const Device& device,
                                   std::span<const int> cycles,
                                   std::span<const graph::NodeId> lateClears = {},
                                   Logic logic = Logic::kAsItStands);

  graph::NodeId rootOf(graph::NodeId node) const { return roots[node.index]; }
  bool isInner(graph::NodeId node) const { return roots[node.index] != node; }
  const std::vector<graph::NodeId>& rootByNode() const { return roots; }
  // In ps, from the last input to the result, or to a register right behind, with the allowance for
  // the route to the readers.
  int delay(graph::NodeId node) const { return delays[node.index]; }
  int delayToRegister(graph::NodeId node) const { return delaysToRegister[node.index]; }

  // Of all clusters.
  const Cost& cost() const { return total; }

 private:
  std::vector<graph::NodeId> roots;  // indexed by NodeId::index, as are all
  std::vector<int> delays, delaysToRegister;
  Cost total;
};

}  // namespace device
