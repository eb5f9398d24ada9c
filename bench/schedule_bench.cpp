// How mapping and scheduling grow: drawn graphs of 16-bit sums, differences, products and gates.
// Each reads among the last 40 values, so that a stage is many nodes wide; or, `far`, one operand
// in five from anywhere before, so that most values are kept for many cycles.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <vector>

#include "backend/graph/builder.h"
#include "backend/graph/random_graph.h"
#include "backend/mapping/mapping.h"
#include "backend/schedule/schedule.h"

namespace {

constexpr device::Picoseconds kPeriod{3000};

const device::Device& tarn() {
  return *device::deviceFactory.GetDevice("TarnV", "", "fast", "Auto", "");
}

enum class Reads { kNear, kFar };

graph::Graph drawnGraph(std::size_t nodes, Reads reads) {
  constexpr int kWidth = 16, kRecent = 40;
  graph::RandomGraph draw(3);
  graph::Graph drawn;
  graph::Builder b(drawn);
  std::vector<graph::Signal> pool;
  for (int i = 0; i < kRecent; ++i) pool.push_back(b.input(fmt::format("x{}", i), kWidth));
  const auto any = [&] {
    const bool isFar = reads == Reads::kFar && draw.upTo(5) == 1;
    const int last = isFar ? static_cast<int>(pool.size()) : kRecent;
    return pool[pool.size() - static_cast<std::size_t>(draw.upTo(last))];
  };
  while (drawn.size() < nodes) {
    const graph::Signal x = any(), y = any();
    switch (draw.upTo(20)) {
      case 1:
        pool.push_back(b.slice(b.multiply(x, y), 5, kWidth));
        break;
      case 2:
        pool.push_back(b.select(b.less(x, y), x, b.bitNot(y)));
        break;
      case 3:
      case 4:
      case 5:
      case 6:
      case 7:
      case 8:
      case 9:
        pool.push_back(b.add(x, y));
        break;
      default:
        pool.push_back(b.bitXor(b.bitNot(x), y));
    }
  }
  for (int i = 0; i < kRecent; ++i)
    b.output(fmt::format("r{}", i), pool[pool.size() - 1 - static_cast<std::size_t>(i)]);
  return drawn;
}

// Sizes in equal steps, and the fitted growth behind them.
void growing(benchmark::internal::Benchmark* bench) {
  for (const int nodes : {1'000, 3'000, 10'000, 30'000, 100'000}) bench->Arg(nodes);
  bench->Unit(benchmark::kMillisecond)->Complexity(benchmark::oNLogN);
}

void mapping(benchmark::State& state) {
  const graph::Graph drawn = drawnGraph(static_cast<std::size_t>(state.range(0)), Reads::kNear);
  for (auto _ : state)
    benchmark::DoNotOptimize(mapping::mapGraph(drawn, tarn(), {kPeriod, false}).size());
  state.SetComplexityN(state.range(0));
}

void scheduling(benchmark::State& state, schedule::Strategy strategy, Reads reads) {
  const graph::Graph drawn = mapping::mapGraph(
      drawnGraph(static_cast<std::size_t>(state.range(0)), reads), tarn(), {kPeriod, false});
  long bits = 0;
  for (auto _ : state) {
    const auto result =
        schedule::scheduleGraph(drawn, tarn(), {.period = kPeriod, .strategy = strategy});
    state.counters["stages"] = result->schedule.latency() + 1;
    bits = schedule::registerBits(drawn, result->schedule);
  }
  state.counters["register_bits"] = static_cast<double>(bits);
  state.SetComplexityN(state.range(0));
}

BENCHMARK(mapping)->Apply(growing);
BENCHMARK_CAPTURE(scheduling, greedy, schedule::Strategy::kGreedy, Reads::kNear)->Apply(growing);
BENCHMARK_CAPTURE(scheduling, timed, schedule::Strategy::kTimed, Reads::kNear)->Apply(growing);
BENCHMARK_CAPTURE(scheduling, fewestRegisters, schedule::Strategy::kFewestRegisters, Reads::kNear)
    ->Apply(growing);
BENCHMARK_CAPTURE(scheduling, fewestRegistersFar, schedule::Strategy::kFewestRegisters, Reads::kFar)
    ->Apply(growing);

}  // namespace

BENCHMARK_MAIN();
