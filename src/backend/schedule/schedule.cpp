#include "backend/schedule/schedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "backend/schedule/checker.h"
#include "backend/schedule/greedy_scheduler.h"
#include "backend/schedule/stage_model.h"
#include "backend/schedule/wiring_placement.h"

namespace schedule {

using graph::Graph;
using graph::NodeId;
using graph::Op;

namespace {

struct StrategyRow {
  Strategy strategy;
  Schedule (*run)(const StageModel&, const Request&);
};
constexpr StrategyRow kStrategies[] = {
    {Strategy::kCombinational, combinationalSchedule},
    {Strategy::kGreedy, greedySchedule},
    {Strategy::kTimed, greedySchedule},
    {Strategy::kScopes, greedySchedule},
    {Strategy::kFewestRegisters, greedySchedule},
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

struct SlowestStep {
  int stage = 0;
  NodeId node{};
};

SlowestStep slowestStep(const StageModel& model) {
  SlowestStep slowest{.stage = model.clockToOutput + model.setup};
  for (std::uint32_t i = 0; i < model.graph.size(); ++i) {
    if (isWiring(model.graph.nodes()[i])) continue;
    if (const int stage = model.aloneStage({i}); stage > slowest.stage) slowest = {stage, {i}};
  }
  return slowest;
}

std::string tooFast(const StageModel& model, const SlowestStep& slowest, int asked) {
  const std::string step =
      slowest.node == NodeId{} ? "a register" : stepName(model.graph, slowest.node);
  return fmt::format(
      "Warning: {:.1f} MHz asked, but {} takes {} ps between registers; built for {} MHz, the "
      "highest clock",
      megahertz(asked), step, slowest.stage, highestClock(slowest.stage));
}

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

// Adds `cycles` where they need the fewest register bits: behind the inputs, between two cycles, or
// before the outputs. No stage grows, for what is held longer was held before or is a port.
void lengthen(const Graph& graph, Schedule& schedule, int cycles, const Request& request) {
  const int latency = schedule.latency();
  // The logic from cycle `cut` on moves; latency + 1 stands for the outputs alone.
  int cut = latency + 1;
  long fewest = 0, inputBits = 0;
  for (const graph::Port& port : graph.outputs())
    if (!isLiteral(graph.node(port.signal.node))) fewest += port.signal.width;
  for (const graph::Port& port : graph.inputs()) inputBits += port.signal.width;
  const std::vector<long> crossing = crossingBits(graph, schedule);
  for (int k = latency; k >= 1; --k)
    if (crossing[static_cast<std::size_t>(k)] < fewest)
      cut = k, fewest = crossing[static_cast<std::size_t>(k)];
  if (!request.registerInputs && inputBits < fewest) cut = 0;

  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const bool isSource = graph.nodes()[i].op == Op::kInput || isLiteral(graph.nodes()[i]);
    if (!isSource && schedule.cycleByNode[i] >= cut) schedule.cycleByNode[i] += cycles;
  }
  for (int& cycle : schedule.cycleByOutput) cycle += cycles;
}

util::Failure tooShort(int asked, int shortest, int period) {
  return {
      fmt::format("Latency {} asked, but {} is the shortest at {} MHz; ask for more cycles or a "
                  "lower frequency",
                  asked, shortest, highestClock(period))};
}

}  // namespace

int Schedule::latency() const {
  return cycleByOutput.empty() ? 0 : *std::ranges::max_element(cycleByOutput);
}

util::Result<Scheduled> scheduleGraph(const Graph& graph, const device::Device& device,
                                      const ScheduleOptions& options) {
  const StageModel model(graph, device);
  const bool cuts = options.strategy != Strategy::kCombinational;
  Scheduled result;
  result.period = options.period;
  if (const SlowestStep slowest = slowestStep(model);
      cuts && slowest.stage > options.period.value) {
    result.warning = tooFast(model, slowest, options.period.value);
    result.period = {slowest.stage};
  }
  const Request request{result.period.value, options.registerInputs, options.registerOutputs};
  result.schedule = kStrategies[static_cast<int>(options.strategy)].run(model, request);

  const int shortest = result.schedule.latency(), wanted = options.latency.value_or(shortest);
  if (wanted < shortest) return tooShort(wanted, shortest, request.period);
  placeWiring(graph, result.schedule);
  if (wanted > shortest) {
    lengthen(graph, result.schedule, wanted - shortest, request);
    placeWiring(graph, result.schedule);
  }

  ScheduleOptions met = options;
  met.period = result.period;
  const StageAnalysis stages = analyseStages(graph, device, result.schedule, met);
  LOAM_ASSERT(!stages.fault, *stages.fault);
  result.longestStage = stages.longestStage;
  if (stages.lastNode != NodeId{}) result.longestStep = stepName(graph, stages.lastNode);
  if (!cuts) result.period = std::max(result.period, result.longestStage);
  return result;
}

long registerBits(const Graph& graph, const Schedule& schedule) {
  const std::vector<int> last = lastReads(graph, schedule);
  long bits = 0;
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    if (!isLiteral(graph.nodes()[i]))
      bits += static_cast<long>(graph.nodes()[i].width) * (last[i] - schedule.cycleByNode[i]);
  return bits;
}

}  // namespace schedule
