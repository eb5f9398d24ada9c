#include "backend/functions/exact_test_support.h"

namespace functions::testing {
namespace {

// The parts of |m| * 2^-k, k > 0, by integers: m is divided by 2^k, and what is left compared with
// one half.
struct PartCase {
  const char* unit;
  // The integer of magnitude `whole` + rest, where twice the rest against 1 has sign `half`.
  MPZ (*integer)(const MPZ& whole, bool inexact, int half, bool negative);
};
MPZ plus(const MPZ& whole, bool one) { return whole + MPZ(one ? 1 : 0); }
const PartCase kParts[] = {
    {"DMFloatFloor",
     [](const MPZ& n, bool inexact, int, bool negative) { return plus(n, inexact && negative); }},
    {"DMFloatCeil",
     [](const MPZ& n, bool inexact, int, bool negative) { return plus(n, inexact && !negative); }},
    {"DMFloatTrunc", [](const MPZ& n, bool, int, bool) { return n; }},
    {"DMFloatRound", [](const MPZ& n, bool, int half, bool) { return plus(n, half >= 0); }},
    {"DMFloatRint", [](const MPZ& n, bool, int half,
                       bool) { return plus(n, half > 0 || (half == 0 && n.bit(0))); }},
    {"DMFloatFrac", nullptr},
};

Real partOf(const PartCase& part, const Real& x) {
  const bool isFrac = part.integer == nullptr;
  const bool negative = mpfr_signbit(x.get()) != 0;
  Real result(mpfr_get_prec(x.get()));
  mpfr_set_zero(result.get(), negative ? -1 : 1);
  if (mpfr_nan_p(x.get()) || (mpfr_inf_p(x.get()) && !isFrac)) return x;
  if (!mpfr_regular_p(x.get())) return result;
  MPZ m;
  const long exponent = mpfr_get_z_2exp(m.get(), x.get());
  if (exponent >= 0) return isFrac ? result : x;
  if (negative) m = MPZ(0) - m;
  const auto places = static_cast<unsigned long>(-exponent);
  const MPZ rest = m.lowBits(places), unit = MPZ::powerOfTwo(static_cast<int>(places));
  if (isFrac) {
    mpfr_set_z_2exp(result.get(), rest.get(), exponent, MPFR_RNDN);
  } else {
    const int half = mpz_cmp(MPZ(rest << 1).get(), unit.get());
    const MPZ integer = part.integer(m >> places, !rest.isZero(), half, negative);
    mpfr_set_z(result.get(), integer.get(), MPFR_RNDN);
  }
  if (negative) mpfr_setsign(result.get(), result.get(), 1, MPFR_RNDN);
  return result;
}

// All numbers, or as many drawn ones, half of them where some fraction bits are below the units.
void checkFormat(const FloatingPoint& format, bool subnormals, int count) {
  SCOPED_TRACE(
      fmt::format("{} {} {}", format.is_fp_lib ? "FPLib" : "IEEE", format.exp, format.frac));
  for (const PartCase& part : kParts) {
    ExactBench bench(part.unit, {{format}, {format}, {{8, 23, 0}}}, subnormals);
    const auto owed = [&](const std::vector<MPZ>& patterns) -> std::vector<MPZ> {
      return {encode(partOf(part, bench.valueOf(patterns[0], 0)).get(), bench.port(format))};
    };
    if (count == 0) {
      checkAllExact(bench, owed);
      continue;
    }
    Draws draws(format.frac);
    const int bias = (1 << (format.exp - 1)) - 1;
    checkEach(count, [&](int i) {
      MPZ pattern = draws.number(format);
      if (i % 2 == 0) {
        const MPZ exponent = bias - 2 + draws.below(format.frac + 4);
        MPZ fraction = field(pattern, 0, format.frac);
        // Ties and their neighbours.
        if (i % 4 == 0) fraction = (fraction << draws.below(format.frac)) + MPZ(draws.below(3) - 1);
        const MPZ low =
            (exponent.lowBits(format.exp) << format.frac) + fraction.lowBits(format.frac);
        const int magnitudeBits = format.exp + format.frac;
        pattern = ((pattern >> magnitudeBits) << magnitudeBits) + low;
      }
      return bench.check({pattern}, owed({pattern}));
    });
  }
}

TEST(FloatIntegerPart, AllNumbersOfSmallFormats) {
  for (const bool subnormals : {false, true})
    for (const auto& [wE, wF] :
         {std::pair{2, 1}, {2, 2}, {2, 9}, {3, 1}, {3, 5}, {4, 3}, {4, 9}, {5, 10}})
      for (const auto& format : {ieee(wE, wF), fpLib(wE, wF)}) {
        if (wE + wF > 13 && format.is_fp_lib && subnormals) continue;
        checkFormat(format, subnormals, 0);
      }
}

TEST(FloatIntegerPart, DrawnNumbersOfLargeFormats) {
  for (const bool subnormals : {false, true})
    for (const auto& [wE, wF] : {std::pair{6, 9}, {8, 23}, {11, 52}, {2, 64}, {5, 40}, {15, 112}})
      for (const auto& format : {ieee(wE, wF), fpLib(wE, wF)})
        checkFormat(format, subnormals, 4000);
}

}  // namespace
}  // namespace functions::testing
