#include "backend/graph/sample_loops.h"
#include "backend/schedule/round_device_test.h"

namespace schedule {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

// A sum before a loop of a sum and a select, and one behind it.
struct Loop {
  Loop() {
    const Signal v = b.input("v", 1), x = b.input("x", 8), y = b.input("y", 8);
    total = b.state(8);
    inner = b.add(total, b.add(x, y));
    next = heldWithout(b, v, total, inner);
    b.output("r", b.add(next, y));
  }
  Graph graph;
  Builder b{graph};
  Signal total, inner, next;
};

TEST(States, KeepALoopInOneStageOrLowerTheClock) {
  const Loop loop;
  struct Row {
    int period, built, latency, loopCycle;
  };
  for (const Row& row : {Row{1100, 1100, 0, 0}, Row{1099, 1099, 1, 0}, Row{800, 800, 1, 0},
                         Row{799, 799, 2, 1}, Row{500, 500, 2, 1}, Row{499, 500, 2, 1}}) {
    const Scheduled result = scheduled(loop.graph, {.period = {row.period}});
    EXPECT_EQ(result.period.value, row.built);
    EXPECT_EQ(result.schedule.latency(), row.latency) << row.period;
    for (const Signal member : {loop.total, loop.inner, loop.next})
      EXPECT_EQ(result.schedule.cycleOf(member.node), row.loopCycle) << row.period;
    EXPECT_EQ(result.warning.has_value(), row.period < row.built);
  }
  EXPECT_THAT(*scheduled(loop.graph, {.period = {250}}).warning,
              AllOf(HasSubstr("4000.0 MHz asked, but the loop of add 8, select 8 takes 500 ps"),
                    HasSubstr("built for 2000.0 MHz"), Not(HasSubstr("\n"))));
  const Scheduled flat =
      scheduled(loop.graph, {.period = {500}, .strategy = Strategy::kCombinational});
  EXPECT_EQ(flat.schedule.latency(), 0);
  EXPECT_EQ(flat.longestStage.value, 1100);
}

TEST(States, OfSeparateLoopsMayStandInDifferentStages) {
  struct Row {
    const char* name;
    void (*build)(Builder&);
    std::vector<int> cycles;
  };
  const Row rows[] = {
      {"carry of this cycle",
       [](Builder& b) { graph::buildBlockAccumulator(b, 4, 8); },
       {0, 1, 2, 3}},
      // A saved carry comes from a register, as the sum that it is added to.
      {"carry of the cycle before",
       [](Builder& b) { graph::buildCarrySaveAccumulator(b, 3, 8); },
       {0, 0, 0, 0, 0, 0}},
      {"coupled", [](Builder& b) { graph::buildCoupledStates(b, 8); }, {0, 0}},
  };
  for (const Row& row : rows) {
    Graph graph;
    Builder b(graph);
    row.build(b);
    const Scheduled result = scheduled(graph, {.period = {500}});
    EXPECT_FALSE(result.warning) << row.name;
    std::vector<int> cycles;
    for (const graph::State& state : graph.states())
      cycles.push_back(result.schedule.cycleOf(state.node));
    EXPECT_EQ(cycles, row.cycles) << row.name;
  }
}

// With states alone nothing is cut: the clock gives way to the longest stage.
TEST(States, AsTheOnlyRegistersLowerTheClock) {
  const Loop loop;
  for (const int period : {1100, 800}) {
    const Scheduled result = scheduled(
        loop.graph, {.period = {period}, .strategy = Strategy::kCombinational, .statesOnly = true});
    EXPECT_EQ(result.schedule.latency(), 0);
    EXPECT_EQ(result.period.value, 1100);
    EXPECT_EQ(result.warning.has_value(), period < 1100);
    if (!result.warning) continue;
    EXPECT_THAT(*result.warning,
                AllOf(HasSubstr("1250.0 MHz asked, but the step that ends with add 8 takes 1100"),
                      HasSubstr("built for 909.0 MHz")));
  }
}

// A state that only delays stands with what it takes, however that is found: logic, wiring, a
// product that could end in its block but not at a register, another state.
TEST(States, ThatDelayStandWhereTheirNextValueDoes) {
  Graph graph;
  Builder b(graph);
  const Signal third = b.state(16), second = b.state(16), first = b.state(16), low = b.state(5);
  const Signal x = b.input("x", 16), y = b.input("y", 16);
  const Signal product = b.multiply(b.add(x, y), y);
  b.setNext(third, second);
  b.setNext(second, first);
  b.setNext(first, b.slice(product, 3, 16));
  b.setNext(low, b.slice(product, 0, 5));
  b.output("r", b.add(third, b.zeroExtend(low, 16)));
  // The sum and what the product takes to the register inside its block; then from there.
  const Scheduled result = scheduled(graph, {.period = {400}});
  EXPECT_FALSE(result.warning);
  for (const Signal state : {first, second, third, low})
    EXPECT_EQ(result.schedule.cycleOf(state.node), 2);
  EXPECT_EQ(result.schedule.latency(), 2);

  Graph whole;
  Builder c(whole);
  const Signal kept = c.state(32);
  c.setNext(kept, c.multiply(c.input("x", 16), c.input("y", 16)));
  c.output("r", kept);
  const Scheduled slow = scheduled(whole, {.period = {400}});
  EXPECT_EQ(slow.period.value, 600);
  EXPECT_EQ(slow.longestStage.value, 600);
  EXPECT_TRUE(slow.warning);
}

// What runs by itself starts with the first inputs, and a delayed input is one iteration late, not
// more: both stay in cycle 0 whatever is added behind the inputs.
TEST(States, ThatNoLogicSeparatesFromTheStartStayThere) {
  Graph graph;
  Builder b(graph);
  const Signal x = b.input("x", 4);
  const Signal count = b.state(4), before = b.state(4), earlier = b.state(4), first = b.state(1, 1);
  const Signal next = b.add(count, b.literal(1, 4));
  b.setNext(count, next);
  b.setNext(first, b.bit(false));
  b.setNext(earlier, before);
  b.setNext(before, x);
  const Signal product =
      b.multiply(b.add(b.add(count, x), b.add(before, earlier)),
                 b.multiply(b.add(x, b.replicate(first, 4)), b.add(next, before)));
  // Wider than all that crosses behind the inputs, so that added cycles go there.
  b.output("r", b.multiply(product, product));
  for (const auto strategy : {Strategy::kGreedy, Strategy::kCombinational}) {
    for (const bool wrapped : {false, true}) {
      for (const int latency : {6, 7}) {
        const Scheduled result = scheduled(graph, {.period = {10000},
                                                   .strategy = strategy,
                                                   .latency = latency,
                                                   .registerInputs = wrapped,
                                                   .registerOutputs = wrapped});
        EXPECT_EQ(result.schedule.latency(), latency);
        for (const Signal state : {count, before, earlier, first, next})
          EXPECT_EQ(result.schedule.cycleOf(state.node), 0);
      }
    }
  }
}

TEST(RegisterBits, CountTheBitsOfStates) {
  const Loop loop;
  // Nothing crosses a stage but the state; then valid, the inner sum and y, then y and what is
  // summed up.
  EXPECT_EQ(registerBits(loop.graph, scheduled(loop.graph, {.period = {1100}}).schedule), 8);
  EXPECT_EQ(registerBits(loop.graph, scheduled(loop.graph, {.period = {500}}).schedule),
            8 + (1 + 8 + 8) + (8 + 8));
}

TEST(OutputGroups, ShareACycleEachAsEarlyAsItCan) {
  Graph graph;
  Builder b(graph);
  const Signal x = b.input("x", 8), y = b.input("y", 8);
  const Signal one = b.add(x, y), two = b.add(one, y), three = b.add(two, y);
  b.output("three", three);
  b.output("one", one);
  b.output("x", x);
  b.output("two", two);
  constexpr device::Picoseconds kStep{400};
  const auto cycles = [&](const ScheduleOptions& options) {
    return scheduled(graph, options).schedule.cycleByOutput;
  };
  EXPECT_THAT(cycles({.period = kStep}), Each(2));
  EXPECT_THAT(cycles({.period = kStep, .outputGroups = {0, 0, 0, 0}}), Each(2));
  EXPECT_THAT(cycles({.period = kStep, .outputGroups = {0, 1, 2, 3}}), ElementsAre(2, 0, 0, 1));
  EXPECT_THAT(cycles({.period = kStep, .outputGroups = {7, -4, -4, 7}}), ElementsAre(2, 0, 0, 2));
  EXPECT_THAT(cycles({.period = kStep, .outputGroups = {1, 0, 3, 0}}), ElementsAre(2, 1, 0, 1));
  for (const bool in : {false, true})
    for (const bool out : {false, true})
      EXPECT_THAT(cycles({.period = kStep,
                          .registerInputs = in,
                          .registerOutputs = out,
                          .outputGroups = {0, 1, 2, 3}}),
                  ElementsAre(2 + in + out, in + out, in + out, 1 + in + out));
  for (const int latency : {2, 3, 5})
    EXPECT_THAT(cycles({.period = kStep, .latency = latency, .outputGroups = {0, 1, 2, 3}}),
                Each(latency));
  EXPECT_THAT(
      cycles({.period = kStep, .strategy = Strategy::kCombinational, .outputGroups = {0, 1, 2, 3}}),
      Each(0));
}

TEST(Checker, FindsStatesAndOutputsOutOfPlace) {
  const Loop loop;
  const ScheduleOptions options{.period = {800}};
  const Schedule good = scheduled(loop.graph, options).schedule;
  const auto faultOf = [&](std::vector<std::pair<Signal, int>> moved, ScheduleOptions rules) {
    Schedule changed = good;
    for (const auto& [signal, cycle] : moved) changed.cycleByNode[signal.node.index] = cycle;
    return schedule::faultOf(loop.graph, changed, rules);
  };
  EXPECT_EQ(faultOf({}, options), "");
  EXPECT_THAT(faultOf({{loop.next, 1}}, options), HasSubstr("stands in cycle 0, but takes node"));
  EXPECT_THAT(faultOf({{loop.inner, 1}, {loop.next, 1}}, options), HasSubstr("stands in cycle 0"));
  EXPECT_THAT(faultOf({{loop.total, 1}}, options), HasSubstr("stands in cycle 1"));
  EXPECT_THAT(faultOf({{loop.total, 1}, {loop.next, 1}}, options), HasSubstr("before its cycle"));
  EXPECT_THAT(faultOf({}, {.period = {799}}), HasSubstr("ends with select 8"));

  const auto apart = [&](std::vector<int> cycles, const ScheduleOptions& rules) {
    Graph graph;
    Builder b(graph);
    const Signal x = b.input("x", 8);
    b.output("p", x);
    b.output("q", x);
    return schedule::faultOf(graph, {.cycleByNode = {0}, .cycleByOutput = cycles}, rules);
  };
  EXPECT_EQ(apart({1, 2}, {.period = {800}, .outputGroups = {0, 1}}), "");
  EXPECT_THAT(apart({1, 2}, {.period = {800}, .outputGroups = {1, 1}}), HasSubstr("p and q"));
  EXPECT_THAT(apart({1, 2}, {.period = {800}}), HasSubstr("p and q"));
  EXPECT_THAT(apart({1, 2}, {.period = {800}, .latency = 2, .outputGroups = {0, 1}}),
              HasSubstr("p and q"));
}

}  // namespace
}  // namespace schedule
