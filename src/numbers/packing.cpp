#include "numbers/packing.h"

#include <algorithm>
#include <cstdio>

#include "numbers/exponent_range.h"
#include "util/failure.h"
#include "util/sint.h"

namespace {

constexpr int kLimbBits = GMP_NUMB_BITS;
static_assert(kLimbBits == 64, "patterns are put together from limbs of 64 bits");

std::int64_t half(int wE) { return std::int64_t{1} << (wE - 1); }

std::size_t limbsFor(std::int64_t bits) {
  return static_cast<std::size_t>((bits + kLimbBits - 1) / kLimbBits);
}

// Writes floor(m * 2^bits) for the significand m of x, 0.5 <= m < 1, to the limbs at `out`, of
// which there are limbsFor(bits), bits >= 1.
void topOfSignificand(mp_limb_t* out, mpfr_srcptr x, std::int64_t bits) {
  const auto* limbs = static_cast<const mp_limb_t*>(mpfr_custom_get_significand(x));
  const std::size_t count = limbsFor(mpfr_get_prec(x));
  const std::int64_t drop = static_cast<std::int64_t>(count) * kLimbBits - bits;
  const std::size_t whole = static_cast<std::size_t>(drop < 0 ? -drop : drop) / kLimbBits;
  const unsigned rest = static_cast<unsigned>((drop < 0 ? -drop : drop) % kLimbBits);
  if (drop >= 0) {
    if (rest == 0) {
      std::copy(limbs + whole, limbs + count, out);
    } else {
      mpn_rshift(out, limbs + whole, static_cast<mp_size_t>(count - whole), rest);
    }
    return;
  }
  std::fill(out, out + whole, 0);
  if (rest == 0) {
    std::copy(limbs, limbs + count, out + whole);
  } else {
    out[whole + count] = mpn_lshift(out + whole, limbs, static_cast<mp_size_t>(count), rest);
  }
}

// Sets the bits of `value` from bit `position` of a number of `count` limbs upward.
void orBits(mp_limb_t* out, std::size_t count, int position, std::uint64_t value) {
  const std::size_t limb = static_cast<std::size_t>(position / kLimbBits);
  const int shift = position % kLimbBits;
  out[limb] |= value << shift;
  if (shift > 0 && limb + 1 < count) out[limb + 1] |= value >> (kLimbBits - shift);
}

enum Exception : std::uint64_t { kZero = 0, kRegular = 1, kInfinity = 2, kNaN = 3 };

[[noreturn]] void outOfRange(const ExponentLimits& limits, std::int64_t exponent) {
  std::printf("(MPFR) minExp=%d, currentExponent%d, maxExponent=%d \n",
              static_cast<int>(limits.smallestAccepted), static_cast<int>(exponent),
              static_cast<int>(limits.largest));
  loam_assert_handler("minExp <= currentExponent && currentExponent <= maxExponent", "cmdGauge",
                      __LINE__, __func__, "packFloatingPointToMPZ input is out of FP range");
}

}  // namespace

ExponentLimits exponentLimits(const kiln::FloatingPoint& fp, bool subnormals) {
  const std::int64_t h = half(fp.exp);
  const std::int64_t wider = fp.is_fp_lib ? 1 : 0;
  const std::int64_t normal = 3 - h - wider;
  return {normal, subnormals ? normal - fp.frac : normal, h + wider};
}

