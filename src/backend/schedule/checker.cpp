#include "backend/schedule/checker.h"

#include <fmt/format.h>

#include <algorithm>

#include "backend/graph/loops.h"
#include "backend/schedule/stage_model.h"
#include "backend/schedule/wiring_placement.h"

namespace schedule {

using device::BitTimes;
using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

constexpr int kTableInputs = 6;

bool sameGroup(const ScheduleOptions& options, std::size_t a, std::size_t b) {
  return options.outputGroups.empty() || options.outputGroups[a] == options.outputGroups[b];
}

std::optional<std::string> brokenOrder(const Graph& graph, const Schedule& schedule,
                                       const ScheduleOptions& options) {
  if (schedule.cycleByNode.size() != graph.size() ||
      schedule.cycleByOutput.size() != graph.outputs().size())
    return "a schedule of another graph";
  const int firstLogic = options.registerInputs ? 1 : 0;
  const int behindLogic = options.registerOutputs ? 1 : 0;
  const graph::Loops loops(graph);
  std::vector<int> lastLogic(graph.size());  // cycle of the last logic seen through wiring
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const NodeId id{i};
    const Node& node = graph.node(id);
    const int cycle = schedule.cycleOf(id);
    if (cycle < 0 || (node.op == Op::kInput && cycle != 0))
      return fmt::format("node {} ({}) stands in cycle {}", i, stepName(graph, id), cycle);
    for (const NodeId operand : graph.operands(node))
      if (!isLiteral(graph.node(operand)) && schedule.cycleOf(operand) > cycle)
        return fmt::format("node {} ({}) reads node {} before its cycle", i, stepName(graph, id),
                           operand.index);
      else if (schedule.cycleOf(operand) + readLag(graph.node(operand)) > cycle)
        return fmt::format("node {} ({}) reads a memory block without a register", i,
                           stepName(graph, id));
    if (node.op == Op::kState) {
      const NodeId next = graph.states()[node.aux].next;
      if (readLag(graph.node(next)) > 0)
        return fmt::format("node {} ({}) takes what a memory block reads", i, stepName(graph, id));
      if (!isLiteral(graph.node(next)) && schedule.cycleOf(next) != cycle)
        return fmt::format("node {} ({}) stands in cycle {}, but takes node {} of cycle {}", i,
                           stepName(graph, id), cycle, next.index, schedule.cycleOf(next));
    }
    if (!isWiring(node) && cycle < firstLogic && loops.dependsOnInputs(id))
      return fmt::format("node {} ({}) stands before the input registers", i, stepName(graph, id));
    lastLogic[i] = isWiring(node) && node.op != Op::kState ? 0 : cycle;
    if (isWiring(node))
      for (const NodeId operand : graph.operands(node))
        lastLogic[i] = std::max(lastLogic[i], lastLogic[operand.index]);
  }
  for (std::size_t port = 0; port < graph.outputs().size(); ++port) {
    const graph::Port& output = graph.outputs()[port];
    const NodeId id = output.signal.node;
    const int cycle = schedule.cycleByOutput[port];
    if (cycle < firstLogic + behindLogic || cycle < lastLogic[id.index] + behindLogic ||
        (!isLiteral(graph.node(id)) && cycle < schedule.cycleOf(id) + readLag(graph.node(id))))
      return fmt::format("output {} shows its result too early", output.name);
    for (std::size_t other = 0; other < port; ++other)
      if (schedule.cycleByOutput[other] != cycle &&
          (options.latency || sameGroup(options, other, port)))
        return fmt::format("outputs {} and {} show their results apart",
                           graph.outputs()[other].name, output.name);
  }
  return std::nullopt;
}

std::optional<std::string> cutCluster(const StageModel& model, const Schedule& schedule) {
  for (std::uint32_t i = 0; i < model.graph.size(); ++i) {
    const NodeId root = model.cover.rootOf({i});
    if (schedule.cycleOf(root) != schedule.cycleByNode[i])
      return fmt::format("node {} ({}) stands in cycle {}, its cluster in {}", i,
                         stepName(model.graph, {i}), schedule.cycleByNode[i],
                         schedule.cycleOf(root));
  }
  return std::nullopt;
}

// The node that computes what `id` passes on.
NodeId behindWiring(const Graph& graph, NodeId id) {
  while (isWiring(graph.node(id)) && !graph.operands(id).empty()) {
    const auto operands = graph.operands(id);
    const auto logic = std::ranges::find_if(
        operands, [&](NodeId operand) { return !isLiteral(graph.node(operand)); });
    if (logic == operands.end()) break;
    id = *logic;
  }
  return id;
}

