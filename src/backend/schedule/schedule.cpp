#include "backend/schedule/schedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include "backend/schedule/block_registers.h"
#include "backend/schedule/checker.h"
#include "backend/schedule/fewest_registers_scheduler.h"
#include "backend/schedule/greedy_scheduler.h"
#include "backend/schedule/lengthening.h"
#include "backend/schedule/scopes_scheduler.h"
#include "backend/schedule/stage_model.h"
#include "backend/schedule/timed_scheduler.h"
#include "backend/schedule/wiring_placement.h"

namespace schedule {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

// `run` finds the cycles of the outputs. With `refine` the cycles of all else follow for those, or
// for later ones that are asked for; without it `run` gives them, but for wiring.
struct StrategyRow {
  Strategy strategy;
  Schedule (*run)(const StageModel&, const Request&);
  Schedule (*refine)(const StageModel&, const Request&, const Schedule& earliest) = nullptr;
};
constexpr StrategyRow kStrategies[] = {
    {Strategy::kCombinational, combinationalSchedule},
    {Strategy::kGreedy, greedySchedule},
    {Strategy::kTimed, greedySchedule, timedSchedule},
    {Strategy::kScopes, scopesSchedule},
    {Strategy::kFewestRegisters, greedySchedule, fewestRegisters},
};

constexpr bool rowsFollowStrategies() {
  for (std::size_t i = 0; i < std::size(kStrategies); ++i)
    if (static_cast<std::size_t>(kStrategies[i].strategy) != i) return false;
  return true;
}
static_assert(rowsFollowStrategies(), "one row per Strategy, in the order of the enum");

double megahertz(int picoseconds) { return 1e6 / picoseconds; }

// The highest clock with a period of at least `picoseconds`, as a text that does not round it up.
std::string highestClock(int picoseconds) {
  return fmt::format("{:.1f}", std::floor(megahertz(picoseconds) * 10) / 10);
}

// What no register can cut: one node, or the longest way through a loop.
struct IndivisibleStep {
  int stage = 0;
  std::vector<NodeId> nodes{};
  bool isLoop = false;
  bool isEnd = false;  // the node is what ends it
};

IndivisibleStep slowestStep(const StageModel& model) {
  const Graph& graph = model.graph;
  IndivisibleStep slowest{.stage = model.clockToOutput + model.setup};
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    if (isWiring(graph.nodes()[i])) continue;
    if (const int stage = model.aloneStage({i}); stage > slowest.stage) slowest = {stage, {{i}}};
  }
  std::vector<device::BitTimes> arrival(graph.size());  // in a loop that has a stage for itself
  std::vector<NodeId> lastOperand(graph.size());        // the loop's own that comes last
  NodeId end;
  for (std::size_t set = 0; set < model.loops.setCount(); ++set) {
    if (!model.loops.isLoop(set)) continue;
    for (const NodeId id : model.loops.members(set)) {
      device::BitTimes& own = arrival[id.index] = model.start();
      if (graph.node(id).op != Op::kState) own = model.bits.through(id, own);
      for (const NodeId operand : graph.operands(id)) {
        if (model.loops.setOf(operand) != set) continue;
        const device::BitTimes behind =
            model.bits.through(id, model.bits.seen(operand, id, arrival[operand.index]));
        if (lastOperand[id.index] == NodeId{} || behind.last() > own.last())
          lastOperand[id.index] = operand;
        own = later(own, behind);
      }
      const int stage = own.last() + model.laterSetup[id.index] + model.setup;
      if (stage <= slowest.stage) continue;
      slowest = {.stage = stage, .nodes = {}, .isLoop = true};
      end = id;
    }
  }
  if (slowest.isLoop)
    for (NodeId id = end; id != NodeId{}; id = lastOperand[id.index])
      if (model.delay[id.index] > 0) slowest.nodes.insert(slowest.nodes.begin(), id);
  return slowest;
}

std::string nameOf(const Graph& graph, const IndivisibleStep& step) {
  if (step.nodes.empty()) return "a register";
  constexpr std::size_t kNamed = 3;
  std::string names;
  for (std::size_t i = 0; i < std::min(step.nodes.size(), kNamed); ++i)
    names += (i == 0 ? "" : ", ") + stepName(graph, step.nodes[i]);
  if (step.nodes.size() > kNamed) names += fmt::format(" and {} more", step.nodes.size() - kNamed);
  return (step.isLoop ? "the loop of " : step.isEnd ? "the step that ends with " : "") + names;
}

double askedClock(const ScheduleOptions& options) {
  return options.megahertz > 0 ? options.megahertz : megahertz(options.period.value);
}

std::string tooFast(const Graph& graph, const IndivisibleStep& limit,
                    const ScheduleOptions& options) {
  return fmt::format(
      "Warning: {:.1f} MHz asked, but {} takes {} ps between registers; built for {} MHz, the "
      "highest clock",
      askedClock(options), nameOf(graph, limit), limit.stage, highestClock(limit.stage));
}

// `limit` is the step that has lowered the clock, if one has.
util::Failure tooShort(const Graph& graph, const std::optional<IndivisibleStep>& limit,
                       const ScheduleOptions& options, int shortest) {
  const std::string clock =
      limit ? fmt::format("{} MHz, the highest clock as {} takes {} ps between registers",
                          highestClock(limit->stage), nameOf(graph, *limit), limit->stage)
            : fmt::format("{:.1f} MHz", askedClock(options));
  return {
      fmt::format("Latency {} asked, but {} is the shortest at {}; ask for more cycles or a "
                  "lower frequency",
                  *options.latency, shortest, clock)};
}

