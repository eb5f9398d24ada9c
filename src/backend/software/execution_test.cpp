#include "backend/software/execution.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "backend/graph/builder.h"
#include "backend/graph/random_graph.h"

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

// New inputs in every cycle; each row of results is that of the inputs `latency` cycles before.
void expectDelayedEvaluation(Execution& execution, const Graph& graph, int latency, int cycles,
                             RandomGraph& draw) {
  Evaluator evaluate(graph);
  std::vector<std::vector<MPZ>> expected;
  for (int cycle = 0; cycle < cycles; ++cycle) {
    const std::vector<MPZ> inputs = draw.inputsOf(graph);
    expected.push_back(evaluate(inputs));
    const std::vector<MPZ> outputs = execution.step(inputs);
    if (cycle < latency) continue;
    ASSERT_EQ(outputs, expected[static_cast<std::size_t>(cycle - latency)]);
  }
}

TEST(Execution, IsTheEvaluationOfDrawnGraphsDelayedByTheLatency) {
  int deepest = 0;
  for (std::uint32_t seed = 1; seed <= 100; ++seed) {
    RandomGraph draw(seed);
    const Graph graph = draw.make({.nodes = 70, .maxWidth = seed % 3 == 0 ? 90 : 20});
    ScheduleOptions options{.period = {seed % 2 == 0 ? 1200 : 4000}};
    options.registerInputs = seed % 3 == 0;
    options.registerOutputs = seed % 4 == 0;
    schedule::Schedule schedule = scheduleOf(graph, options);
    if (seed % 5 == 0) {
      options.latency = schedule.latency() + 3;
      schedule = scheduleOf(graph, options);
    }
    deepest = std::max(deepest, schedule.latency());
    Execution execution(graph, schedule);
    expectDelayedEvaluation(execution, graph, schedule.latency(), schedule.latency() + 30, draw);
    execution.reset();
    expectDelayedEvaluation(execution, graph, schedule.latency(), schedule.latency() + 5, draw);
  }
  EXPECT_GT(deepest, 10);
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
