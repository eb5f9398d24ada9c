#include "backend/schedule/greedy_scheduler.h"

#include <algorithm>

#include "util/failure.h"

namespace schedule {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

class Greedy {
 public:
  Greedy(const StageModel& model, const Request& request)
      : model(model), graph(model.graph), request(request), places(graph.size()) {}

  Schedule run() {
    for (std::uint32_t i = 0; i < graph.size(); ++i) places[i] = placeOf({i});
    Schedule schedule;
    for (const Place& place : places) schedule.cycleByNode.push_back(place.cycle);
    schedule.cycleByOutput.assign(graph.outputs().size(), latency());
    return schedule;
  }

 private:
  struct Place {
    int cycle = 0;
    int arrival = 0;      // in that cycle; kNever when only a register can take it
    int blockCycle = -1;  // of the last product that is seen here through wiring alone
    NodeId block{};
  };

  // When a reader in `cycle` >= the node's own has the node's bits.
  int arrivalIn(NodeId id, int cycle) const {
    if (isLiteral(graph.node(id))) return 0;
    const Place& place = places[id.index];
    if (cycle == place.cycle) return place.arrival;
    if (place.blockCycle < 0) return model.clockToOutput;
    return std::max(model.clockToOutput, model.fromRegister(place.block, cycle - place.blockCycle));
  }

  int arrivalOfOperands(NodeId id, int cycle) const {
    int arrival = 0;
    for (const NodeId operand : graph.operands(id))
      arrival = std::max(arrival, arrivalIn(operand, cycle));
    return arrival;
  }

  int earliestCycle(NodeId id) const {
    int cycle = 0;
    for (const NodeId operand : graph.operands(id))
      cycle = std::max(cycle, places[operand.index].cycle);
    return cycle;
  }

  Place placeOf(NodeId id) const {
    const Node& node = graph.node(id);
    if (isLiteral(node)) return {};
    if (node.op == Op::kInput)
      return {.cycle = 0,
              .arrival = request.registerInputs ? StageModel::kNever : model.clockToOutput};
    return isWiring(node) ? placeOfWiring(id) : placeOfLogic(id);
  }

  Place placeOfWiring(NodeId id) const {
    Place place{.cycle = earliestCycle(id)};
    place.arrival = arrivalOfOperands(id, place.cycle);
    for (const NodeId operand : graph.operands(id)) {
      const Place& behind = places[operand.index];
      if (behind.blockCycle > place.blockCycle)
        place.blockCycle = behind.blockCycle, place.block = behind.block;
    }
    return place;
  }

  // The first cycle in which the operands come early enough: their own, or behind one register, or
  // the third where they are products that leave their block late.
  Place placeOfLogic(NodeId id) const {
    const int latest = request.period - model.setup;
    Place place{.cycle = earliestCycle(id)};
    for (int tries = 0; tries < 4; ++tries, ++place.cycle) {
      const int start = arrivalOfOperands(id, place.cycle);
      if (start + model.delayToRegister[id.index] > latest) continue;
      const int end = start + model.delay[id.index];
      place.arrival = end <= latest ? end : StageModel::kNever;
      if (model.isBlock(id)) place.blockCycle = place.cycle, place.block = id;
      return place;
    }
    LOAM_ASSERT(false, "a period in which every node fits alone");
  }

  int latency() const {
    int latency = request.registerInputs ? 1 : 0;
    for (const graph::Port& port : graph.outputs()) {
      const Place& place = places[port.signal.node.index];
      const bool waits = place.arrival == StageModel::kNever && !request.registerOutputs;
      latency = std::max(latency, place.cycle + (waits ? 1 : 0));
    }
    return latency + (request.registerOutputs ? 1 : 0);
  }

  const StageModel& model;
  const Graph& graph;
  const Request& request;
  std::vector<Place> places;
};

}  // namespace

Schedule greedySchedule(const StageModel& model, const Request& request) {
  return Greedy(model, request).run();
}

Schedule combinationalSchedule(const StageModel& model, const Request& request) {
  const Graph& graph = model.graph;
  const int logic = request.registerInputs ? 1 : 0;
  Schedule schedule;
  for (const Node& node : graph.nodes()) {
    const bool isSource = node.op == Op::kInput || isLiteral(node);
    schedule.cycleByNode.push_back(isSource ? 0 : logic);
  }
  schedule.cycleByOutput.assign(graph.outputs().size(), logic + (request.registerOutputs ? 1 : 0));
  return schedule;
}

}  // namespace schedule
