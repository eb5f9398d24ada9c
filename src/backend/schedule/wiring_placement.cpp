#include "backend/schedule/wiring_placement.h"

#include <algorithm>
#include <climits>

#include "backend/schedule/stage_model.h"

namespace schedule {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

bool isJoin(Op op) { return op == Op::kConcat || op == Op::kReplicate; }

// True for what is read through wiring or inversions from a product or memory, whose own registers
// are slow to leave.
std::vector<bool> behindProducts(const Graph& graph) {
  std::vector<bool> behind(graph.size());
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const Node& node = graph.nodes()[i];
    behind[i] = node.op == Op::kMultiply || node.op == Op::kMultiplySigned || readLag(node) > 0;
    if (isWiring(node) || node.op == Op::kNot)
      for (const NodeId operand : graph.operands(node))
        behind[i] = behind[i] || behind[operand.index];
  }
  return behind;
}

// Inversions stand with their first reader. They cost nothing there, and a register behind one is
// zero after reset, as if the bits before it were ones: a loop that holds while a bit is zero would
// not hold before its first inputs. `moved` tells the place of one node after another, readers
// first.
class LateInversions {
 public:
  LateInversions(const Graph& graph, const Schedule& schedule)
      : graph(graph), slow(behindProducts(graph)), latest(graph.size(), INT_MAX) {
    // An output may have to leave its last cycle to a register.
    for (std::size_t port = 0; port < graph.outputs().size(); ++port)
      limit(graph.outputs()[port].signal.node, schedule.cycleByOutput[port] - 1);
  }

  int moved(std::uint32_t i, int cycle, int firstRead) {
    const Node& node = graph.nodes()[i];
    if (isWiring(node))
      for (const NodeId operand : graph.operands(node)) limit(operand, latest[i]);
    const int target = std::min(firstRead, latest[i]);
    return node.op == Op::kNot && !slow[i] && target != INT_MAX ? std::max(cycle, target) : cycle;
  }

 private:
  void limit(NodeId id, int cycle) { latest[id.index] = std::min(latest[id.index], cycle); }

  const Graph& graph;
  const std::vector<bool> slow;
  std::vector<int> latest;  // where logic may stand at the latest
};

}  // namespace

std::vector<int> lastReads(const Graph& graph, const Schedule& schedule) {
  std::vector<int> last = schedule.cycleByNode;
  const auto readIn = [&](NodeId id, int cycle) {
    last[id.index] = std::max(last[id.index], cycle);
  };
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    for (const NodeId operand : graph.operands(NodeId{i})) readIn(operand, schedule.cycleByNode[i]);
  for (std::size_t port = 0; port < graph.outputs().size(); ++port)
    readIn(graph.outputs()[port].signal.node, schedule.cycleByOutput[port]);
  return last;
}

void placeWiring(const Graph& graph, Schedule& schedule) {
  std::vector<int>& cycles = schedule.cycleByNode;
  // Readers stand behind what they read, so one walk backwards sees each reader's final cycle.
  std::vector<int> firstRead(graph.size(), INT_MAX);
  const auto readIn = [&](NodeId id, int cycle) {
    firstRead[id.index] = std::min(firstRead[id.index], cycle);
  };
  for (std::size_t port = 0; port < graph.outputs().size(); ++port)
    readIn(graph.outputs()[port].signal.node, schedule.cycleByOutput[port]);
  // What a state takes next stays in the state's cycle; so does the wiring of a loop, which some
  // member reads there.
  std::vector<bool> isNext(graph.size());
  for (const graph::State& state : graph.states()) {
    readIn(state.next, schedule.cycleOf(state.node));
    isNext[state.next.index] = true;
  }
  LateInversions inversions(graph, schedule);
  for (std::uint32_t i = static_cast<std::uint32_t>(graph.size()); i-- > 0;) {
    cycles[i] = inversions.moved(i, cycles[i], firstRead[i]);
    if (isJoin(graph.nodes()[i].op) && firstRead[i] != INT_MAX) cycles[i] = firstRead[i];
    for (const NodeId operand : graph.operands(NodeId{i})) readIn(operand, cycles[i]);
  }

  // How long each source is kept whole, slices apart.
  std::vector<int> kept = cycles;
  const auto keepTo = [&](NodeId id, int cycle) {
    kept[id.index] = std::max(kept[id.index], cycle);
  };
  std::fill(firstRead.begin(), firstRead.end(), INT_MAX);
  for (std::size_t port = 0; port < graph.outputs().size(); ++port) {
    keepTo(graph.outputs()[port].signal.node, schedule.cycleByOutput[port]);
    readIn(graph.outputs()[port].signal.node, schedule.cycleByOutput[port]);
  }
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    for (const NodeId operand : graph.operands(NodeId{i})) {
      if (graph.nodes()[i].op != Op::kSlice || isNext[i]) keepTo(operand, cycles[i]);
      readIn(operand, cycles[i]);
    }
  }
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    if (graph.nodes()[i].op != Op::kSlice || isNext[i] || firstRead[i] == INT_MAX) continue;
    const std::uint32_t source = graph.operands(NodeId{i})[0].index;
    cycles[i] = std::max(cycles[source] + readLag(graph.nodes()[source]),
                         std::min(kept[source], firstRead[i]));
  }
}

}  // namespace schedule
