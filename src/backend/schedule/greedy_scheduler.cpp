#include "backend/schedule/greedy_scheduler.h"

#include <algorithm>
#include <map>

#include "util/failure.h"

namespace schedule {

using device::BitTimes;
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
    const graph::Loops& loops = model.loops;
    for (std::size_t set = 0; set < loops.setCount(); ++set) {
      const auto members = loops.members(set);
      if (loops.isJoint(set))
        placeJoint(members);
      else
        places[members[0].index] = placeOf(members[0]);
    }
    Schedule schedule;
    for (const Place& place : places) schedule.cycleByNode.push_back(place.cycle);
    schedule.cycleByOutput = outputCycles();
    return schedule;
  }

 private:
  struct Place {
    int cycle = 0;
    BitTimes arrival{.level = 0};  // in that cycle; kNever when only a register can take it
    int blockCycle = -1;           // of the last product that is seen here through wiring alone
    NodeId block{};
  };

  // When a reader in `cycle` >= the node's own has the node's bits.
  BitTimes arrivalIn(NodeId id, int cycle) const {
    if (isLiteral(graph.node(id))) return {.level = 0};
    const Place& place = places[id.index];
    if (cycle == place.cycle) return place.arrival;
    if (place.blockCycle < 0) return model.start();
    return later(model.start(),
                 {.level = model.fromRegister(place.block, cycle - place.blockCycle)});
  }

  BitTimes arrivalOfOperands(NodeId id, int cycle) const {
    BitTimes arrival{.level = 0};
    for (const NodeId operand : graph.operands(id)) {
      const bool waits = cycle == places[operand.index].cycle && leavesBlock(operand, id);
      arrival =
          later(arrival, waits ? kNever : model.bits.seen(operand, id, arrivalIn(operand, cycle)));
    }
    return arrival;
  }
  BitTimes arrivalAt(NodeId id, int cycle) const {
    return model.bits.through(id, arrivalOfOperands(id, cycle));
  }

  static constexpr BitTimes kNever{.level = StageModel::kNever};
  static bool waits(const Place& place) { return place.arrival.last() >= StageModel::kNever; }

  bool leavesBlock(NodeId id) const {
    return !request.blocks.empty() && request.blocks[id.index] != Request::kOpen;
  }
  bool leavesBlock(NodeId id, NodeId reader) const {
    return leavesBlock(id) && !isWiring(graph.node(reader)) &&
           request.blocks[id.index] != request.blocks[reader.index] &&
           model.loops.setOf(id) != model.loops.setOf(reader);
  }

  int earliestCycle(NodeId id) const {
    int cycle = 0;
    for (const NodeId operand : graph.operands(id))
      cycle = std::max(cycle, places[operand.index].cycle + model.lag(operand));
    return cycle;
  }

  Place placeOf(NodeId id) const {
    const Node& node = graph.node(id);
    if (isLiteral(node)) return {};
    if (node.op == Op::kState) return placeOfDelay(graph.states()[node.aux].next);
    if (node.op == Op::kInput)
      return {.cycle = 0, .arrival = request.registerInputs ? kNever : model.start()};
    return isWiring(node) ? placeOfWiring(id) : placeOfLogic(id);
  }

  // A state in no loop is a register behind what it takes next. Behind an input that only a
  // register may take it does not replace that register.
  Place placeOfDelay(NodeId next) const {
    const Place& before = places[next.index];
    return {.cycle = before.cycle, .arrival = waits(before) ? kNever : model.start()};
  }

  Place placeOfWiring(NodeId id) const {
    Place place{.cycle = earliestCycle(id)};
    place.arrival = arrivalAt(id, place.cycle);
    const int latest = request.period - model.setup - model.laterSetup[id.index];
    while (model.isNext(id) && place.arrival.last() > latest)
      place.arrival = arrivalAt(id, ++place.cycle);
    seeThrough(id, place);
    return place;
  }

  // Wiring passes on the products that it reads.
  void seeThrough(NodeId wiring, Place& place) const {
    for (const NodeId operand : graph.operands(wiring)) {
      const Place& behind = places[operand.index];
      if (behind.blockCycle > place.blockCycle)
        place.blockCycle = behind.blockCycle, place.block = behind.block;
    }
  }

  // The first cycle in which the operands come early enough: their own, or behind one register, or
  // the third where they are products that leave their block late.
  Place placeOfLogic(NodeId id) const {
    const int latest = request.period - model.setup;
    Place place{.cycle = earliestCycle(id)};
    for (int tries = 0; tries < 4; ++tries, ++place.cycle) {
      const BitTimes start = arrivalOfOperands(id, place.cycle);
      if (model.end(id, start) > latest) continue;
      const BitTimes arrival = model.bits.through(id, start);
      place.arrival = arrival.last() <= latest ? arrival : kNever;
      if (model.isBlock(id)) place.blockCycle = place.cycle, place.block = id;
      return place;
    }
    LOAM_ASSERT(false, "a period in which every node fits alone");
  }

  // The first cycle in which all members of a loop or cluster see what they read from outside early
  // enough to get through in one stage.
  void placeJoint(std::span<const NodeId> members) {
    int cycle = 0;
    for (const NodeId id : members)
      for (const NodeId operand : graph.operands(id))
        if (model.loops.setOf(operand) != model.loops.setOf(id))
          cycle = std::max(cycle, places[operand.index].cycle + model.lag(operand));
    for (int tries = 0; tries < 4; ++tries, ++cycle)
      if (placeJointIn(members, cycle)) return;
    LOAM_ASSERT(false, "a period in which every loop and every cluster fits alone");
  }

  bool placeJointIn(std::span<const NodeId> members, int cycle) {
    for (const NodeId id : members) {
      Place place{.cycle = cycle, .arrival = model.start()};
      if (graph.node(id).op != Op::kState) {
        place.arrival = arrivalAt(id, cycle);
        // Of what a cluster computes inside, nothing but the bits that its root reads counts.
        if (!model.cover.isInner(id) &&
            place.arrival.last() + model.laterSetup[id.index] > request.period - model.setup)
          return false;
        if (model.isBlock(id)) place.blockCycle = cycle, place.block = id;
        if (isWiring(graph.node(id))) seeThrough(id, place);
      }
      places[id.index] = place;
    }
    return true;
  }

  std::vector<int> outputCycles() const {
    std::vector<int> cycles;
    for (const graph::Port& port : graph.outputs()) {
      const Place& place = places[port.signal.node.index];
      const bool isLater =
          (waits(place) || leavesBlock(port.signal.node) || model.lag(port.signal.node) > 0) &&
          !request.registerOutputs;
      const int shown = std::max(request.registerInputs ? 1 : 0, place.cycle + (isLater ? 1 : 0));
      cycles.push_back(shown + (request.registerOutputs ? 1 : 0));
    }
    std::map<int, int> lastOfGroup;
    const auto groupOf = [&](std::size_t port) {
      return request.outputGroups.empty() ? 0 : request.outputGroups[port];
    };
    for (std::size_t port = 0; port < cycles.size(); ++port) {
      int& last = lastOfGroup[groupOf(port)];
      last = std::max(last, cycles[port]);
    }
    for (std::size_t port = 0; port < cycles.size(); ++port)
      cycles[port] = lastOfGroup[groupOf(port)];
    return cycles;
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
  schedule.cycleByNode.resize(graph.size());
  for (std::size_t set = 0; set < model.loops.setCount(); ++set) {
    for (const NodeId id : model.loops.members(set)) {
      const Node& node = graph.node(id);
      int& cycle = schedule.cycleByNode[id.index];
      if (node.op == Op::kState && !model.loops.isLoop(set))
        cycle = schedule.cycleOf(graph.states()[node.aux].next);
      else if (node.op != Op::kInput && model.loops.dependsOnInputs(id))
        cycle = logic;
    }
  }
  schedule.cycleByOutput.assign(graph.outputs().size(), logic + (request.registerOutputs ? 1 : 0));
  return schedule;
}

}  // namespace schedule