void packFloatingPointToMPZ(util::MPZ& pattern, mpfr_srcptr x, const kiln::FloatingPoint& fp,
                            const TestingOptions& t) {
  const std::uint64_t allOnes = (std::uint64_t{1} << fp.exp) - 1;
  const int total = fp.exp + fp.frac + 3;
  const std::size_t count = limbsFor(total);
  mp_limb_t* bits = mpz_limbs_write(pattern.get(), static_cast<mp_size_t>(count));
  std::fill(bits, bits + count, 0);

  std::uint64_t sign = mpfr_signbit(x) ? 1 : 0;
  std::uint64_t exponent = 0;
  Exception exception = kRegular;
  if (mpfr_regular_p(x)) {
    const ExponentLimits limits = exponentLimits(fp, t.subnormals);
    const std::int64_t e = mpfr_get_exp(x);
    if (e < limits.smallestAccepted || e > limits.largest) outOfRange(limits, e);
    const std::int64_t shift = std::max<std::int64_t>(0, limits.smallestNormal - e);
    topOfSignificand(bits, x, fp.frac + 1 - shift);
    bits[fp.frac / kLimbBits] &= ~(mp_limb_t{1} << (fp.frac % kLimbBits));  // the hidden bit
    if (shift == 0) exponent = static_cast<std::uint64_t>(e + half(fp.exp) - 2);
  } else if (mpfr_zero_p(x)) {
    exception = kZero;
  } else if (mpfr_inf_p(x)) {
    exception = kInfinity;
    exponent = allOnes;
  } else {
    exception = kNaN;
    exponent = allOnes;
    sign = 0;
    orBits(bits, count, t.quietNaN ? fp.frac - 1 : 0, 1);
  }
  const std::uint64_t head = ((fp.is_fp_lib ? exception : std::uint64_t{0}) << 1) | sign;
  orBits(bits, count, fp.frac, head << fp.exp | exponent);
  mpz_limbs_finish(pattern.get(), static_cast<mp_size_t>(count));
}

util::MPZ packFloatingPointToMPZ(mpfr_srcptr x, const kiln::FloatingPoint& fp,
                                 const TestingOptions& t) {
  util::MPZ pattern;
  packFloatingPointToMPZ(pattern, x, fp, t);
  return pattern;
}

util::MPZ packFPLibToMPZ(mpfr_srcptr x, const kiln::FloatingPoint& fp, const TestingOptions& t) {
  return packFloatingPointToMPZ(x, fp, t);
}

void packFixedPointToMPZ(util::MPZ& pattern, mpfr_srcptr x, const kiln::FixedPoint& fx,
                         int /*precision*/) {
  const bool negative = mpfr_sgn(x) < 0;
  const int width = fx.width();
  std::int64_t bits = 0;  // of the magnitude
  if (mpfr_regular_p(x)) bits = mpfr_get_exp(x) + fx.fraction();
  const bool huge = mpfr_inf_p(x) || bits > width + 1;
  if ((!huge && bits <= 0) || (negative && !fx.sign())) {
    mpz_set_ui(pattern.get(), 0);
    return;
  }
  if (!huge) {
    const auto count = static_cast<mp_size_t>(limbsFor(bits));
    topOfSignificand(mpz_limbs_write(pattern.get(), count), x, bits);
    mpz_limbs_finish(pattern.get(), count);
  }
  if (negative) {
    // -y is the complement of y - 1, which tells magnitudes up to 2^width by its length
    mpz_sub_ui(pattern.get(), pattern.get(), 1);
    LOAM_ASSERT(!huge && mpz_sizeinbase(pattern.get(), 2) <= static_cast<std::size_t>(width),
                "packFixedPointToMPZ: ERROR: result is negative");
    mpz_com(pattern.get(), pattern.get());
    mpz_fdiv_r_2exp(pattern.get(), pattern.get(), static_cast<mp_bitcnt_t>(width));
  } else if (huge || bits > width) {
    mpz_set_ui(pattern.get(), 0);
    mpz_setbit(pattern.get(), static_cast<mp_bitcnt_t>(width));
    mpz_sub_ui(pattern.get(), pattern.get(), 1);
  }
}

util::MPZ packFixedPointToMPZ(mpfr_srcptr x, const kiln::FixedPoint& fx, int precision) {
  util::MPZ pattern;
  packFixedPointToMPZ(pattern, x, fx, precision);
  return pattern;
}

