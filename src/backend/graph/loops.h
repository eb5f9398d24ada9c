#pragma once

#include <span>
#include <vector>

#include "backend/graph/graph.h"

namespace graph {

// The order in which a graph with states can be placed: sets of nodes, each behind all sets that
// its nodes read or its states take next. A set is one node, or a loop: all nodes that lie on a way
// from a state to its own next value or to that of a state which depends on it in turn. Members of
// a set stand in the order of the graph, so that operands come first, states apart. Nodes that are
// to be placed as one for another reason can be given a root: they are in its set.
//
// Strongly connected components in time linear in nodes and operands (Tarjan, SIAM J. Comput.
// 1972). Every state must have its next value.
class Loops {
 public:
  // `roots`: for each node the one whose set it joins, itself for most, or none at all. A node
  // reaches its root through readers, and nothing else reads what lies between.
  explicit Loops(const Graph& graph, std::span<const NodeId> roots = {});

  std::size_t setCount() const { return firstOf.size() - 1; }
  std::span<const NodeId> members(std::size_t set) const {
    return std::span(order).subspan(firstOf[set], firstOf[set + 1] - firstOf[set]);
  }
  std::size_t setOf(NodeId node) const { return setByNode[node.index]; }
  // True for more than one node, and for a loop of one.
  bool isJoint(std::size_t set) const { return loops[set] || members(set).size() > 1; }
  bool isLoop(std::size_t set) const { return loops[set]; }
  bool isInLoop(NodeId node) const { return loops[setOf(node)]; }
  // False for what runs by itself: nothing that it is made of, now or in an earlier cycle, is read
  // from an input.
  bool dependsOnInputs(NodeId node) const { return dependent[setOf(node)]; }

 private:
  std::vector<NodeId> order;
  std::vector<std::size_t> firstOf;    // of each set in `order`, and the end
  std::vector<std::size_t> setByNode;  // indexed by NodeId::index
  std::vector<bool> loops;             // indexed by set
  std::vector<bool> dependent;
};

}  // namespace graph
