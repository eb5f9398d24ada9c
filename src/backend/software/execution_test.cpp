#include "backend/software/execution.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "backend/graph/builder.h"
#include "backend/graph/random_graph.h"
#include "backend/graph/sample_loops.h"

namespace software {
namespace {

using graph::Builder;
using graph::Evaluator;
using graph::Graph;
using graph::RandomGraph;
using graph::Signal;
using schedule::ScheduleOptions;
using util::MPZ;

schedule::Schedule scheduleOf(const Graph& graph, const ScheduleOptions& options) {
  const device::Device& tarn = *device::deviceFactory.GetDevice("TarnV", "", "fast", "", "");
  const auto result = schedule::scheduleGraph(graph, tarn, options);
  EXPECT_TRUE(result);
  return result->schedule;
}

// New inputs in every cycle; each result is that of the inputs of its output's latency before. With
// `stalls`, half of the clock edges leave all as it was, and cycles that end so do not count.
void expectDelayedEvaluation(Execution& execution, const Graph& graph,
                             const schedule::Schedule& schedule, int cycles, RandomGraph& draw,
                             bool stalls) {
  Evaluator evaluate(graph);
  std::vector<std::vector<MPZ>> expected;
  for (int taken = 0; taken < cycles;) {
    const std::vector<MPZ> inputs = draw.inputsOf(graph);
    const bool enable = !stalls || draw.upTo(2) == 1;
    expected.push_back(evaluate(inputs));
    const std::vector<MPZ> outputs = execution.step(inputs, enable);
    for (std::size_t port = 0; port < outputs.size(); ++port) {
      const int row = taken - schedule.cycleByOutput[port];
      if (row < 0) continue;
      ASSERT_EQ(outputs[port], expected[static_cast<std::size_t>(row)][port]);
    }
    if (enable) {
      evaluate.clock();
      ++taken;
    } else {
      expected.pop_back();
    }
  }
}

// From reset on, again and again: with stalls and without.
void expectDelayedRuns(const Graph& graph, const schedule::Schedule& schedule, int cycles,
                       RandomGraph& draw, const std::vector<bool>& stalls) {
  Execution execution(graph, schedule);
  for (const bool stall : stalls) {
    expectDelayedEvaluation(execution, graph, schedule, cycles, draw, stall);
    execution.reset();
  }
}

TEST(Execution, IsTheEvaluationOfDrawnGraphsDelayedByTheLatency) {
  int deepest = 0;
  for (std::uint32_t seed = 1; seed <= 100; ++seed) {
    RandomGraph draw(seed);
    const Graph graph =
        draw.make({.nodes = 70, .maxWidth = seed % 3 == 0 ? 90 : 20, .memories = seed % 4 == 1});
    ScheduleOptions options{.period = {seed % 2 == 0 ? 1200 : 4000}};
    options.registerInputs = seed % 3 == 0;
    options.registerOutputs = seed % 4 == 0;
    schedule::Schedule schedule = scheduleOf(graph, options);
    if (seed % 5 == 0) {
      options.latency = schedule.latency() + 3;
      schedule = scheduleOf(graph, options);
    }
    deepest = std::max(deepest, schedule.latency());
    expectDelayedRuns(graph, schedule, schedule.latency() + 30, draw, {false, false});
  }
  EXPECT_GT(deepest, 10);
}

TEST(Execution, IsTheSequenceOfDrawnGraphsWithStatesThroughStallsAndResets) {
  int lateStates = 0, splitOutputs = 0;
  for (std::uint32_t seed = 1; seed <= 150; ++seed) {
    RandomGraph draw(seed);
    const Graph graph = draw.make({.nodes = 60,
                                   .maxWidth = seed % 3 == 0 ? 90 : 20,
                                   .states = seed % 6 == 0 ? 0 : draw.upTo(9)});
    ScheduleOptions options{.period = {seed % 2 == 0 ? 1200 : 4000}};
    options.strategy = static_cast<schedule::Strategy>(seed % 5);
    options.registerInputs = seed % 7 == 0;
    options.registerOutputs = seed % 4 == 0;
    if (seed % 8 < 5)
      for (std::size_t port = 0; port < graph.outputs().size(); ++port)
        options.outputGroups.push_back(draw.upTo(3));
    schedule::Schedule schedule = scheduleOf(graph, options);
    if (seed % 11 < 3) {
      options.latency = schedule.latency() + draw.upTo(3);
      schedule = scheduleOf(graph, options);
    }
    for (const graph::State& state : graph.states())
      lateStates += schedule.cycleOf(state.node) > 0 ? 1 : 0;
    splitOutputs += std::ranges::min(schedule.cycleByOutput) < schedule.latency() ? 1 : 0;
    expectDelayedRuns(graph, schedule, 150, draw, {true, false, true});
  }
  EXPECT_GT(lateStates, 200);
  EXPECT_GT(splitOutputs, 30);
}

// Sums of whole numbers over long runs, in one stage and with a stage for each block.
TEST(Execution, AccumulatesThroughStalls) {
  for (const int period : {20000, 1500}) {
    Graph graph;
    Builder b(graph);
    graph::buildBlockAccumulator(b, 5, 20);
    const schedule::Schedule schedule = scheduleOf(graph, {.period = {period}});
    EXPECT_EQ(schedule.latency() > 2, period == 1500);
    Execution execution(graph, schedule);
    RandomGraph draw(3);
    for (int round = 0; round < 2; ++round) {
      MPZ sum = 0;
      std::vector<MPZ> sums;
      while (sums.size() < 5000) {
        const std::vector<MPZ> inputs = draw.inputsOf(graph);
        const bool enable = draw.upTo(4) > 1;
        const MPZ shown = execution.step(inputs, enable)[0];
        const MPZ next = inputs[0].isZero() ? sum : (sum + inputs[1]).lowBits(100);
        const std::size_t latency = static_cast<std::size_t>(schedule.latency());
        if (sums.size() >= latency) {
          ASSERT_EQ(shown, latency == 0 ? next : sums[sums.size() - latency]);
        }
        if (enable) sums.push_back(sum = next);
      }
      execution.reset();
    }
  }
}

// A flag of the first row for which a late condition holds, cleared by the inverted condition: the
// registers before it must not clear it earlier.
TEST(Execution, HoldsLateStatesUntilTheirFirstInputs) {
  Graph graph;
  Builder b(graph);
  const Signal x = b.input("x", 24), y = b.input("y", 24);
  const Signal condition = b.topBit(b.add(x, y)), flag = b.state(1, 1);
  b.setNext(flag, b.select(condition, b.bit(false), flag));
  b.output("first", b.bitAnd(condition, flag));
  int lateFlags = 0;
  for (int period = 1200; period < 3000; period += 50) {
    const schedule::Schedule schedule = scheduleOf(graph, {.period = {period}});
    lateFlags += schedule.cycleOf(flag.node) > 0 ? 1 : 0;
    RandomGraph draw(static_cast<std::uint32_t>(period));
    expectDelayedRuns(graph, schedule, 20, draw, {true, true, true});
  }
  EXPECT_GT(lateFlags, 3);
}

// What only delays an input, and what runs by itself, starts with the first inputs.
TEST(Execution, StartsStatesOfTheFirstStageWithTheFirstInputs) {
  Graph graph;
  Builder b(graph);
  const Signal x = b.input("x", 8), count = b.state(8, 100);
  const Signal before = b.state(8, 3), earlier = b.state(8, 7), first = b.state(1, 1);
  b.setNext(count, b.add(count, b.literal(1, 8)));
  b.setNext(earlier, before);
  b.setNext(before, x);
  b.setNext(first, b.bit(false));
  const Signal product = b.multiply(b.concat({first, before}), b.add(earlier, b.bitXor(count, x)));
  // Wider than all that crosses behind the inputs, so that added cycles go there.
  b.output("r", b.multiply(product, b.concat({product, x})));
  for (int added = 0; added < 6; ++added) {
    ScheduleOptions options{.period = {added < 2 ? 1500 : 30000}, .registerInputs = added == 3};
    options.latency = scheduleOf(graph, options).latency() + added;
    const schedule::Schedule schedule = scheduleOf(graph, options);
    RandomGraph draw(9);
    expectDelayedRuns(graph, schedule, 600, draw, {false, true});
  }
}

TEST(Execution, ShowsTheZerosOfItsRegistersAfterReset) {
  Graph graph;
  Builder b(graph);
  const Signal x = b.input("x", 70);
  b.output("plain", x);
  b.output("complement", b.bitNot(x));
  const schedule::Schedule schedule = scheduleOf(graph, {.period = {5000}, .latency = 2});
  Execution execution(graph, schedule);
  const MPZ ones = MPZ::allOnes(70), seven(7);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(execution.step({seven})[0], MPZ(0));
    EXPECT_EQ(execution.step({MPZ(1)})[0], MPZ(0));
    EXPECT_EQ(execution.step({MPZ(2)}), (std::vector{seven, ones - seven}));
    EXPECT_EQ(execution.step({MPZ(3)}), (std::vector{MPZ(1), ones - MPZ(1)}));
    execution.reset();
  }
}

}  // namespace
}  // namespace software
