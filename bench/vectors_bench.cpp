// How fast the vector files of a sum are made, beside a bare loop that does no more than the
// arithmetic of a row: the draw or the number of a pattern, three additions, the MPFR calls of
// filter and packing, and one write of a ready row to each file. Random vectors of FPAdd 8 23,
// exhaustive ones of FPAdd 4 4. All rates are rows per second of processor time.

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

// What is measured: a format and the kind of vectors.
struct Run {
  kiln::FloatingPoint format;
  bool exhaustive;
  int rows;
};
const Run kRandom{kiln::ieee(8, 23), false, 100000};
const Run kExhaustive{kiln::ieee(4, 4), true, 1 << 18};

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

TestingOptions settings(const Run& run) {
  TestingOptions t;
  t.randomTests = !run.exhaustive;
  t.exhaustiveTests = run.exhaustive;
  t.testCount = run.rows;
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

double secondsOfPopulation(const Run& run) {
  const Silence silence;
  Addition addition;
  PortSpecList in, out;
  in.push_back("a", run.format);
  in.push_back("b", run.format);
  out.push_back("q", run.format);
  const double start = processorSeconds();
  const int rows = populateStmFilesFP(&addition, "vectors_bench", in, out, 3, settings(run));
  if (rows != run.rows) std::abort();
  return processorSeconds() - start;
}

// The MPFR calls that bring x to the port and take its significand.
void filterAndPack(const Run& run, mpfr_ptr filtered, mpfr_ptr significand, mpz_ptr pattern,
                   mpfr_srcptr x) {
  mpfr_set(filtered, x, MPFR_RNDN);
  mpfr_abs(significand, filtered, MPFR_RNDN);
  if (mpfr_regular_p(significand)) {
    mpfr_set_exp(significand, run.format.frac + 1);
    mpfr_rint(significand, significand, MPFR_RNDZ);
    mpfr_get_z(pattern, significand, MPFR_RNDZ);
  }
  benchmark::DoNotOptimize(pattern->_mp_d);
}

// The number of a pattern without subnormals.
void setPattern(mpfr_ptr x, util::MPZ& significand, int pattern, const kiln::FloatingPoint& fp) {
  const int fraction = pattern % (1 << fp.frac), last = (1 << fp.exp) - 1;
  const int exponent = (pattern >> fp.frac) & last, negative = pattern >> (fp.frac + fp.exp);
  if (exponent == 0) return mpfr_set_zero(x, negative ? -1 : 1);
  if (exponent == last) return fraction ? mpfr_set_nan(x) : mpfr_set_inf(x, negative ? -1 : 1);
  mpz_set_si(significand.get(), fraction + (1 << fp.frac));
  mpfr_set_z_2exp(x, significand.get(), exponent - (last >> 1) - fp.frac, MPFR_RNDN);
  if (negative) mpfr_neg(x, x, MPFR_RNDN);
}

double secondsOfBareLoop(const Run& run) {
  const FullExponentRange guard;
  const TestingOptions t = settings(run);
  const std::size_t column = static_cast<std::size_t>(run.format.width) + 2;
  const std::string inRow(1 + 2 + 10 + 2 * column + 1, '0'), outRow = inRow;
  const double start = processorSeconds();
  gmp_randstate_t state;
  gmp_randinit_mt(state);
  gmp_randseed_ui(state, static_cast<unsigned long>(run.rows));
  std::FILE* in = std::fopen("bare_xIn.stm", "w");
  std::FILE* out = std::fopen("bare_xOut.stm", "w");
  const mpfr_prec_t bits = run.format.frac + 1;
  Real a(bits), b(bits), filtered(bits), significand(bits);
  Real sums[3] = {Real(bits), Real(bits), Real(bits)};
  util::MPZ pattern;
  for (int i = 0; i < run.rows; ++i) {
    if (run.exhaustive) {
      setPattern(a.get(), pattern, i % (1 << run.format.width), run.format);
      setPattern(b.get(), pattern, i >> run.format.width, run.format);
    } else {
      genRandFP(a, state, run.format, t);
      genRandFP(b, state, run.format, t);
    }
    mpfr_add(sums[0].get(), a.get(), b.get(), MPFR_RNDD);
    mpfr_add(sums[1].get(), a.get(), b.get(), MPFR_RNDU);
    mpfr_add(sums[2].get(), a.get(), b.get(), MPFR_RNDN);
    for (const Real* x : {&a, &b, &sums[0], &sums[1]}) {
      if (run.exhaustive && (x == &a || x == &b)) continue;  // raw patterns
      filterAndPack(run, filtered.get(), significand.get(), pattern.get(), x->get());
    }
    std::fwrite(inRow.data(), 1, inRow.size(), in);
    std::fwrite(outRow.data(), 1, outRow.size(), out);
  }
  std::fclose(in);
  std::fclose(out);
  gmp_randclear(state);
  return processorSeconds() - start;
}

void vectorsOfFPAdd(benchmark::State& state, const Run& run) {
  const auto folder =
      std::filesystem::temp_directory_path() / ("vectors_bench." + std::to_string(getpid()));
  const auto before = std::filesystem::current_path();
  std::filesystem::create_directories(folder);
  std::filesystem::current_path(folder);
  double population = 1e9, bare = 1e9;  // the best of each: what else runs here only slows down
  for (auto _ : state) {
    population = std::min(population, secondsOfPopulation(run));
    bare = std::min(bare, secondsOfBareLoop(run));
  }
  std::filesystem::current_path(before);
  std::filesystem::remove_all(folder);
  state.counters["rows/s"] = run.rows / population;
  state.counters["bare_rows/s"] = run.rows / bare;
  state.counters["ratio"] = bare / population;
}
BENCHMARK_CAPTURE(vectorsOfFPAdd, random, kRandom)->Unit(benchmark::kMillisecond)->Iterations(15);
BENCHMARK_CAPTURE(vectorsOfFPAdd, exhaustive, kExhaustive)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(15);

}  // namespace

BENCHMARK_MAIN();
