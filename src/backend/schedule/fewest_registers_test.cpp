#include <fmt/format.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>

#include "backend/graph/builder.h"
#include "backend/graph/random_graph.h"
#include "backend/schedule/checker.h"
#include "backend/schedule/round_device_test.h"
#include "backend/schedule/schedule.h"
#include "backend/schedule/stage_model.h"

namespace schedule {
namespace {

using device::Device;
using graph::Builder;
using graph::Graph;
using graph::NodeId;
using graph::Op;
using graph::RandomGraph;
using graph::Signal;

Scheduled scheduledBy(Strategy strategy, const Graph& graph, ScheduleOptions options,
                      const Device& device = roundDevice()) {
  options.strategy = strategy;
  return scheduled(graph, options, device);
}

const Device& tarn() { return *device::deviceFactory.GetDevice("TarnV", "", "fast", "", ""); }

// The fewest register bits of all schedules that the checker passes, with the outputs as in `like`,
// found by trying every cycle of every node from its operands' on.
class EverySchedule {
 public:
  EverySchedule(const Graph& graph, const Device& device, const ScheduleOptions& options,
                const Schedule& like)
      : graph(graph), device(device), options(options), tried(like) {}

  long fewest() {
    place(0);
    return best;
  }

 private:
  void place(std::uint32_t i) {
    if (i == graph.size()) {
      if (const long bits = registerBits(graph, tried);
          bits < best && !analyseStages(graph, device, tried, options).fault)
        best = bits;
      return;
    }
    int first = 0, last = tried.latency();
    if (graph.nodes()[i].op == Op::kInput || isLiteral(graph.nodes()[i])) last = 0;
    for (const NodeId operand : graph.operands(NodeId{i}))
      first = std::max(first, tried.cycleOf(operand));
    for (int cycle = first; cycle <= last; ++cycle) {
      tried.cycleByNode[i] = cycle;
      place(i + 1);
    }
  }

  const Graph& graph;
  const Device& device;
  const ScheduleOptions& options;
  Schedule tried;
  long best = LONG_MAX;
};

// Small enough for every schedule to be tried.
Graph smallGraph(RandomGraph& draw) {
  Graph graph;
  Builder b(graph);
  std::vector<Signal> pool;
  for (int i = 0; i < 3; ++i) pool.push_back(b.input(fmt::format("in{}", i), draw.upTo(6)));
  const auto any = [&] {
    return pool[pool.size() - static_cast<std::size_t>(draw.upTo(static_cast<int>(pool.size())))];
  };
  for (int i = 0; i < 7; ++i) {
    const Signal x = any(), y = any();
    const int width = std::max(x.width, y.width);
    const int kind = draw.upTo(6);
    if (kind == 1 && x.width > 1) pool.push_back(b.slice(x, 1, draw.upTo(x.width - 1)));
    if (kind == 2) pool.push_back(b.concat({x, y}));
    if (kind == 3) pool.push_back(b.reduceOr(x));
    if (kind == 4 && x.width + y.width >= 9) pool.push_back(b.multiply(x, y));
    if (kind >= 5 && x.width == y.width) pool.push_back(b.add(x, y));
    if (kind >= 5 && x.width != y.width)
      pool.push_back(b.bitXor(b.signExtend(x, width), b.signExtend(y, width)));
  }
  // All that nothing reads is an output: nothing else makes a stage with it too long.
  std::vector<bool> read(graph.size());
  for (const graph::Node& node : graph.nodes())
    for (const NodeId operand : graph.operands(node)) read[operand.index] = true;
  for (const Signal x : pool)
    if (!read[x.node.index]) b.output(fmt::format("out{}", x.node.index), x);
  b.output("any", any());
  return graph;
}

TEST(FewestRegisters, IsWhatTryingEveryScheduleFinds) {
  int cut = 0;
  for (std::uint32_t seed = 1; seed <= 400; ++seed) {
    RandomGraph draw(seed);
    const Graph graph = smallGraph(draw);
    if (graph.size() > 16) continue;
    // Above 700 no product shares a stage with a reader on this device.
    ScheduleOptions options{.period = {400 + 50 * draw.upTo(5)}};
    options.registerInputs = seed % 5 == 0;
    options.registerOutputs = seed % 7 == 0;
    const Scheduled shortest = scheduledBy(Strategy::kGreedy, graph, options);
    if (shortest.schedule.latency() > 3) continue;
    if (seed % 3 == 0) options.latency = shortest.schedule.latency() + 1;
    const Scheduled found = scheduledBy(Strategy::kFewestRegisters, graph, options);
    options.period = found.period;
    EverySchedule every(graph, roundDevice(), options, found.schedule);
    EXPECT_EQ(registerBits(graph, found.schedule), every.fewest()) << seed;
    cut += found.schedule.latency() > 0;
  }
  EXPECT_GT(cut, 150);
}

// Also where products may share a stage with their readers, and with states.
TEST(FewestRegisters, IsNeverMoreThanAnyOtherStrategyNeeds) {
  long greedy = 0, fewest = 0;
  for (std::uint32_t seed = 1; seed <= 200; ++seed) {
    RandomGraph draw(seed);
    const Graph graph = draw.make({.nodes = 150, .states = static_cast<int>(seed % 4)});
    ScheduleOptions options{.period = {1000 + 100 * draw.upTo(35)}};
    options.registerInputs = seed % 3 == 0;
    options.registerOutputs = seed % 4 == 0;
    const Scheduled simple = scheduledBy(Strategy::kGreedy, graph, options, tarn());
    const Scheduled best = scheduledBy(Strategy::kFewestRegisters, graph, options, tarn());
    EXPECT_EQ(best.schedule.cycleByOutput, simple.schedule.cycleByOutput) << seed;
    EXPECT_LE(registerBits(graph, best.schedule), registerBits(graph, simple.schedule)) << seed;
    for (const Strategy strategy : {Strategy::kTimed, Strategy::kScopes}) {
      const Scheduled other = scheduledBy(strategy, graph, options, tarn());
      options.latency = other.schedule.latency();
      const Scheduled same = scheduledBy(Strategy::kFewestRegisters, graph, options, tarn());
      options.latency.reset();
      EXPECT_LE(registerBits(graph, same.schedule), registerBits(graph, other.schedule)) << seed;
    }
    greedy += registerBits(graph, simple.schedule);
    fewest += registerBits(graph, best.schedule);
  }
  EXPECT_LT(fewest, greedy * 9 / 10);
}

}  // namespace
}  // namespace schedule
