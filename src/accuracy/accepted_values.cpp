#include "accuracy/accepted_values.h"

#include <algorithm>

#include "numbers/filters.h"
#include "numbers/packing.h"
#include "util/failure.h"

namespace {

using Candidates = std::vector<NumValue>;

// Makes `value` a number of `precision` bits that descends from one of the given type.
mpfr_ptr begin(NumValue& value, NumType type, mpfr_prec_t precision) {
  mpz_set_ui(value.pattern.get(), 0);
  value.raw = false;
  value.type = type;
  return value.real.prepare(precision);
}

enum class Side { kLow, kHigh };

// The walk over the numbers of one floating-point format.
struct FloatingWalk {
  FloatingWalk(const kiln::FloatingPoint& fp, bool subnormals)
      : limits(exponentLimits(fp, /*subnormals=*/false)), gradual(subnormals && !fp.is_fp_lib) {
    // the last place of the lowest normal binade, which is that of every subnormal too
    if (gradual) {
      mpfr_set_ui_2exp(unit.prepare(2), 1, limits.smallestNormal - 1 - fp.frac, MPFR_RNDN);
    }
  }

  void step(mpfr_ptr x, Side side) const {
    const bool low = side == Side::kLow;
    if (mpfr_zero_p(x)) {
      mpfr_set_zero(x, low ? -1 : 1);
    } else if (!mpfr_regular_p(x)) {
      return;
    } else if (gradual && mpfr_get_exp(x) <= limits.smallestNormal) {
      // exact; the direction keeps the sign of a number that becomes zero
      if (low) {
        mpfr_sub(x, x, unit.get(), MPFR_RNDU);
      } else {
        mpfr_add(x, x, unit.get(), MPFR_RNDD);
      }
    } else if (low) {
      mpfr_nextbelow(x);
    } else {
      mpfr_nextabove(x);
    }
  }

  ExponentLimits limits;
  bool gradual;
  Real unit;
};

void floatingPairs(Candidates& list, const kiln::FloatingPoint& fp, const NumValue& down,
                   const NumValue& up, bool subnormals) {
  mpfr_ptr low = begin(list[0], down.type, fp.frac + 1);
  mpfr_ptr high = begin(list[1], up.type, fp.frac + 1);
  mpfr_set(low, down.real.get(), MPFR_RNDN);
  mpfr_set(high, up.real.get(), MPFR_RNDN);
  if (mpfr_zero_p(low) && mpfr_zero_p(high)) {
    mpfr_set_zero(low, -1);
    mpfr_set_zero(high, 1);
  }
  if (list.size() > 2) {
    const FloatingWalk walk(fp, subnormals);
    for (std::size_t i = 2; i < list.size(); ++i) {
      mpfr_srcptr predecessor = list[i - 2].real.get();
      mpfr_ptr x = begin(list[i], list[i - 2].type, mpfr_get_prec(predecessor));
      mpfr_set(x, predecessor, MPFR_RNDN);
      walk.step(x, i % 2 == 0 ? Side::kLow : Side::kHigh);
    }
  }
  if (!fp.is_fp_lib) return;
  for (NumValue& value : list) {
    mpfr_ptr x = value.real.get();
    if (mpfr_regular_p(x) && mpfr_get_exp(x) < exponentLimits(fp, false).smallestNormal) {
      mpfr_set_zero(x, mpfr_signbit(x) ? -1 : 1);
    }
  }
}

// |x| in units of the last place; `places` fraction bits.
void magnitudeInUlps(mpfr_ptr result, mpfr_srcptr x, int places) {
  mpfr_abs(result, x, MPFR_RNDN);
  mpfr_mul_2si(result, result, places, MPFR_RNDN);
}

// From a magnitude in ulps back to a value with the sign of `origin`, where a zero and a NaN count
// as positive.
void setFromUlps(mpfr_ptr result, mpfr_ptr ulps, int places, mpfr_srcptr origin) {
  mpfr_mul_2si(ulps, ulps, -places, MPFR_RNDN);
  if (mpfr_sgn(origin) < 0) mpfr_neg(ulps, ulps, MPFR_RNDN);
  mpfr_set(result, ulps, MPFR_RNDN);
}

// The first pair is the two grid points around the magnitude, the one nearer zero first. Where
// `down` and `up` differ the exact result lies strictly between them, so a grid point that the
// rounding away from zero just reached is the outer one itself.
void firstFixedPair(Candidates& list, const kiln::FixedPoint& fx, const NumValue& down,
                    const NumValue& up, Real& inner, Real& outer) {
  const int places = fx.fraction();
  const mpfr_prec_t work =
      2 + std::max({mpfr_get_prec(down.real.get()), mpfr_get_prec(up.real.get()),
                    static_cast<mpfr_prec_t>(fx.width())});
  magnitudeInUlps(inner.prepare(work), down.real.get(), places);
  magnitudeInUlps(outer.prepare(work), up.real.get(), places);
  const bool negative = mpfr_sgn(up.real.get()) < 0;
  if (negative) inner.swap(outer);
  const bool inside = !mpfr_equal_p(inner.get(), outer.get());
  mpfr_trunc(inner.get(), inner.get());
  if (!inside || !mpfr_integer_p(outer.get())) {
    mpfr_trunc(outer.get(), outer.get());
    mpfr_add_ui(outer.get(), outer.get(), 1, MPFR_RNDN);
  }
  setFromUlps(begin(list[0], down.type, fx.width()), inner.get(), places, down.real.get());
  setFromUlps(begin(list[1], up.type, fx.width()), outer.get(), places, up.real.get());
}

void fixedPairs(Candidates& list, const kiln::FixedPoint& fx, const NumValue& down,
                const NumValue& up) {
  thread_local Real inner, outer;  // storage only
  firstFixedPair(list, fx, down, up, inner, outer);
  const mpfr_prec_t precision =
      std::max(mpfr_get_prec(up.real.get()), static_cast<mpfr_prec_t>(fx.width()) + 1);
  for (std::size_t i = 2; i < list.size(); ++i) {
    const NumValue& predecessor = list[i - 2];
    mpfr_ptr ulps = inner.prepare(precision);
    magnitudeInUlps(ulps, predecessor.real.get(), fx.fraction());
    mpfr_trunc(ulps, ulps);
    if (i % 2 == 0) {
      mpfr_sub_ui(ulps, ulps, 1, MPFR_RNDN);
    } else {
      mpfr_add_ui(ulps, ulps, 1, MPFR_RNDN);
    }
    setFromUlps(begin(list[i], predecessor.type, precision), ulps, fx.fraction(),
                predecessor.real.get());
  }
}

}  // namespace