std::uint64_t packFloatingPointToUINT(mpfr_srcptr x, int wE, int wF, bool fpLib, bool qnan) {
  const std::uint64_t allOnes = (std::uint64_t{1} << wE) - 1;
  const auto assembled = [&](std::uint64_t exception, std::uint64_t sign, std::uint64_t exponent,
                             std::uint64_t fraction) {
    const std::uint64_t head = (fpLib ? exception << 1 : 0) | sign;
    return (head << wE | exponent) << wF | fraction;
  };
  const std::uint64_t sign = mpfr_signbit(x) ? 1 : 0;
  if (mpfr_zero_p(x)) return assembled(kZero, sign, 0, 0);
  if (mpfr_inf_p(x)) return assembled(kInfinity, sign, allOnes, 0);
  if (mpfr_nan_p(x)) {
    return assembled(kNaN, 0, allOnes, qnan ? std::uint64_t{1} << (wF - 1) : 1);
  }
  const std::int64_t s_exp = half(wE) + mpfr_get_exp(x) - 2;
  if (fpLib) {
    if (s_exp < 0) return assembled(kZero, sign, 0, 0);
    if (s_exp > static_cast<std::int64_t>(allOnes)) return assembled(kInfinity, sign, allOnes, 0);
  } else {
    LOAM_ASSERT(s_exp >= 1, "Error in : packFloatingPointToUINT");
    LOAM_ASSERT(s_exp < ((std::int64_t(1) << wE) - 1), "Error in : packFloatingPointToUINT");
  }
  long unused;
  const double significand = mpfr_get_d_2exp(&unused, x, MPFR_RNDZ);
  const auto scaled =
      static_cast<std::uint64_t>(__builtin_ldexp(__builtin_fabs(significand), wF + 1));
  const std::uint64_t fraction = scaled & ((std::uint64_t{1} << wF) - 1);
  return assembled(0, sign, static_cast<std::uint64_t>(s_exp), fraction);
}

std::uint64_t packIEEEToUINT(mpfr_srcptr x, int wE, int wF, bool qnan) {
  return packFloatingPointToUINT(x, wE, wF, /*fpLib=*/false, qnan);
}

std::uint64_t packIEEEToUINT(mpfr_srcptr x, const kiln::FloatingPoint& fp, bool qnan) {
  return packFloatingPointToUINT(x, fp.exp, fp.frac, /*fpLib=*/false, qnan);
}

std::uint64_t packFPLibToUINT(mpfr_srcptr x, int wE, int wF, bool qnan) {
  return packFloatingPointToUINT(x, wE, wF, /*fpLib=*/true, qnan);
}

std::uint64_t packFPLibToUINT(mpfr_srcptr x, const kiln::FloatingPoint& fp, bool qnan) {
  if (!fp.is_fp_lib) {
    loam_assert_handler("fp.is_fp_lib()", "cmdGauge", __LINE__, __func__, "not an FPLib format");
  }
  return packFPLibToUINT(x, fp.exp, fp.frac, qnan);
}

std::uint64_t packFixedPointToUINT(mpfr_srcptr x, int width, int fraction, int /*sign*/) {
  Real scaled(100);
  mpfr_mul_2si(scaled.get(), x, fraction, MPFR_RNDZ);
  mpfr_trunc(scaled.get(), scaled.get());
  if (mpfr_zero_p(scaled.get())) return 0;
  util::MPZ pattern;
  mpfr_get_z(pattern.get(), scaled.get(), MPFR_RNDZ);
  if (mpfr_sgn(x) < 0) pattern += util::MPZ::powerOfTwo(static_cast<unsigned long>(width));
  return static_cast<std::uint64_t>(util::mpzToSINT(pattern.get()));
}

std::uint64_t packFixedPointToUINT(mpfr_srcptr x, const kiln::FixedPoint& fx) {
  return packFixedPointToUINT(x, fx.width(), fx.fraction(), fx.sign());
}