// The times of one node in its own cycle, seen through wiring.
struct Times {
  BitTimes result{.level = 0};  // when a reader in the same cycle has it
  int atRegister = 0;           // when the register behind it can take it
  int productCycle = -1;        // the cycle of the last product whose bits these are, if any are
  NodeId product{};
};

class Analysis {
 public:
  // `limit`: the period that a clear has to meet, unless another stage is longer.
  Analysis(const StageModel& model, const Schedule& schedule, int limit)
      : graph(model.graph),
        model(model),
        schedule(schedule),
        limit(limit),
        times(graph.size()),
        isVisited(graph.size()) {}

  StageAnalysis run() {
    for (std::uint32_t i = 0; i < graph.size(); ++i) times[i] = timesOf({i});
    findStages();
    findClears();
    if (found.lastNode != NodeId{} && lastCycle == schedule.cycleOf(found.lastNode))
      tracePath(found.lastNode);
    return found;
  }

 private:
  void findStages() {
    const std::vector<int> last = lastReads(graph, schedule);
    for (std::uint32_t i = 0; i < graph.size(); ++i) {
      const NodeId id{i};
      if (isLiteral(graph.node(id))) continue;
      if (last[i] > schedule.cycleOf(id)) endStage(times[i].atRegister, id, schedule.cycleOf(id));
      // Between the two registers of a product's block.
      if (times[i].productCycle >= 0 && last[i] > times[i].productCycle + 1)
        endStage(model.fromRegister(times[i].product, 1), id, times[i].productCycle + 1);
    }
    for (std::size_t port = 0; port < graph.outputs().size(); ++port) {
      const NodeId id = graph.outputs()[port].signal.node;
      const int cycle = schedule.cycleByOutput[port];
      if (!isLiteral(graph.node(id))) endStage(resultIn(id, cycle).last(), id, cycle);
    }
    for (const graph::State& state : graph.states())
      if (!isLiteral(graph.node(state.next)))
        endStage(times[state.next.index].result.last() + model.laterSetup[state.next.index],
                 state.next, schedule.cycleOf(state.next));
  }

  // Choices of constants right before registers.
  void findClears() {
    const int slowest = std::max(limit, found.longestStage.value);
    const std::vector<int> last = lastReads(graph, schedule);
    for (std::uint32_t i = 0; i < graph.size(); ++i)
      if (last[i] > schedule.cycleOf({i})) findClearsAt({i}, slowest);
    for (const graph::State& state : graph.states()) findClearsAt(state.next, slowest);
    std::ranges::sort(found.lateClears);
  }
  void findClearsAt(NodeId id, int slowest) {
    const Node& node = graph.node(id);
    if (isVisited[id.index] || !(isWiring(node) || node.op == Op::kSelect)) return;
    isVisited[id.index] = true;
    const int cycle = schedule.cycleOf(id);
    const auto operands = graph.operands(node);
    const auto visit = [&](NodeId operand) {
      if (schedule.cycleOf(operand) == cycle) findClearsAt(operand, slowest);
    };
    if (node.op != Op::kSelect) {
      std::ranges::for_each(operands, visit);
      return;
    }
    const bool sets = hasConstants(operands[1]), clears = hasConstants(operands[2]);
    if (!sets && !clears) return;
    const Op by = graph.node(behindWiring(graph, operands[0])).op;
    const bool isTable = schedule.cycleOf(operands[0]) == cycle && by != Op::kAdd &&
                         by != Op::kLess && by != Op::kLessSigned && by != Op::kInput &&
                         by != Op::kState;
    const int arrival = resultIn(operands[0], cycle).last();
    const int end =
        arrival + insideDelay(operands[0], id) + model.device.clearDelay(clears && !isTable).value;
    // Tools join tables behind each other to wider ones, three of which are slower by up to a
    // third. A choice that is made of gates for no need costs little.
    const int logic = arrival - model.clockToOutput;
    const bool isDeep = isTable && logic >= 3 * model.device.tableDelay(kTableInputs).value;
    const int risk = isDeep ? logic / 3 : 0;
    if (end + risk > slowest) return found.lateClears.push_back(id);
    endStage(end - model.setup, operands[0], cycle);
    visit(operands[1]);
    visit(operands[2]);
  }
  // True for a word with constant bits.
  bool hasConstants(NodeId id) const {
    const Node& node = graph.node(id);
    return isLiteral(node) ||
           (node.op == Op::kConcat && std::ranges::any_of(graph.operands(node), [&](NodeId part) {
              return hasConstants(part);
            }));
  }
  // Of a condition that the select's cluster takes in, which is a table by itself before a clear.
  int insideDelay(NodeId condition, NodeId select) const {
    const bool isInside = model.cover.isInner(condition) &&
                          model.cover.rootOf(condition) == model.cover.rootOf(select);
    return isInside ? model.cover.delay(model.cover.rootOf(select)) : 0;
  }

