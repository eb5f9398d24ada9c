#include "backend/graph/loops.h"

#include <algorithm>

#include "util/failure.h"

namespace graph {

namespace {

// What must be placed before a node: its operands, or what a state takes next.
std::span<const NodeId> needsOf(const Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  if (node.op == Op::kState) return {&graph.states()[node.aux].next, 1};
  return graph.operands(node);
}

constexpr std::size_t kNone = SIZE_MAX;

}  // namespace

Loops::Loops(const Graph& graph, std::span<const NodeId> roots) : setByNode(graph.size(), kNone) {
  for (const State& state : graph.states())
    LOAM_ASSERT(state.next != NodeId{}, "a state that takes a next value");
  struct Visit {
    NodeId node;
    std::size_t needsSeen = 0;
  };
  std::vector<std::size_t> number(graph.size(), kNone), lowest(graph.size());
  std::vector<NodeId> open;  // numbered, in no set yet
  std::vector<Visit> path;
  std::size_t numbered = 0;
  const auto enter = [&](NodeId id) {
    number[id.index] = lowest[id.index] = numbered++;
    open.push_back(id);
    path.push_back({id});
  };
  const auto closeSet = [&](NodeId root) {
    const std::size_t set = loops.size(), first = order.size();
    firstOf.push_back(first);
    NodeId member;
    do {
      member = open.back();
      open.pop_back();
      setByNode[member.index] = set;
      order.push_back(member);
    } while (member != root);
    std::sort(order.begin() + static_cast<std::ptrdiff_t>(first), order.end());
    const auto needs = needsOf(graph, root);
    const bool hasState =
        std::any_of(order.begin() + static_cast<std::ptrdiff_t>(first), order.end(),
                    [&](NodeId id) { return graph.node(id).op == Op::kState; });
    // Without a state nothing reaches itself: what is joined has a root in common.
    loops.push_back(hasState && (order.size() - first > 1 || (!needs.empty() && needs[0] == root)));
  };
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    if (number[i] == kNone) enter({i});
    while (!path.empty()) {
      Visit& visit = path.back();
      const NodeId id = visit.node;
      const auto needs = needsOf(graph, id);
      const bool isInner = !roots.empty() && roots[id.index] != id;
      if (visit.needsSeen < needs.size() + (isInner ? 1 : 0)) {
        const std::size_t next = visit.needsSeen++;
        const NodeId need = next < needs.size() ? needs[next] : roots[id.index];
        if (number[need.index] == kNone)
          enter(need);
        else if (setByNode[need.index] == kNone)
          lowest[id.index] = std::min(lowest[id.index], number[need.index]);
        continue;
      }
      if (lowest[id.index] == number[id.index]) closeSet(id);
      path.pop_back();
      if (path.empty()) continue;
      std::size_t& reader = lowest[path.back().node.index];
      reader = std::min(reader, lowest[id.index]);
    }
  }
  firstOf.push_back(order.size());

  dependent.resize(setCount());
  for (std::size_t set = 0; set < setCount(); ++set)
    for (const NodeId id : members(set))
      dependent[set] = dependent[set] || graph.node(id).op == Op::kInput ||
                       std::ranges::any_of(needsOf(graph, id), [&](NodeId need) {
                         return dependent[setByNode[need.index]];
                       });
}

}  // namespace graph
