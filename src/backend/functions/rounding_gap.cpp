#include "backend/functions/rounding_gap.h"

#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <tuple>

namespace functions {

namespace {

constexpr int kMostBits = 16;           // of an input format that is run through
constexpr mpfr_prec_t kGuard = 64;      // bits behind the result's, at first
constexpr mpfr_prec_t kMost = 1 << 14;  // precision at which a distance is given up

// The number of a pattern of sign, exponent and fraction; nothing for specials and zeros.
bool readPattern(Real& x, unsigned pattern, const kiln::FloatingPoint& format, bool subnormals) {
  const unsigned fraction = pattern & ((1u << format.frac) - 1);
  const int top = (1 << format.exp) - 1, bias = top / 2;
  const int exponent = static_cast<int>(pattern >> format.frac) & top;
  if (!format.is_fp_lib && exponent == top) return false;
  const bool hidden = format.is_fp_lib || exponent != 0;
  if (!hidden && (!subnormals || fraction == 0)) return false;
  const unsigned long significand = fraction + (hidden ? 1ul << format.frac : 0);
  mpfr_set_ui_2exp(x.get(), significand, (hidden ? exponent : 1) - bias - format.frac, MPFR_RNDN);
  if (pattern >> (format.exp + format.frac) & 1) mpfr_neg(x.get(), x.get(), MPFR_RNDN);
  return true;
}

std::optional<RoundingGap> runThrough(RealFunction f, const kiln::FloatingPoint& input,
                                      const ResultGrid& grid, bool subnormals, int leastExponent) {
  RoundingGap gap{1, 1};
  std::array<Real, 1> x{Real(input.frac + 1)};
  const FullExponentRange range;
  for (unsigned pattern = 0; pattern >> (input.exp + input.frac + 1) == 0; ++pattern) {
    if (!readPattern(x[0], pattern, input, subnormals)) continue;
    if (leastExponent != kEveryInput && mpfr_get_exp(x[0].get()) <= leastExponent) continue;
    const auto near = nearnessOf(f, x, grid);
    if (!near) continue;
    if (near->bits >= kMost) return std::nullopt;
    int& bits = near->isMidpoint ? gap.nearest : gap.directed;
    bits = std::max(bits, near->bits);
  }
  return gap;
}

const std::vector<KeptGap> kKept = {
#include "backend/functions/kept_gaps.txt"
};

}  // namespace

std::span<const KeptGap> keptGaps() { return kKept; }

ResultGrid gridOf(const kiln::FloatingPoint& output, bool subnormals) {
  const mpfr_exp_t half = mpfr_exp_t{1} << (output.exp - 1);
  const mpfr_exp_t leastNormal = (output.is_fp_lib ? 2 : 3) - half;
  const mpfr_exp_t greatest = half + (output.is_fp_lib ? 1 : 0);
  if (!subnormals || output.is_fp_lib)
    return {output.frac + 1, leastNormal - 1, greatest, mpfr_get_emin_min()};
  const mpfr_exp_t leastUlp = leastNormal - 1 - output.frac;
  return {output.frac + 1, leastUlp - 1, greatest, leastUlp};
}

std::optional<Nearness> nearnessOf(RealFunction f, std::span<const Real> inputs,
                                   const ResultGrid& grid) {
  thread_local Real value, place;
  for (mpfr_prec_t precision = grid.precision + kGuard;; precision *= 2) {
    mpfr_ptr v = value.prepare(precision), n = place.prepare(precision);
    const bool isExact = f(v, inputs, MPFR_RNDZ) == 0;
    if (!mpfr_regular_p(v)) return std::nullopt;
    const mpfr_exp_t exponent = mpfr_get_exp(v);
    if (exponent < grid.least || exponent > grid.greatest) return std::nullopt;
    // In halves of the grid's steps: odd integers are midpoints, even ones numbers.
    const mpfr_exp_t ulp = exponent - grid.precision, halfStep = std::max(ulp, grid.leastUlp) - 1;
    mpfr_set_exp(v, exponent - halfStep);
    mpfr_rint(n, v, MPFR_RNDN);
    if (mpfr_zero_p(n)) return std::nullopt;  // below half of the smallest midpoint
    const bool isMidpoint = mpfr_integer_p(n) && [&] {
      thread_local Real halved;
      mpfr_div_2ui(halved.prepare(precision), n, 1, MPFR_RNDN);
      return !mpfr_integer_p(halved.get());
    }();
    const mpfr_exp_t error = mpfr_get_exp(v) - precision;  // the value's is below 2^error
    mpfr_sub(n, v, n, MPFR_RNDN);
    if (isExact && mpfr_zero_p(n)) return std::nullopt;
    if (!isExact && (mpfr_zero_p(n) || mpfr_get_exp(n) < error + 8)) {
      if (precision >= kMost) return Nearness{isMidpoint, kMost};
      continue;
    }
    mpfr_abs(n, n, MPFR_RNDN);
    if (!isExact) {  // what the value lacks may bring it nearer
      mpfr_set_ui_2exp(v, 1, error, MPFR_RNDN);
      mpfr_sub(n, n, v, MPFR_RNDD);
    }
    return Nearness{isMidpoint, static_cast<int>(ulp - halfStep - mpfr_get_exp(n) + 1)};
  }
}

std::optional<RoundingGap> roundingGap(std::string_view name, RealFunction f,
                                       const kiln::FloatingPoint& input,
                                       const kiln::FloatingPoint& output, bool subnormals,
                                       int leastExponent) {
  if (1 + input.exp + input.frac <= kMostBits) {
    const auto keyOf = [](const kiln::FloatingPoint& format) {
      return std::tuple(format.exp, format.frac, format.is_fp_lib);
    };
    using Format = std::tuple<int, int, bool>;
    static std::map<std::tuple<std::string, Format, Format, bool, int>, std::optional<RoundingGap>>
        found;
    const std::tuple key{std::string(name), keyOf(input), keyOf(output), subnormals, leastExponent};
    auto place = found.find(key);
    if (place == found.end())
      place = found
                  .emplace(key, runThrough(f, input, gridOf(output, subnormals), subnormals,
                                           leastExponent))
                  .first;
    return place->second;
  }
  if (input.exp != output.exp || input.frac != output.frac) return std::nullopt;
  for (const KeptGap& row : kKept)
    if (row.name == name && row.exponentBits == input.exp && row.fractionBits == input.frac &&
        row.leastExponent <= leastExponent)
      return row.gap;
  return std::nullopt;
}

}  // namespace functions
