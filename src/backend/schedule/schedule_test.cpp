#include "backend/schedule/schedule.h"

#include <fmt/format.h>

#include "backend/graph/builder.h"
#include "backend/graph/random_graph.h"
#include "backend/schedule/round_device_test.h"

namespace schedule {
namespace {

using graph::RandomGraph;

// Two inputs of 8 bits and a chain of sums on them, each with the gate before it in one cluster.
struct Chain {
  explicit Chain(int sums) {
    Signal x = b.input("x", 8);
    const Signal y = b.input("y", 8);
    for (int i = 0; i < sums; ++i) links.push_back(x = b.add(x, b.bitXor(x, y)));
    b.output("r", x);
  }
  Graph graph;
  Builder b{graph};
  std::vector<Signal> links;
};

TEST(ScheduleGraph, FillsStagesUpToThePeriod) {
  const Chain chain(4);
  struct Row {
    int period, latency, longest;
  };
  for (const Row& row : {Row{10000, 0, 1300}, Row{1300, 0, 1300}, Row{1299, 1, 1000},
                         Row{700, 1, 700}, Row{699, 3, 400}}) {
    const Scheduled result = scheduled(chain.graph, {.period = {row.period}});
    EXPECT_EQ(result.schedule.latency(), row.latency) << row.period;
    EXPECT_EQ(result.longestStage.value, row.longest) << row.period;
    EXPECT_EQ(result.period.value, row.period);
    EXPECT_FALSE(result.warning);
    EXPECT_EQ(result.longestStep, "add 8");
  }
}

TEST(ScheduleGraph, CombinationalIsOneCycleWhateverItTakes) {
  const Chain chain(4);
  const Scheduled result =
      scheduled(chain.graph, {.period = {300}, .strategy = Strategy::kCombinational});
  EXPECT_EQ(result.schedule.latency(), 0);
  EXPECT_EQ(result.longestStage.value, 1300);
  EXPECT_EQ(result.period.value, 1300);
  EXPECT_EQ(registerBits(chain.graph, result.schedule), 0);
}

TEST(IsBetter, AsksForThePeriodThenTheCyclesThenTablesThenTheStage) {
  const auto timed = [](int period, int cycles, double tables, int stage = 2860) {
    Scheduled result{};
    result.longestStage = {stage};
    result.period = {period};
    result.schedule.cycleByOutput = {cycles};
    result.cost.luts = tables;
    return result;
  };
  struct Row {
    Scheduled one;
    long bits;
    bool isBetter;
  };
  for (const Row& row :
       {Row{timed(2940, 6, 200), 90, true}, Row{timed(3062, 4, 50), 10, false},
        Row{timed(3000, 4, 200), 90, true}, Row{timed(2941, 6, 50), 10, false},
        Row{timed(3000, 5, 95), 40, true}, Row{timed(3000, 5, 96), 40, false},
        Row{timed(3000, 5, 50), 41, false}, Row{timed(3000, 5, 100, 2831), 40, true},
        Row{timed(3000, 5, 100, 2832), 40, false}, Row{timed(3000, 5, 101, 2000), 40, false},
        Row{timed(3000, 5, 100, 2000), 41, false}})
    EXPECT_EQ(isBetter(row.one, row.bits, timed(3000, 5, 100), 40), row.isBetter)
        << row.one.period.value << " ps, " << row.one.cost.luts << " tables";
  // With enough left of the period a shorter stage is worth nothing.
  EXPECT_FALSE(isBetter(timed(3000, 5, 99, 2000), 40, timed(3000, 5, 100, 2850), 40));
}

TEST(ScheduleGraph, RegistersAtThePortsCountInTheLatency) {
  const Chain chain(1);
  struct Row {
    bool in, out;
    int latency;
  };
  for (const auto strategy : {Strategy::kGreedy, Strategy::kCombinational}) {
    for (const Row& row :
         {Row{false, false, 0}, Row{true, false, 1}, Row{false, true, 1}, Row{true, true, 2}}) {
      const Scheduled result = scheduled(chain.graph, {.period = {10000},
                                                       .strategy = strategy,
                                                       .registerInputs = row.in,
                                                       .registerOutputs = row.out});
      EXPECT_EQ(result.schedule.latency(), row.latency);
      EXPECT_EQ(registerBits(chain.graph, result.schedule), (row.in ? 16 : 0) + (row.out ? 8 : 0));
    }
  }
}

TEST(ScheduleGraph, MeetsAnyLatencyFromTheShortestUp) {
  const Chain chain(4);
  for (int latency = 0; latency <= 6; ++latency) {
    const auto result =
        scheduleGraph(chain.graph, roundDevice(), {.period = {800}, .latency = latency});
    ASSERT_EQ(static_cast<bool>(result), latency >= 1);
    if (!result) continue;
    EXPECT_EQ(result->schedule.latency(), latency);
    EXPECT_LE(result->longestStage.value, 800);
  }
}

TEST(ScheduleGraph, TellsTheStepTheClockAndTheShortestLatencyInOneLine) {
  const Chain chain(4);
  ScheduleOptions options{.period = {666}, .megahertz = 1500, .latency = 1};
  EXPECT_EQ(scheduleGraph(chain.graph, roundDevice(), options).failure().message,
            "Latency 1 asked, but 3 is the shortest at 1500.0 MHz; ask for more cycles or a lower "
            "frequency");
  options = {.period = {299}, .latency = 2};
  EXPECT_EQ(
      scheduleGraph(chain.graph, roundDevice(), options).failure().message,
      "Latency 2 asked, but 3 is the shortest at 2500.0 MHz, the highest clock as add 8 takes "
      "400 ps between registers; ask for more cycles or a lower frequency");
  options = {.period = {250}};
  const Scheduled slower = scheduled(chain.graph, options);
  EXPECT_EQ(slower.period.value, 400);
  EXPECT_LE(slower.longestStage, slower.period);
  for (options.megahertz = 4000; options.megahertz >= 3000; options.megahertz -= 1000)
    EXPECT_EQ(scheduled(chain.graph, options).warning,
              fmt::format("Warning: {:.1f} MHz asked, but add 8 takes 400 ps between registers; "
                          "built for 2500.0 MHz, the highest clock",
                          options.megahertz));
}

// Wide in the middle, narrow at one end: added cycles go where the fewest bits cross.
TEST(ScheduleGraph, AddsCyclesWhereFewestBitsCross) {
  Graph narrowing;
  {
    Builder b(narrowing);
    b.output("any", b.reduceOr(b.add(b.input("x", 30), b.input("y", 30))));
  }
  Graph widening;
  {
    Builder b(widening);
    const Signal x = b.input("x", 3);
    b.output("wide", b.multiply(b.add(b.replicate(x, 4), b.literal(77, 12)), b.replicate(x, 4)));
  }
  EXPECT_EQ(
      registerBits(narrowing, scheduled(narrowing, {.period = {9000}, .latency = 3}).schedule), 3);
  EXPECT_EQ(registerBits(widening, scheduled(widening, {.period = {9000}, .latency = 3}).schedule),
            9);
}

// A product's register may lie inside its block, which cuts the product in two.
TEST(ScheduleGraph, UsesTheRegisterInsideAProduct) {
  Graph graph;
  Builder b(graph);
  const Signal product = b.multiply(b.input("x", 16), b.input("y", 16));
  b.output("r", b.add(b.slice(product, 3, 16), b.input("z", 16)));
  struct Row {
    int period, latency;
  };
  // Together 900; product and register 600, then 550; to the inner register 400, then 200 + 350;
  // with both registers the stages are 400, 250 and 60 + 350.
  for (const Row& row : {Row{900, 0}, Row{899, 1}, Row{550, 1}, Row{549, 2}, Row{410, 2}}) {
    const Scheduled result = scheduled(graph, {.period = {row.period}});
    EXPECT_EQ(result.schedule.latency(), row.latency) << row.period;
    EXPECT_FALSE(result.warning);
  }
}

// Tools take the register before a product into its block, where setup is longer: two sums of 300
// need 50 + 600 + 100 then, and 50 less where only logic reads them.
TEST(ScheduleGraph, LeavesABlockTheSetupOfTheRegisterBeforeAProduct) {
  device::Family family = roundFamily();
  family.dspWideSetup = 80;
  family.dspNarrowSetup = 100;
  const Device slow(family, "fast", 1);
  for (const bool isFactor : {true, false}) {
    Graph graph;
    Builder b(graph);
    const Signal x = b.input("x", 16), y = b.input("y", 16);
    const Signal sum = b.add(b.add(x, y), b.input("z", 16));
    b.output("r", isFactor ? b.multiply(b.slice(sum, 0, 15), y) : b.add(b.add(sum, x), y));
    EXPECT_EQ(scheduled(graph, {.period = {750}}, slow).schedule.latency(), 1);
    EXPECT_EQ(scheduled(graph, {.period = {749}}, slow).schedule.latency(), isFactor ? 2 : 1);
  }
}

TEST(RegisterBits, CountEachValueOnceAndNoLiterals) {
  Graph graph;
  Builder b(graph);
  const Signal x = b.input("x", 8), y = b.input("y", 5);
  const Signal first = b.add(x, b.literal(3, 8));                      // cycle 0
  const Signal second = b.add(first, b.zeroExtend(y, 8));              // cycle 1
  const Signal third = b.add(second, b.concat({y, b.literal(5, 3)}));  // cycle 2
  b.output("r", third);
  b.output("s", b.slice(first, 6, 2));
  const Scheduled result = scheduled(graph, {.period = {400}});
  ASSERT_EQ(result.schedule.latency(), 2);
  // y twice, its zeros and its constant bits never; first once, then its two top bits; second once.
  EXPECT_EQ(registerBits(graph, result.schedule), 2 * 5 + 8 + 2 + 8);
}

TEST(Checker, FindsEveryKindOfViolation) {
  const Chain chain(3);
  const ScheduleOptions options{.period = {400}};
  const Schedule good = scheduled(chain.graph, options).schedule;
  const auto faultOf = [&](const Schedule& changed, const ScheduleOptions& rules) {
    return schedule::faultOf(chain.graph, changed, rules);
  };
  const auto moved = [&](std::uint32_t node, int cycle) {
    Schedule changed = good;
    changed.cycleByNode[node] = cycle;
    return changed;
  };
  EXPECT_EQ(faultOf(good, options), "");
  EXPECT_THAT(faultOf(moved(chain.links[1].node.index, 4), options), HasSubstr("before its cycle"));
  const graph::NodeId gate = chain.graph.operands(chain.links[1].node)[1];
  Schedule early = moved(gate.index, 0);
  EXPECT_THAT(faultOf(early, options), HasSubstr("its cluster in 1"));
  early.cycleByNode[chain.links[1].node.index] = 0;
  EXPECT_THAT(faultOf(early, options), HasSubstr("ps of 400"));
  EXPECT_THAT(faultOf(moved(chain.links[0].node.index, -1), options), HasSubstr("cycle -1"));
  EXPECT_THAT(faultOf(moved(0, 1), options), HasSubstr("stands in cycle 1"));
  EXPECT_THAT(faultOf(moved(chain.links[2].node.index, 9), options), HasSubstr("too early"));
  ScheduleOptions wrapped = options;
  wrapped.registerInputs = true;
  EXPECT_THAT(faultOf(good, wrapped), HasSubstr("before the input registers"));
  wrapped = options;
  wrapped.registerOutputs = true;
  EXPECT_THAT(faultOf(good, wrapped), HasSubstr("too early"));
  Schedule other = good;
  other.cycleByNode.pop_back();
  EXPECT_THAT(faultOf(other, options), HasSubstr("another graph"));
}

TEST(Checker, FindsAMemoryBlockThatIsReadWithoutARegister) {
  Graph graph;
  Builder b(graph);
  const std::vector<util::MPZ> rows(128, util::MPZ(5));
  const Signal word = b.memory(b.input("x", 7), rows, 4);
  const Signal part = b.slice(word, 1, 2);
  b.output("r", word);
  const Signal inverted = b.bitNot(part);
  b.output("s", inverted);
  const ScheduleOptions options{.period = {1000}};
  const Schedule good = scheduled(graph, options).schedule;
  EXPECT_EQ(good.latency(), 1);
  EXPECT_EQ(good.cycleOf(part.node), 1);
  EXPECT_EQ(faultOf(graph, good, options), "");
  Schedule early = good;
  early.cycleByNode[part.node.index] = 0;
  EXPECT_THAT(faultOf(graph, early, options), HasSubstr("reads a memory block without a register"));
  Schedule late = good;
  late.cycleByNode[word.node.index] = 1;
  late.cycleByNode[part.node.index] = late.cycleByNode[inverted.node.index] = 2;
  EXPECT_THAT(faultOf(graph, late, options), HasSubstr("output r shows its result too early"));
}

// 250 from the block's own register, 60 from the one behind it; a gate 100.
TEST(ScheduleGraph, PutsOneRegisterOrTwoBehindAMemoryBlock) {
  Graph graph;
  Builder b(graph);
  const std::vector<util::MPZ> rows(128, util::MPZ(5));
  const Signal word = b.memory(b.input("x", 7), rows, 4);
  const Signal any = b.reduceOr(word);
  b.output("r", any);
  for (const Strategy strategy :
       {Strategy::kGreedy, Strategy::kTimed, Strategy::kScopes, Strategy::kFewestRegisters}) {
    for (const auto& [period, registers] : {std::pair{400, 1}, {399, 2}, {300, 2}, {200, 2}}) {
      const Scheduled result = scheduled(graph, {.period = {period}, .strategy = strategy});
      EXPECT_EQ(result.schedule.cycleOf(any.node) - result.schedule.cycleOf(word.node), registers)
          << period;
      EXPECT_EQ(result.warning.has_value(), period == 200);
    }
  }
}

// scheduleGraph ends the run when its own checker finds a fault, so to come back is to pass it.
TEST(ScheduleGraph, PassesTheCheckerOnDrawnGraphs) {
  for (std::uint32_t seed = 1; seed <= 200; ++seed) {
    RandomGraph draw(seed);
    const Graph graph = draw.make({.nodes = 80,
                                   .states = seed % 3 == 1 ? draw.upTo(9) : 0,
                                   .tables = seed % 3 == 2,
                                   .memories = seed % 3 == 2 && seed % 5 != 0});
    ScheduleOptions options{.period = {seed % 2 == 0 ? 2000 : 4000}};
    options.strategy = static_cast<Strategy>(seed % 5);
    options.registerInputs = seed % 3 == 0;
    options.registerOutputs = seed % 4 == 0;
    if (seed % 7 < 3)
      for (std::size_t i = 0; i < graph.outputs().size(); ++i)
        options.outputGroups.push_back(draw.upTo(3));
    const Scheduled shortest = scheduled(graph, options, tarn());
    if (options.strategy != Strategy::kCombinational) {
      EXPECT_LE(shortest.longestStage, shortest.period);
    }
    options.latency = shortest.schedule.latency() + static_cast<int>(seed % 4);
    const Scheduled longer = scheduled(graph, options, tarn());
    for (const int cycle : longer.schedule.cycleByOutput) EXPECT_EQ(cycle, *options.latency);
  }
}

}  // namespace
}  // namespace schedule