  // When `id` can be read in `cycle`.
  BitTimes resultIn(NodeId id, int cycle) const {
    if (isLiteral(graph.node(id))) return {.level = 0};
    const Times& own = times[id.index];
    if (cycle == schedule.cycleOf(id)) return own.result;
    if (own.productCycle < 0) return model.start();
    return later(model.start(),
                 {.level = model.fromRegister(own.product, cycle - own.productCycle)});
  }

  Times timesOf(NodeId id) const {
    const Node& node = graph.node(id);
    if (isLiteral(node)) return {};
    if (node.op == Op::kInput || node.op == Op::kState)
      return {.result = model.start(), .atRegister = model.clockToOutput};
    const int cycle = schedule.cycleOf(id);
    Times own;
    BitTimes start{.level = 0};
    for (const NodeId operand : graph.operands(node)) {
      const Times& behind = times[operand.index];
      const BitTimes result = resultIn(operand, cycle);
      const bool sameCycle = schedule.cycleOf(operand) == cycle;
      start = later(start, model.bits.seen(operand, id, result));
      // A register behind wiring is the register behind what the wiring reads.
      if (isWiring(node))
        own.atRegister = std::max(own.atRegister, sameCycle ? behind.atRegister : result.last());
      if (isWiring(node) && behind.productCycle > own.productCycle)
        own.productCycle = behind.productCycle, own.product = behind.product;
    }
    own.result = model.bits.through(id, start);
    if (!isWiring(node))
      own.atRegister = model.isBlock(id) ? start.last() + model.delayToRegister[id.index]
                                         : own.result.last() + model.laterSetup[id.index];
    if (model.isBlock(id)) own.productCycle = cycle, own.product = id;
    return own;
  }

  // Backwards from the end along the operand that comes last.
  void tracePath(NodeId id) {
    const int cycle = schedule.cycleOf(id);
    for (;;) {
      if (model.delay[id.index] > 0) found.path.push_back({id, {times[id.index].result.last()}});
      NodeId latest;
      const auto timeBehind = [&](NodeId operand) {
        return model.bits.through(id, model.bits.seen(operand, id, resultIn(operand, cycle)))
            .last();
      };
      for (const NodeId operand : graph.operands(id))
        if (!isLiteral(graph.node(operand)) &&
            (latest == NodeId{} || timeBehind(operand) > timeBehind(latest)))
          latest = operand;
      if (latest == NodeId{} || schedule.cycleOf(latest) != cycle) break;
      id = latest;
    }
    std::ranges::reverse(found.path);
  }

  void endStage(int time, NodeId id, int cycle) {
    if (time + model.setup <= found.longestStage.value) return;
    found.longestStage = {time + model.setup};
    found.lastNode = id;
    lastCycle = cycle;
  }

  const Graph& graph;
  const StageModel& model;
  const Schedule& schedule;
  const int limit;
  std::vector<Times> times;
  std::vector<bool> isVisited;  // by findClearsAt
  StageAnalysis found;
  int lastCycle = 0;  // of the longest stage
};

}  // namespace

StageAnalysis analyseStages(const Graph& graph, const device::Device& device,
                            const Schedule& schedule, const ScheduleOptions& options) {
  if (auto fault = brokenOrder(graph, schedule, options))
    return {.longestStage = {}, .lastNode = {}, .fault = std::move(fault)};
  const StageModel model(graph, device, coverPeriod(options));
  if (auto fault = cutCluster(model, schedule))
    return {.longestStage = {}, .lastNode = {}, .fault = std::move(fault)};
  StageAnalysis found = Analysis(model, schedule, options.period.value).run();
  if (options.strategy != Strategy::kCombinational && found.longestStage > options.period)
    found.fault = fmt::format("the stage that ends with {} takes {} ps of {}",
                              stepName(graph, found.lastNode), found.longestStage.value,
                              options.period.value);
  if (found.lastNode != NodeId{}) found.lastNode = behindWiring(graph, found.lastNode);
  return found;
}

}  // namespace schedule