Real packSINTtoIEEE(std::int64_t bits, int wE, int wF) {
  const FullExponentRange guard;
  const std::uint64_t allOnes = (std::uint64_t{1} << wE) - 1;
  const auto pattern = static_cast<std::uint64_t>(bits);
  const std::uint64_t fraction = pattern & ((std::uint64_t{1} << wF) - 1);
  const std::uint64_t exponent = pattern >> wF & allOnes;
  const int sign = pattern >> (wF + wE) & 1 ? -1 : 1;
  Real result(65);
  if (exponent == 0 && fraction == 0) {
    mpfr_set_zero(result.get(), sign);
  } else if (exponent == allOnes && fraction == 0) {
    mpfr_set_inf(result.get(), sign);
  } else if (exponent == allOnes) {
    mpfr_set_nan(result.get());
  } else {
    mpfr_set_ui(result.get(), std::uint64_t{1} << wF | fraction, MPFR_RNDN);
    mpfr_set_exp(result.get(), static_cast<mpfr_exp_t>(exponent) - half(wE) + 2);
    mpfr_setsign(result.get(), result.get(), sign < 0, MPFR_RNDN);
  }
  return result;
}

NumValue decodeMPZAsFPIEEEToMPFR(const NumValue& v, const kiln::FloatingPoint& fp) {
  const FullExponentRange guard;
  const auto wF = static_cast<unsigned long>(fp.frac);
  util::MPZ fraction = v.pattern.lowBits(wF);
  util::MPZ exponent = v.pattern >> wF;
  const auto signBit = static_cast<mp_bitcnt_t>(fp.exp);
  const int sign = exponent.bit(signBit) ? -1 : 1;
  mpz_clrbit(exponent.get(), signBit);
  NumValue result;
  result.type = v.type;
  mpfr_ptr real = result.real.prepare(fp.frac + 1);
  if (mpz_getlimbn(exponent.get(), 0) == 0) {
    mpfr_set_zero(real, sign);
  } else if (exponent == util::MPZ::allOnes(signBit)) {
    if (fraction.isZero()) {
      mpfr_set_inf(real, sign);
    } else {
      mpfr_set_nan(real);
    }
  } else {
    fraction += util::MPZ::powerOfTwo(wF);
    const std::int64_t bias = half(fp.exp) - 1;
    mpfr_set_z_2exp(real, fraction.get(), util::mpzToSINT(exponent.get()) - fp.frac - bias,
                    MPFR_RNDN);
    mpfr_setsign(real, real, sign < 0, MPFR_RNDN);
  }
  return result;
}

NumValue decodeMPZAsFXPToMPFR(const NumValue& v, const kiln::FixedPoint& fx) {
  const FullExponentRange guard;
  const auto width = static_cast<unsigned long>(fx.width());
  NumValue result;
  result.type = v.type;
  util::MPZ number = v.pattern;
  if (fx.sign() && number.bit(width - 1)) number -= util::MPZ::powerOfTwo(width);
  mpfr_set_z_2exp(result.real.prepare(fx.width() == 1 ? 2 : fx.width()), number.get(),
                  -fx.fraction(), MPFR_RNDN);
  return result;
}

NumValue decodeMPZToMPFR(const NumValue& v, const kiln::Type& type) {
  if (const auto* fp = type.as_floating_point()) return decodeMPZAsFPIEEEToMPFR(v, *fp);
  if (const auto* fx = type.as_fixed_point()) return decodeMPZAsFXPToMPFR(v, *fx);
  return {};
}

Real smallestFP(int wE, int wF, bool fpLib, bool subnormals) {
  const FullExponentRange guard;
  Real result(wF + 1);
  mpfr_set_ui_2exp(result.get(), 1, (fpLib ? 1 : 2) - half(wE) - (subnormals ? wF : 0), MPFR_RNDN);
  return result;
}

Real largestFP(int wE, int wF, bool fpLib) {
  const FullExponentRange guard;
  Real result(wF + 1);
  // the power of two above, one step down
  mpfr_set_ui_2exp(result.get(), 1, half(wE) + (fpLib ? 1 : 0), MPFR_RNDN);
  mpfr_nextbelow(result.get());
  return result;
}
