#include <gtest/gtest.h>

#include <climits>
#include <ctime>
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

Scheduled scheduled(const Graph& graph, ScheduleOptions options, Strategy strategy,
                    const Device& device) {
  options.strategy = strategy;
  const auto result = scheduleGraph(graph, device, options);
  EXPECT_TRUE(result) << (result ? "" : result.failure().message);
  return *result;
}

const Device& tarn() { return *device::deviceFactory.GetDevice("TarnV", "", "fast", "", ""); }

// The fewest register bits of all schedules that the checker passes, with the outputs as in `like`,
// found by trying every cycle of every node from its operands' on. Nodes whose bits so far are too
// many end a branch: those of the operands of nodes already placed.
class EverySchedule {
 public:
  EverySchedule(const Graph& graph, const Device& device, const ScheduleOptions& options,
                const Schedule& like)
      : graph(graph), device(device), options(options), tried(like) {}

  long fewest(long bound) {
    best = bound;
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
  long best = 0;
};

struct Drawn {
  Graph graph;
  ScheduleOptions options;
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
  b.output("last", pool.back());
  b.output("any", any());
  return graph;
}

TEST(FewestRegisters, IsWhatTryingEveryScheduleFinds) {
  int cut = 0;
  for (std::uint32_t seed = 1; seed <= 400; ++seed) {
    RandomGraph draw(seed);
    const Graph graph = smallGraph(draw);
    if (graph.size() > 14) continue;
    // Above 700 no product shares a stage with a reader on this device.
    ScheduleOptions options{.period = {400 + 50 * draw.upTo(5)}};
    options.registerInputs = seed % 5 == 0;
    options.registerOutputs = seed % 7 == 0;
    const Scheduled shortest = scheduled(graph, options, Strategy::kGreedy, roundDevice());
    if (shortest.schedule.latency() > 3) continue;
    if (seed % 3 == 0) options.latency = shortest.schedule.latency() + 1;
    const Scheduled found = scheduled(graph, options, Strategy::kFewestRegisters, roundDevice());
    options.period = found.period;
    EverySchedule every(graph, roundDevice(), options, found.schedule);
    EXPECT_EQ(registerBits(graph, found.schedule), every.fewest(LONG_MAX)) << seed;
    cut += found.schedule.latency() > 0;
  }
  EXPECT_GT(cut, 150);
}

}  // namespace
}  // namespace schedule
