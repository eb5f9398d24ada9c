#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "backend/graph/builder.h"
#include "backend/graph/random_graph.h"
#include "backend/schedule/block_registers.h"
#include "backend/schedule/checker.h"
#include "backend/schedule/fewest_registers_scheduler.h"
#include "backend/schedule/greedy_scheduler.h"
#include "backend/schedule/round_device_test.h"
#include "backend/schedule/stage_model.h"
#include "backend/schedule/timed_scheduler.h"
#include "backend/schedule/wiring_placement.h"

namespace schedule {
namespace {

using graph::RandomGraph;

Scheduled scheduledBy(Strategy strategy, const Graph& graph, ScheduleOptions options,
                      const Device& device = roundDevice()) {
  options.strategy = strategy;
  return scheduled(graph, options, device);
}

long tarnBits(const Graph& graph, const Scheduled& result) {
  return registerBitsOutsideBlocks(graph, tarn(), result.schedule);
}

// All schedules that the checker passes with the outputs as in `like`: every cycle of every node,
// from its operands' on, is tried while fewer register bits than allowed are counted. A search that
// would try more than kTries schedules gives up, and `isWhole` tells.
class EverySchedule {
 public:
  EverySchedule(const Graph& graph, const Device& device, const ScheduleOptions& options,
                const Schedule& like)
      : graph(graph),
        device(device),
        options(options),
        tried(like),
        lastRead(graph.size(), -1),
        nextOf(graph.size()),
        products(productByNode(graph, device)) {
    for (std::size_t port = 0; port < graph.outputs().size(); ++port) {
      int& last = lastRead[graph.outputs()[port].signal.node.index];
      last = std::max(last, like.cycleByOutput[port]);
    }
    for (const graph::State& state : graph.states()) {
      nextOf[state.next.index] = state.node;
      stateBits += graph.node(state.node).width;
    }
  }

  // The fewest register bits of a schedule with at most `most`; nothing when there is none.
  std::optional<long> fewest(long most) {
    best = most + 1;
    place(0, stateBits);
    return best <= most ? std::optional(best) : std::nullopt;
  }
  bool isWhole() const { return tries <= kTries; }

 private:
  static constexpr int kTries = 30'000;

  // Registers behind a product may lie inside its block: they are counted in the end.
  bool isCounted(NodeId id) const {
    return !isLiteral(graph.node(id)) && products[id.index] == NodeId{};
  }

  void place(std::uint32_t i, long bits) {
    if (bits >= best || tries > kTries) return;
    if (i == graph.size()) {
      const long all = registerBitsOutsideBlocks(graph, device, tried);
      EXPECT_LE(bits, all);
      if (all >= best) return;
      ++tries;
      if (!analyseStages(graph, device, tried, options).fault) best = all;
      return;
    }
    const graph::Node& node = graph.nodes()[i];
    int first = 0, last = tried.latency();
    if (node.op == Op::kInput || isLiteral(node)) last = 0;
    for (const NodeId operand : graph.operands(NodeId{i}))
      first = std::max(first, tried.cycleOf(operand));
    if (nextOf[i] != NodeId{}) {
      if (tried.cycleOf(nextOf[i]) < first) return;
      first = last = tried.cycleOf(nextOf[i]);
    }
    for (int cycle = first; cycle <= last; ++cycle) {
      tried.cycleByNode[i] = cycle;
      long more = 0;
      if (lastRead[i] > cycle && isCounted({i})) more += long{node.width} * (lastRead[i] - cycle);
      std::vector<std::pair<std::uint32_t, int>> before;
      for (const NodeId operand : graph.operands(NodeId{i})) {
        int& kept = lastRead[operand.index];
        before.emplace_back(operand.index, kept);
        const int from = std::max(kept, tried.cycleOf(operand));
        if (cycle > from && isCounted(operand))
          more += long{graph.node(operand).width} * (cycle - from);
        kept = std::max(kept, cycle);
      }
      place(i + 1, bits + more);
      while (!before.empty()) {
        lastRead[before.back().first] = before.back().second;
        before.pop_back();
      }
    }
  }

