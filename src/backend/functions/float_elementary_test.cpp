#include <bit>

#include "backend/functions/float_test_support.h"
#include "backend/functions/rounding_gap.h"

namespace functions::testing {
namespace {

template <auto f>
int real(mpfr_ptr r, std::span<const Real> in, mpfr_rnd_t direction) {
  return f(r, in[0].get(), direction);
}

struct Unit {
  const char* name;
  Operation operation;
  RealFunction function;
};
template <auto f>
constexpr Unit unitOf(const char* name) {
  return {name, ofFirst<f>, real<f>};
}
constexpr Unit kUnits[] = {unitOf<mpfr_exp>("DMFloatExpE"), unitOf<mpfr_exp2>("DMFloatExp2"),
                           unitOf<mpfr_log>("DMFloatLoge"), unitOf<mpfr_log2>("DMFloatLog2"),
                           unitOf<mpfr_log10>("DMFloatLog10")};

TEST(FloatElementary, AllNumbersOfSmallFormats) {
  for (const bool subnormals : {false, true})
    for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 4}, {4, 3}, {2, 6}})
      for (const auto& format : {ieee(wE, wF), fpLib(wE, wF)}) {
        if (format.is_fp_lib && subnormals) continue;
        const Ports ports{format.is_fp_lib ? "FPLib" : "", {format}, {format}};
        SCOPED_TRACE(fmt::format("{} {}", wE, wF));
        std::vector<Config> configs;
        for (const Unit& unit : kUnits)
          append(configs, configsOf(unit.name, ports, subnormals, {unit.operation}, hasEvenTies));
        checkAll(configs);
      }
}

// One circuit of a unit as a request on the target's prices has it.
Config priced(const Unit& unit, const FloatingPoint& format, const Precision& precision,
              bool subnormals) {
  const Ports ports{"", {format}, {format}};
  Config config = configOf(unit.name, ports, precision, 0, 0, subnormals, {unit.operation});
  config.request.prices = {};
  return config;
}

MPZ patternOf(double number, const FloatingPoint& format) {
  Real x(53);
  mpfr_set_d(x.get(), number, MPFR_RNDN);
  return encode(x.get(), {format, true, false});
}

// The inputs nearest to where a rounding changes, in every rounding.
TEST(FloatElementary, HardestInputsOfSinglePrecision) {
  const FloatingPoint format = ieee(8, 23);
  for (const Unit& unit : kUnits)
    for (const KeptGap& row : keptGaps()) {
      if (row.name != unit.name) continue;
      std::vector<Config> configs;
      // A directed exponential is planned for a second.
      for (const std::size_t precision : {0u, 2u, 5u, 6u})
        if (precision != 2 || row.gap.directed < 40)
          configs.push_back(priced(unit, format, kPrecisions[precision], true));
      Bench bench(configs);
      for (const double input : row.hardest)
        if (std::abs(input) < 0x1p128) {
          EXPECT_TRUE(bench.check({patternOf(input, format)}));
        }
    }
}

// Arguments that matter for these functions: about 1 and 0, whole numbers and their neighbours, the
// ends of the range of results.
std::vector<MPZ> nearSpecial(Draws& draws, const FloatingPoint& format) {
  Real x(format.frac + 1);
  const int kind = draws.below(4);
  const long reach = 1L << std::min(format.exp, 12);
  mpfr_set_si(x.get(), kind == 0 ? 1 : draws.below(static_cast<int>(2 * reach)) - reach, MPFR_RNDN);
  if (kind == 2) mpfr_mul_d(x.get(), x.get(), 0.69314718, MPFR_RNDN);
  if (kind == 3)
    mpfr_set_si_2exp(x.get(), draws.below(2) ? 1 : -1, -draws.below(2 * format.frac + 4),
                     MPFR_RNDN);
  for (int steps = draws.below(4); steps > 0; --steps) mpfr_nextabove(x.get());
  return {encode(x.get(), {format, true, false})};
}

void checkLarge(const FloatingPoint& format, bool subnormals, int count, unsigned seed) {
  SCOPED_TRACE(fmt::format("{} {}, seed {}", format.exp, format.frac, seed));
  std::vector<Config> configs;
  for (const Unit& unit : kUnits)
    for (const std::size_t precision : {0u, 5u, 2u})
      if (precision != 2 || format.frac != 23)
        configs.push_back(priced(unit, format, kPrecisions[precision], subnormals));
  Bench bench(configs);
  Draws draws(seed);
  checkEach(count, [&](int i) {
    return bench.check(i % 2 ? draws.row({format}) : nearSpecial(draws, format));
  });
}

TEST(FloatElementary, DrawnNumbersOfLargeFormats) {
  checkLarge(ieee(8, 23), true, 200, 1);
  checkLarge(ieee(6, 9), true, 400, 2);
}

// Logarithms next to 1 come closer to where a rounding changes than approximations tell.
TEST(FloatElementary, LogarithmsOfNeighboursOfOne) {
  const FloatingPoint format = ieee(11, 52);
  std::vector<Config> configs;
  for (const std::size_t precision : {0u, 1u, 2u})
    configs.push_back(priced(kUnits[2], format, kPrecisions[precision], false));
  Bench bench(configs);
  const MPZ one = MPZ(1023) << 52;
  for (long q = 1; q < 1L << 17; q += 1 + q / 128)
    for (const MPZ& x :
         {one + MPZ(q), one - MPZ(q),
          one - (MPZ(1) << (std::bit_width(static_cast<unsigned long>(q)) / 2)) * MPZ(q)})
      ASSERT_TRUE(bench.check({x}));
}

// Minutes: all numbers of 16-bit formats and many of large ones. Run by `make certify`.
TEST(FloatElementary, DISABLED_AllNumbersOf16BitFormats) {
  for (const auto& [wE, wF] : {std::pair{5, 10}, {8, 7}})
    for (const bool subnormals : {false, true}) {
      std::vector<Config> configs;
      for (const Unit& unit : kUnits)
        for (const Precision& precision : kPrecisions)
          if (precision.tiesAway == 0 && precision.degrade == 0)
            configs.push_back(priced(unit, ieee(wE, wF), precision, subnormals));
      checkAll(configs);
    }
}

}  // namespace
}  // namespace functions::testing