float errorBoundOf(const TestingOptions& options, std::size_t port) {
  if (port < options.errorBounds.size()) return options.errorBounds[port];
  if (!options.errorBounds.empty()) return options.errorBounds.front();
  return options.faithfulRounding ? 1.0f : 0.5f;
}

int alternativesOf(const TestingOptions& options, std::size_t port) {
  return responseColumns(errorBoundOf(options, port), options.unprovenRounding);
}

void generateOutputsForBeyondFaithfulTesting(std::vector<std::vector<NumValue>>& candidates,
                                             const PortSpecList& outPorts,
                                             const std::vector<NumValue>& down,
                                             const std::vector<NumValue>& up,
                                             const std::vector<NumValue>& nearest,
                                             const std::vector<unsigned>& /*precisions*/,
                                             const TestingOptions& options) {
  candidates.resize(outPorts.size());
  for (std::size_t j = 0; j < outPorts.size(); ++j) {
    const auto* fp = outPorts[j].type.as_floating_point();
    const auto* fx = outPorts[j].type.as_fixed_point();
    LOAM_ASSERT(fp || fx, "Code should be unreachable");
    const float bound = errorBoundOf(options, j);
    Candidates& list = candidates[j];
    list.resize(static_cast<std::size_t>(alternativesOf(options, j)));
    if (list.empty()) continue;
    if (bound == 0.5f) {
      for (std::size_t i = 0; i < list.size(); ++i) {
        const NumValue& rounded = list.size() == 1 ? nearest[j] : i == 0 ? down[j] : up[j];
        if (fp) {
          fpRangeFilter(list[i], rounded, *fp, options.subnormals && !fp->is_fp_lib);
        } else {
          fxpRangeFilter(list[i], rounded, *fx, options.precision);
        }
      }
    } else if (fp) {
      floatingPairs(list, *fp, down[j], up[j], options.subnormals);
    } else {
      fixedPairs(list, *fx, down[j], up[j]);
    }
  }
}
