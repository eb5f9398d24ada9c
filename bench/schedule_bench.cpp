// Scheduling of drawn graphs: 16-bit sums and differences, each reading among the last 40 values,
// so that a stage is many nodes wide.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <vector>

#include "backend/graph/builder.h"
#include "backend/graph/random_graph.h"
#include "backend/schedule/schedule.h"

namespace {

graph::Graph drawnGraph(std::size_t nodes) {
  graph::RandomGraph draw(3);
  graph::Graph drawn;
  graph::Builder b(drawn);
  std::vector<graph::Signal> pool;
  for (int i = 0; i < 40; ++i) pool.push_back(b.input(fmt::format("x{}", i), 16));
  const auto recent = [&] { return pool[pool.size() - static_cast<std::size_t>(draw.upTo(40))]; };
  while (drawn.size() < nodes) {
    const graph::Signal x = recent(), y = recent();
    pool.push_back(draw.upTo(2) == 1 ? b.add(x, y) : b.bitXor(b.bitNot(x), y));
  }
  for (int i = 0; i < 40; ++i)
    b.output(fmt::format("r{}", i), pool[pool.size() - 1 - static_cast<std::size_t>(i)]);
  return drawn;
}

void scheduleBy(benchmark::State& state, schedule::Strategy strategy) {
  const graph::Graph drawn = drawnGraph(static_cast<std::size_t>(state.range(0)));
  const device::Device& device = *device::deviceFactory.GetDevice("TarnV", "", "fast", "Auto", "");
  long bits = 0;
  for (auto _ : state) {
    const auto result =
        schedule::scheduleGraph(drawn, device, {.period = {3000}, .strategy = strategy});
    bits = schedule::registerBits(drawn, result->schedule);
  }
  state.counters["register_bits"] = static_cast<double>(bits);
}

BENCHMARK_CAPTURE(scheduleBy, greedy, schedule::Strategy::kGreedy)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(scheduleBy, fewestRegisters, schedule::Strategy::kFewestRegisters)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
