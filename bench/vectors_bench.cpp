// How fast the vector files of FPAdd 8 23 are made, beside a bare loop that does no more than the
// arithmetic of a row: the draw, three additions, the MPFR calls of filter and packing, and one
// write of a ready row to each file. Both rates are rows per second of processor time.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>

#include "numbers/draws.h"
#include "numbers/exponent_range.h"
#include "vectors/population.h"

namespace {

constexpr int kRows = 100000;
const kiln::FloatingPoint kSingle = kiln::ieee(8, 23);

// The sum of two numbers that their ports can carry; MPFR's special cases are those of IEEE 754.
struct Addition final : CFuncUnitFunctionInterface {
  void evaluate(std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                const std::vector<unsigned>& precisions, const std::vector<mpfr_rnd_t>& roundings,
                bool /*subnormals*/) override {
    results.resize(1);
    mpfr_add(results[0].real.prepare(precisions[0]), inputs[0].real.get(), inputs[1].real.get(),
             roundings[0]);
    results[0].type = NumType::kValue;
  }
};

double processorSeconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

TestingOptions settings() {
  TestingOptions t;
  t.randomTests = true;
  t.testCount = kRows;
  t.faithfulRounding = true;
  t.errorBounds = {1.0f};
  return t;
}

// Keeps progress bars off the report while it lives.
struct Silence {
  Silence() : kept(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
  }
  ~Silence() {
    std::fflush(stdout);
    dup2(kept, STDOUT_FILENO);
    close(kept);
  }
  int kept;
};

double secondsOfPopulation() {
  const Silence silence;
  Addition addition;
  PortSpecList in, out;
  in.push_back("a", kSingle);
  in.push_back("b", kSingle);
  out.push_back("q", kSingle);
  const double start = processorSeconds();
  populateStmFilesFP(&addition, "vectors_bench", in, out, 3, settings());
  return processorSeconds() - start;
}

// The MPFR calls that bring x to the port and take its significand.
void filterAndPack(mpfr_ptr filtered, mpfr_ptr significand, mpz_ptr pattern, mpfr_srcptr x) {
  mpfr_set(filtered, x, MPFR_RNDN);
  mpfr_abs(significand, filtered, MPFR_RNDN);
  if (mpfr_regular_p(significand)) {
    mpfr_set_exp(significand, kSingle.frac + 1);
    mpfr_rint(significand, significand, MPFR_RNDZ);
    mpfr_get_z(pattern, significand, MPFR_RNDZ);
  }
  benchmark::DoNotOptimize(pattern->_mp_d);
}

double secondsOfBareLoop() {
  const FullExponentRange guard;
  const TestingOptions t = settings();
  const std::string inRow(1 + 2 + 10 + 2 * 34 + 1, '0'), outRow = inRow;
  const double start = processorSeconds();
  gmp_randstate_t state;
  gmp_randinit_mt(state);
  gmp_randseed_ui(state, kRows);
  std::FILE* in = std::fopen("bare_xIn.stm", "w");
  std::FILE* out = std::fopen("bare_xOut.stm", "w");
  Real a, b, filtered(24), significand(24), sums[3] = {Real(24), Real(24), Real(24)};
  util::MPZ pattern;
  for (int i = 0; i < kRows; ++i) {
    genRandFP(a, state, kSingle, t);
    genRandFP(b, state, kSingle, t);
    mpfr_add(sums[0].get(), a.get(), b.get(), MPFR_RNDD);
    mpfr_add(sums[1].get(), a.get(), b.get(), MPFR_RNDU);
    mpfr_add(sums[2].get(), a.get(), b.get(), MPFR_RNDN);
    for (const Real* x : {&a, &b, &sums[0], &sums[1]}) {
      filterAndPack(filtered.get(), significand.get(), pattern.get(), x->get());
    }
    std::fwrite(inRow.data(), 1, inRow.size(), in);
    std::fwrite(outRow.data(), 1, outRow.size(), out);
  }
  std::fclose(in);
  std::fclose(out);
  gmp_randclear(state);
  return processorSeconds() - start;
}

void vectorsOfFPAdd(benchmark::State& state) {
  const auto folder =
      std::filesystem::temp_directory_path() / ("vectors_bench." + std::to_string(getpid()));
  const auto before = std::filesystem::current_path();
  std::filesystem::create_directories(folder);
  std::filesystem::current_path(folder);
  double population = 1e9, bare = 1e9;  // the best of each: what else runs here only slows down
  for (auto _ : state) {
    population = std::min(population, secondsOfPopulation());
    bare = std::min(bare, secondsOfBareLoop());
  }
  std::filesystem::current_path(before);
  std::filesystem::remove_all(folder);
  state.counters["rows/s"] = kRows / population;
  state.counters["bare_rows/s"] = kRows / bare;
  state.counters["ratio"] = bare / population;
}
BENCHMARK(vectorsOfFPAdd)->Unit(benchmark::kMillisecond)->Iterations(15);

}  // namespace

BENCHMARK_MAIN();
