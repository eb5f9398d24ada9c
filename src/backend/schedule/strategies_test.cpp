#include "backend/graph/builder.h"
#include "backend/schedule/round_device_test.h"

namespace schedule {
namespace {

// Gates in a row, and wide sums behind them: as soon as possible fills the first stage.
TEST(Timed, FillsStagesEvenlyAndKeepsTheLatency) {
  Graph graph;
  Builder b(graph);
  Signal x = b.input("x", 8);
  for (int i = 0; i < 18; ++i) x = shiftedParity(b, x);
  b.output("r", x);
  const Scheduled greedy = scheduled(graph, {.period = {1500}});  // 18 gates: 14 and 4
  ScheduleOptions options{.period = {1500}, .strategy = Strategy::kTimed};
  const Scheduled timed = scheduled(graph, options);
  EXPECT_EQ(greedy.longestStage.value, 1500);
  EXPECT_EQ(timed.longestStage.value, 1000);
  EXPECT_EQ(timed.schedule.cycleByOutput, greedy.schedule.cycleByOutput);
  // Cycles beyond the shortest latency shorten the stages, too.
  options.latency = 2;
  EXPECT_EQ(scheduled(graph, options).longestStage.value, 700);
}

// A table of few bits in and many out is read late, and a gate of many in and one out early.
TEST(Timed, MovesNodesToWhereFewerBitsAreKept) {
  Graph graph;
  Builder b(graph);
  const Signal x = b.input("x", 8);
  const Signal table = b.lut(b.input("few", 2), util::MPZ(0x12345678), 8);
  const Signal any = b.reduceOr(x);
  Signal late = b.bitXor(x, b.input("y", 8));
  for (int i = 0; i < 4; ++i) late = shiftedParity(b, late);
  b.output("r", b.bitAnd(late, table));  // two readers: the table is a cluster of its own
  b.output("s", b.bitOr(late, table));
  b.output("any", any);
  EXPECT_EQ(scheduled(graph, {.period = {300}}).schedule.cycleOf(table.node), 0);
  const Schedule timed = scheduled(graph, {.period = {300}, .strategy = Strategy::kTimed}).schedule;
  EXPECT_EQ(timed.latency(), 2);
  EXPECT_EQ(timed.cycleOf(table.node), 2);
  EXPECT_EQ(timed.cycleOf(any.node), 0);
}

struct Scoped {
  Scoped() {
    const Signal x = b.input("x", 8), y = b.input("y", 8);
    {
      const auto scope = b.scope("first");
      const auto inner = b.scope("inner");
      first = b.bitXor(x, y);
      for (int i = 0; i < 3; ++i) first = shiftedParity(b, first);
    }
    {
      const auto scope = b.scope("second");
      second = b.add(b.concat({b.slice(first, 0, 4), b.slice(first, 4, 4)}), y);
    }
    b.output("r", b.bitAnd(second, x));
  }
  Graph graph;
  Builder b{graph};
  Signal first, second;
};

TEST(Scopes, StandBehindARegisterEach) {
  const Scoped scoped;
  ScheduleOptions options{.period = {9000}, .strategy = Strategy::kScopes};
  const Scheduled wide = scheduled(scoped.graph, options);
  EXPECT_EQ(wide.schedule.latency(), 2);
  EXPECT_EQ(wide.schedule.cycleOf(scoped.first.node), 0);
  EXPECT_EQ(wide.schedule.cycleOf(scoped.second.node), 1);
  // Four gates of the first scope do not fit one stage, nor do the sum and the gate behind it.
  options.period = {400};
  const Scheduled narrow = scheduled(scoped.graph, options);
  EXPECT_EQ(narrow.schedule.cycleOf(scoped.first.node), 1);
  EXPECT_EQ(narrow.schedule.cycleOf(scoped.second.node), 2);
  EXPECT_EQ(narrow.schedule.latency(), 3);
}

TEST(Scopes, ThatLeaveTheUnitEndInARegister) {
  Graph graph;
  Builder b(graph);
  {
    const auto scope = b.scope("only");
    b.output("r", b.bitAnd(b.input("x", 8), b.input("y", 8)));
  }
  ScheduleOptions options{.period = {9000}, .strategy = Strategy::kScopes};
  EXPECT_EQ(scheduled(graph, options).schedule.latency(), 1);
  // Which is the one that -wrapperOut asks for.
  options.registerOutputs = true;
  EXPECT_EQ(scheduled(graph, options).schedule.latency(), 1);
}

}  // namespace
}  // namespace schedule