// What follows from the cycles of `result` and the period that it is built for.
StageAnalysis measure(const Graph& graph, const device::Device& device,
                      const ScheduleOptions& options, Scheduled& result) {
  ScheduleOptions met = options;
  met.period = result.period;
  StageAnalysis stages = analyseStages(graph, device, result.schedule, met);
  if (stages.fault) return stages;
  result.longestStage = stages.longestStage;
  result.schedule.lateClears = stages.lateClears;
  result.cost = device::Cover::costBetweenRegisters(graph, device, result.schedule.cycleByNode,
                                                    result.schedule.lateClears);
  if (stages.lastNode != NodeId{}) result.longestStep = stepName(graph, stages.lastNode);
  for (const auto& [node, arrival] : stages.path)
    result.longestPath.push_back({stepName(graph, node), arrival});
  return stages;
}

}  // namespace

int Schedule::latency() const {
  return cycleByOutput.empty() ? 0 : *std::ranges::max_element(cycleByOutput);
}

device::Picoseconds coverPeriod(const ScheduleOptions& options) {
  const bool cuts = options.strategy != Strategy::kCombinational;
  return cuts ? options.period : device::Picoseconds{StageModel::kNever};
}

util::Result<Scheduled> scheduleGraph(const Graph& graph, const device::Device& device,
                                      const ScheduleOptions& options) {
  const bool cuts = options.strategy != Strategy::kCombinational;
  LOAM_ASSERT(!options.statesOnly || !cuts, "no register where states are the only ones");
  Scheduled result;
  result.period = options.period;
  std::optional<StageModel> made(std::in_place, graph, device, coverPeriod(options));
  IndivisibleStep slowest = slowestStep(*made);
  std::optional<IndivisibleStep> limit;
  // A longer period may make larger clusters, which may make a loop longer.
  while (cuts && slowest.stage > result.period.value) {
    limit = slowest;
    result.period = {slowest.stage};
    made.emplace(graph, device, result.period);
    slowest = slowestStep(*made);
  }
  if (limit) result.warning = tooFast(graph, *limit, options);
  const StageModel& model = *made;
  Request request{result.period.value, options.registerInputs, options.registerOutputs,
                  options.outputGroups};
  request.shortestPeriod = slowest.stage;
  const StrategyRow& strategy = kStrategies[static_cast<int>(options.strategy)];
  result.schedule = strategy.run(model, request);

  const int shortest = result.schedule.latency(), wanted = options.latency.value_or(shortest);
  if (wanted < shortest) return tooShort(graph, limit, options, shortest);
  if (options.latency)
    std::ranges::fill(result.schedule.cycleByOutput, strategy.refine ? wanted : shortest);
  if (strategy.refine) {
    result.schedule = strategy.refine(model, request, result.schedule);
  } else {
    placeWiring(graph, result.schedule);
    if (wanted > shortest) {
      lengthen(model, result.schedule, wanted - shortest, request);
      placeWiring(graph, result.schedule);
    }
  }
  keepProductsWhole(model, result.schedule);

  const StageAnalysis stages = measure(graph, device, options, result);
  LOAM_ASSERT(!stages.fault, *stages.fault);
  if (!cuts) result.period = std::max(result.period, result.longestStage);
  if (options.statesOnly && result.longestStage > options.period)
    result.warning = tooFast(
        graph, {.stage = result.longestStage.value, .nodes = {stages.lastNode}, .isEnd = true},
        options);
  return result;
}

bool isBetter(const Scheduled& one, long bitsOfOne, const Scheduled& other, long bitsOfOther) {
  // Gains of less are within what estimates miss of two structures.
  constexpr double kClearlyShorter = 0.98, kClearlyLess = 0.95;
  const auto isShorter = [&](device::Picoseconds a, device::Picoseconds b) {
    return a.value <= kClearlyShorter * b.value;
  };
  if (isShorter(one.period, other.period)) return true;
  if (isShorter(other.period, one.period)) return false;
  const int cycles = one.schedule.latency(), ofOther = other.schedule.latency();
  if (cycles != ofOther) return cycles < ofOther;
  if (bitsOfOne > bitsOfOther) return false;
  // Where little is left of the period, what leaves more of it, and takes no more.
  constexpr double kLittleLeft = 0.95, kShorterStage = 0.99;
  const int stage = one.longestStage.value, stageOfOther = other.longestStage.value;
  if (one.cost.luts <= other.cost.luts && stageOfOther > kLittleLeft * other.period.value &&
      stage <= kShorterStage * stageOfOther)
    return true;
  return one.cost.luts <= kClearlyLess * other.cost.luts;
}

std::optional<Scheduled> cheaperThan(const Scheduled& before, long bitsBefore, const Graph& graph,
                                     const device::Device& device, Schedule schedule,
                                     const ScheduleOptions& options) {
  // A gain of less is within what estimates miss: of half a per cent tools made 50 tables more.
  constexpr double kClearlyLess = 0.975;
  Scheduled result;
  result.schedule = std::move(schedule);
  result.period = before.period;
  result.warning = before.warning;
  if (registerBitsOutsideBlocks(graph, device, result.schedule) > bitsBefore ||
      measure(graph, device, options, result).fault ||
      result.cost.luts > kClearlyLess * before.cost.luts)
    return std::nullopt;
  return result;
}

long registerBits(const Graph& graph, const Schedule& schedule) {
  const std::vector<int> last = lastReads(graph, schedule);
  long bits = 0;
  for (const graph::State& state : graph.states()) bits += graph.node(state.node).width;
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    if (!isLiteral(graph.nodes()[i]))
      bits += static_cast<long>(graph.nodes()[i].width) * (last[i] - schedule.cycleByNode[i]);
  return bits;
}

}  // namespace schedule