  const Graph& graph;
  const Device& device;
  const ScheduleOptions& options;
  Schedule tried;
  std::vector<int> lastRead;   // by what stands already
  std::vector<NodeId> nextOf;  // the state that takes a node next
  const std::vector<NodeId> products;
  long stateBits = 0, best = 0;
  int tries = 0;
};

// All that nothing reads becomes an output: what no output reads may end in any cycle.
void readEverything(Graph& graph) {
  std::vector<bool> read(graph.size());
  for (const graph::Node& node : graph.nodes())
    for (const NodeId operand : graph.operands(node)) read[operand.index] = true;
  for (const graph::State& state : graph.states()) read[state.next.index] = true;
  for (const graph::Port& port : graph.outputs()) read[port.signal.node.index] = true;
  for (std::uint32_t i = 0; i < read.size(); ++i)
    if (!read[i] && !isLiteral(graph.nodes()[i]))
      Builder(graph).output(fmt::format("out{}", i), graph.signal({i}));
}

// Small enough for every schedule to be tried: up to 12 nodes that are no wiring, perhaps in loops
// that wait for `valid`.
Graph smallGraph(RandomGraph& draw, bool hasStates) {
  Graph graph;
  Builder b(graph);
  std::vector<Signal> pool, states;
  for (int i = 0; i < 3; ++i) pool.push_back(b.input(fmt::format("in{}", i), draw.upTo(6)));
  const Signal valid = hasStates ? b.input("valid", 1, true) : Signal{};
  for (int i = 0; hasStates && i < draw.upTo(2); ++i)
    pool.push_back(states.emplace_back(b.state(draw.upTo(6))));
  const auto any = [&] {
    return pool[pool.size() - static_cast<std::size_t>(draw.upTo(static_cast<int>(pool.size())))];
  };
  const int steps = 4 + draw.upTo(8) - 3 * static_cast<int>(states.size());
  for (int i = 0; i < steps; ++i) {
    const Signal x = any(), y = any();
    const int width = std::max(x.width, y.width), kind = draw.upTo(9);
    if (kind == 1 && x.width > 1) pool.push_back(b.slice(x, 1, draw.upTo(x.width - 1)));
    if (kind == 2) pool.push_back(b.concat({x, y}));
    if (kind == 3) pool.push_back(b.reduceOr(x));
    if (kind == 4 && x.width + y.width >= 9) pool.push_back(b.multiply(x, y));
    if (kind == 5) pool.push_back(b.less(b.zeroExtend(x, width), b.zeroExtend(y, width)));
    if (kind == 6 && x.width <= 6) pool.push_back(b.lut(x, draw.pattern(5 << x.width), 5));
    if (kind == 7) pool.push_back(b.select(b.bitOf(any(), 0), y, b.zeroExtend(x, y.width)));
    if (kind >= 8 && x.width == y.width) pool.push_back(b.add(x, y));
    if (kind >= 8 && x.width != y.width)
      pool.push_back(b.bitXor(b.signExtend(x, width), b.signExtend(y, width)));
  }
  for (const Signal state : states) {
    const Signal other = any();
    b.setNext(state, b.select(valid, b.add(state, b.zeroExtend(other, state.width)), state));
  }
  readEverything(graph);
  b.output("any", any());
  return graph;
}

// True when a product may have a register inside a DSP block.
bool hasBlock(const Graph& graph, const Device& device) {
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    if (device.delayOf(graph, {i}) != device.delayToRegister(graph, {i})) return true;
  return false;
}

constexpr long kAnyBits = 1'000'000;

int operationsOf(const Graph& graph) {
  return static_cast<int>(
      std::ranges::count_if(graph.nodes(), [](const graph::Node& n) { return !isWiring(n); }));
}

// Of all schedules of a small graph none has a lower latency, and none of that latency, or of one
// more, needs fewer register bits. On the second device products share stages with their readers.
TEST(FewestRegisters, IsWhatTryingEveryScheduleFinds) {
  struct Row {
    const char* name;
    const Device& device;
    int firstPeriod, step, steps;
    bool hasStates;
  };
  for (const Row& row : {Row{"round", roundDevice(), 400, 50, 5, false},
                         Row{"round, states", roundDevice(), 400, 50, 5, true},
                         Row{"carries", carryDevice(), 500, 50, 6, false},
                         Row{"carries, states", carryDevice(), 500, 50, 6, true},
                         Row{"products", tarn(), 1000, 100, 35, false},
                         Row{"products, states", tarn(), 1000, 100, 35, true}}) {
    int searched = 0, cut = 0, shortest = 0, blocks = 0;
    for (std::uint32_t seed = 1; seed <= 150; ++seed) {
      SCOPED_TRACE(fmt::format("{} {}", row.name, seed));
      RandomGraph draw(seed);
      const Graph graph = smallGraph(draw, row.hasStates);
      if (operationsOf(graph) > 12) continue;
      ScheduleOptions options{.period = {row.firstPeriod + row.step * draw.upTo(row.steps)}};
      options.registerInputs = seed % 5 == 0;
      options.registerOutputs = seed % 7 == 0;
      Scheduled found = scheduledBy(Strategy::kFewestRegisters, graph, options, row.device);
      const int latency = found.schedule.latency();
      if (latency > 3) continue;
      options.period = found.period;
      if (latency > 0) {
        Schedule shorter = found.schedule;
        std::ranges::fill(shorter.cycleByOutput, latency - 1);
        EverySchedule every(graph, row.device, options, shorter);
        EXPECT_FALSE(every.fewest(kAnyBits));
        shortest += every.isWhole();
      }
      if (seed % 3 == 0) {
        options.latency = latency + 1;
        found = scheduledBy(Strategy::kFewestRegisters, graph, options, row.device);
      }
      EverySchedule every(graph, row.device, options, found.schedule);
      EXPECT_EQ(every.fewest(registerBitsOutsideBlocks(graph, row.device, found.schedule) - 1),
                std::nullopt);
      searched += every.isWhole();
      cut += every.isWhole() && found.schedule.latency() > 0;
      blocks += hasBlock(graph, row.device);
    }
    EXPECT_GT(searched, 120) << row.name;
    EXPECT_GT(cut, 80) << row.name;
    EXPECT_GT(shortest, 50) << row.name;
    EXPECT_GT(blocks, 15) << row.name;
  }
}

// An output by itself has no schedule in which it shows its result earlier, wherever the others
// stand, and all of them together need the fewest register bits.
TEST(FewestRegisters, IsWhatTryingEveryScheduleFindsOfSplitOutputs) {
  int apart = 0;
  for (std::uint32_t seed = 1; seed <= 150; ++seed) {
    SCOPED_TRACE(seed);
    RandomGraph draw(seed);
    const Graph graph = smallGraph(draw, seed % 4 == 0);
    if (operationsOf(graph) > 10) continue;
    ScheduleOptions options{.period = {400 + 50 * draw.upTo(8)}};
    for (std::size_t port = 0; port < graph.outputs().size(); ++port)
      options.outputGroups.push_back(static_cast<int>(port));
    const Scheduled found = scheduledBy(Strategy::kFewestRegisters, graph, options);
    const int latency = found.schedule.latency();
    if (latency > 3) continue;
    options.period = found.period;
    for (std::size_t port = 0; port < graph.outputs().size(); ++port) {
      const int own = found.schedule.cycleByOutput[port];
      apart += own < latency;
      if (own == 0) continue;
      Schedule earlier = found.schedule;
      std::ranges::fill(earlier.cycleByOutput, latency);
      earlier.cycleByOutput[port] = own - 1;
      EXPECT_FALSE(EverySchedule(graph, roundDevice(), options, earlier).fewest(kAnyBits)) << port;
    }
    EverySchedule every(graph, roundDevice(), options, found.schedule);
    EXPECT_EQ(every.fewest(registerBitsOutsideBlocks(graph, roundDevice(), found.schedule) - 1),
              std::nullopt);
  }
  EXPECT_GT(apart, 100);
}

// The fewest bits that stand between two cycles, behind the inputs or before the outputs.
long narrowestCut(const Graph& graph, const Schedule& schedule) {
  long inputs = 0, outputs = 0;
  for (const graph::Port& port : graph.inputs()) inputs += port.signal.width;
  std::vector<NodeId> shown;
  for (const graph::Port& port : graph.outputs())
    if (!isLiteral(graph.node(port.signal.node))) shown.push_back(port.signal.node);
  std::ranges::sort(shown);
  shown.erase(std::unique(shown.begin(), shown.end()), shown.end());
  for (const NodeId id : shown) outputs += graph.node(id).width;
  long narrowest = std::min(inputs, outputs);
  const std::vector<int> last = lastReads(graph, schedule);
  for (int cycle = 1; cycle <= schedule.latency(); ++cycle) {
    long crossing = 0;
    for (std::uint32_t i = 0; i < graph.size(); ++i)
      if (!isLiteral(graph.nodes()[i]) && schedule.cycleByNode[i] < cycle && last[i] >= cycle)
        crossing += graph.nodes()[i].width;
    narrowest = std::min(narrowest, crossing);
  }
  return narrowest;
}

TEST(FewestRegisters, OfALongerLatencyAreNoMoreThanDelayAtTheNarrowestCut) {
  long saved = 0;
  for (std::uint32_t seed = 1; seed <= 60; ++seed) {
    RandomGraph draw(seed);
    Graph graph = draw.make({.nodes = 60});
    readEverything(graph);
    ScheduleOptions options{.period = {1000 + 100 * draw.upTo(35)}};
    const Scheduled shortest = scheduledBy(Strategy::kFewestRegisters, graph, options, tarn());
    const long bits = tarnBits(graph, shortest);
    const long cut = narrowestCut(graph, shortest.schedule);
    for (const int more : {1, 2, 5, 20}) {
      options.latency = shortest.schedule.latency() + more;
      const Scheduled longer = scheduledBy(Strategy::kFewestRegisters, graph, options, tarn());
      EXPECT_EQ(longer.schedule.cycleByOutput,
                std::vector(graph.outputs().size(), *options.latency));
      EXPECT_LE(tarnBits(graph, longer), bits + more * cut) << seed << " " << more;
      saved += bits + more * cut - tarnBits(graph, longer);
    }
  }
  EXPECT_GT(saved, 0);
}

// Also where products may share a stage with their readers, and with states.
TEST(FewestRegisters, OfPartsOfAGraphAreFewerThanSweepsFind) {
  long parts = 0, sweeps = 0, whole = 0;
  for (std::uint32_t seed = 1; seed <= 12; ++seed) {
    RandomGraph draw(seed);
    Graph graph = draw.make({.nodes = 400, .maxWidth = 8, .states = seed % 3 == 0 ? 4 : 0});
    ScheduleOptions options{.period = {700}, .strategy = Strategy::kFewestRegisters};
    options.period = scheduled(graph, options).period;
    const StageModel model(graph, roundDevice(), options.period);
    Request request{options.period.value, false, false, {}};
    request.shortestPeriod = request.period;
    const Schedule earliest = greedySchedule(model, request);
    whole += registerBits(graph, fewestRegisters(model, request, earliest));
    request.mostArcs = 500;
    const Schedule found = fewestRegisters(model, request, earliest);
    EXPECT_EQ(analyseStages(graph, roundDevice(), found, options).fault, std::nullopt) << seed;
    parts += registerBits(graph, found);
    sweeps += registerBits(graph, timedSchedule(model, request, earliest));
  }
  EXPECT_LT(parts, sweeps);
  EXPECT_LT(parts, whole * 1.1);
}

TEST(FewestRegisters, IsNeverMoreThanAnyOtherStrategyNeeds) {
  long greedy = 0, fewest = 0;
  constexpr std::uint32_t kSeeds = 100, kLoopsInTheWay = 5027;
  for (std::uint32_t i = 1; i <= kSeeds + 1; ++i) {
    const std::uint32_t seed = i <= kSeeds ? i : kLoopsInTheWay;
    RandomGraph draw(seed);
    Graph graph =
        draw.make({.nodes = 150, .states = static_cast<int>(seed % 4), .memories = seed % 4 == 0});
    readEverything(graph);
    ScheduleOptions options{.period = {1000 + 100 * draw.upTo(35)}};
    options.registerInputs = seed % 3 == 0;
    options.registerOutputs = seed % 4 == 0;
    const Scheduled simple = scheduledBy(Strategy::kGreedy, graph, options, tarn());
    const Scheduled best = scheduledBy(Strategy::kFewestRegisters, graph, options, tarn());
    EXPECT_EQ(best.schedule.cycleByOutput, simple.schedule.cycleByOutput) << seed;
    EXPECT_LE(tarnBits(graph, best), tarnBits(graph, simple)) << seed;
    for (const Strategy strategy : {Strategy::kTimed, Strategy::kScopes}) {
      const Scheduled other = scheduledBy(strategy, graph, options, tarn());
      EXPECT_GE(other.schedule.latency(), simple.schedule.latency()) << seed;
      EXPECT_TRUE(strategy == Strategy::kScopes ||
                  other.schedule.cycleByOutput == simple.schedule.cycleByOutput)
          << seed;
      options.latency = other.schedule.latency();
      const Scheduled same = scheduledBy(Strategy::kFewestRegisters, graph, options, tarn());
      options.latency.reset();
      EXPECT_LE(tarnBits(graph, same), tarnBits(graph, other)) << seed;
    }
    greedy += tarnBits(graph, simple);
    fewest += tarnBits(graph, best);
  }
  EXPECT_LT(fewest, greedy * 9 / 10);
}

}  // namespace
}  // namespace schedule
