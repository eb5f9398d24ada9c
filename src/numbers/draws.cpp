#include "numbers/draws.h"

#include <algorithm>

#include "numbers/exponent_range.h"
#include "util/random.h"

namespace {

// The smallest and largest exponent of a normal number: its leading 1 has weight 2^exponent.
DrawnExponents normalExponents(const kiln::FloatingPoint& fp) {
  const int h = 1 << (fp.exp - 1);
  const int wider = fp.is_fp_lib ? 1 : 0;
  return {2 - h - wider, h + wider - 1};
}

bool drawnNegative(const TestingOptions& t) {
  if (t.positiveStimuli == t.negativeStimuli) return util::GetRandom(2) == 1;
  return t.negativeStimuli;
}

}  // namespace

DrawnExponents drawnExponents(const kiln::FloatingPoint& fp, const TestingOptions& t) {
  const DrawnExponents normal = normalExponents(fp);
  if (t.expRangeMin > t.expRangeMax) {
    return {normal.first - (t.subnormals ? fp.frac : 0), normal.last};
  }
  return {std::max(normal.first, t.expRangeMin), std::min(normal.last, t.expRangeMax)};
}

void genRandFP(Real& result, gmp_randstate_t& state, const kiln::FloatingPoint& fp,
               const TestingOptions& t) {
  const DrawnExponents exponents = drawnExponents(fp, t);
  const int e = exponents.first + util::GetRandom(exponents.last - exponents.first + 1);
  const int bits = fp.frac + 1 - std::max(0, normalExponents(fp).first - e);
  mpfr_ptr x = result.prepare(std::max(bits, 2));
  if (bits == 1) {
    mpfr_set_ui(x, 1, MPFR_RNDN);
  } else {
    do {
      mpfr_urandomb(x, state);
    } while (mpfr_zero_p(x));
  }
  mpfr_set_exp(x, e + 1);
  const bool negative = drawnNegative(t);
  if (negative) mpfr_neg(x, x, MPFR_RNDN);
  switch (util::GetRandom(100)) {  // drawn always, so that the sequence does not depend on it
    case 0:
      if (t.genZeros) mpfr_set_zero(x, negative ? -1 : 1);
      break;
    case 1:
      if (t.genInfs) mpfr_set_inf(x, negative ? -1 : 1);
      break;
    case 2:
      if (t.genNaNs) mpfr_set_nan(x);
      break;
    default:
      break;
  }
}

Real genRandFP(gmp_randstate_t& state, const kiln::FloatingPoint& fp, const TestingOptions& t) {
  const FullExponentRange guard;
  Real result;
  genRandFP(result, state, fp, t);
  return result;
}

void genRandFXP(Real& result, gmp_randstate_t& state, const kiln::FixedPoint& fx,
                const TestingOptions& t) {
  thread_local util::MPZ number, count;  // storage only
  const auto width = static_cast<mp_bitcnt_t>(fx.width());
  mpz_sub(count.get(), t.valRangeMax.get(), t.valRangeMin.get());
  if (count.sign() < 0) {
    mpz_urandomb(number.get(), state, width);
    mpz_fdiv_q_2exp(number.get(), number.get(),
                    static_cast<mp_bitcnt_t>(util::GetRandom(fx.width())));
  } else {
    mpz_add_ui(count.get(), count.get(), 1);
    mpz_urandomm(number.get(), state, count.get());
    mpz_add(number.get(), number.get(), t.valRangeMin.get());
  }
  if (fx.sign()) {
    // a bound may be wider than the port, or negative: the port's bits decide
    mpz_fdiv_r_2exp(number.get(), number.get(), width);
    if (number.bit(width - 1)) {
      mpz_set_ui(count.get(), 0);
      mpz_setbit(count.get(), width);
      mpz_sub(number.get(), number.get(), count.get());
    }
  } else if (number.sign() < 0) {  // an unsigned port holds a number outside it at its limit
    mpz_set_ui(number.get(), 0);
  } else if (number.bitLength() > width) {
    mpz_set_ui(number.get(), 0);
    mpz_setbit(number.get(), width);
    mpz_sub_ui(number.get(), number.get(), 1);
  }
  const int precision = std::max(2, fx.width() + (fx.sign() ? 1 : 0));
  mpfr_set_z_2exp(result.prepare(precision), number.get(), -fx.fraction(), MPFR_RNDN);
}

Real genRandFXP(gmp_randstate_t& state, const kiln::FixedPoint& fx, const TestingOptions& t) {
  const FullExponentRange guard;
  Real result;
  genRandFXP(result, state, fx, t);
  return result;
}
