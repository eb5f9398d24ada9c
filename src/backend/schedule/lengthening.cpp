#include "backend/schedule/lengthening.h"

#include "backend/schedule/wiring_placement.h"

namespace schedule {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

// Bits that cross from cycle k - 1 to cycle k, for each k from 1 to the last cycle that is read.
std::vector<long> crossingBits(const Graph& graph, const Schedule& schedule) {
  std::vector<long> steps(static_cast<std::size_t>(schedule.latency()) + 2);
  const std::vector<int> last = lastReads(graph, schedule);
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    if (isLiteral(graph.nodes()[i]) || last[i] > schedule.latency()) continue;
    steps[static_cast<std::size_t>(schedule.cycleByNode[i]) + 1] += graph.nodes()[i].width;
    steps[static_cast<std::size_t>(last[i]) + 1] -= graph.nodes()[i].width;
  }
  long crossing = 0;
  for (long& step : steps) step = crossing += step;
  return steps;
}

// What stays in cycle 0 wherever the rest goes: inputs, states that only delay them, and what runs
// by itself, so that it starts with the first inputs.
std::vector<bool> startNodes(const StageModel& model, const Schedule& schedule) {
  const Graph& graph = model.graph;
  std::vector<bool> starts(graph.size());
  for (std::size_t set = 0; set < model.loops.setCount(); ++set) {
    for (const NodeId id : model.loops.members(set)) {
      const Node& node = graph.node(id);
      const bool delaysStart = node.op == Op::kState && !model.loops.isLoop(set) &&
                               starts[graph.states()[node.aux].next.index];
      const bool runsAlone = !model.loops.dependsOnInputs(id) && schedule.cycleOf(id) == 0;
      starts[id.index] = node.op == Op::kInput || isLiteral(node) || delaysStart || runsAlone;
    }
  }
  return starts;
}

}  // namespace

void lengthen(const StageModel& model, Schedule& schedule, int cycles, const Request& request) {
  const Graph& graph = model.graph;
  const int latency = schedule.latency();
  // The logic from cycle `cut` on moves; latency + 1 stands for the outputs alone.
  int cut = latency + 1;
  long fewest = 0, startBits = 0;
  for (const graph::Port& port : graph.outputs())
    if (!isLiteral(graph.node(port.signal.node))) fewest += port.signal.width;
  const std::vector<bool> starts = startNodes(model, schedule);
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    if (starts[i] && (graph.nodes()[i].op == Op::kInput || graph.nodes()[i].op == Op::kState))
      startBits += graph.nodes()[i].width;
  const std::vector<long> crossing = crossingBits(graph, schedule);
  for (int k = latency; k >= 1; --k)
    if (crossing[static_cast<std::size_t>(k)] < fewest)
      cut = k, fewest = crossing[static_cast<std::size_t>(k)];
  if (!request.registerInputs && startBits < fewest) cut = 0;

  for (std::uint32_t i = 0; i < graph.size(); ++i)
    if (!starts[i] && schedule.cycleByNode[i] >= cut) schedule.cycleByNode[i] += cycles;
  for (int& cycle : schedule.cycleByOutput) cycle += cycles;
}

}  // namespace schedule
