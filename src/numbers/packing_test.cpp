#include "numbers/packing.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

namespace {

// The value that a pattern of a small format stands for, by the formats' definition; FPLib patterns
// of regular numbers only. Independent of MPFR.
double valueOf(unsigned pattern, const kiln::FloatingPoint& fp) {
  const int bias = (1 << (fp.exp - 1)) - 1;
  const unsigned fraction = pattern & ((1u << fp.frac) - 1);
  const int exponent = static_cast<int>(pattern >> fp.frac & ((1u << fp.exp) - 1));
  const double sign = pattern >> (fp.exp + fp.frac) & 1 ? -1 : 1;
  const double hidden = std::ldexp(1 + std::ldexp(fraction, -fp.frac), exponent - bias);
  if (fp.is_fp_lib) return sign * hidden;
  if (exponent == 0) return sign * std::ldexp(fraction, 1 - bias - fp.frac);
  if (exponent < (1 << fp.exp) - 1) return sign * hidden;
  return fraction ? std::nan("") : sign * INFINITY;
}

Real real(double value, int precision = 53) {
  Real x(precision);
  mpfr_set_d(x.get(), value, MPFR_RNDN);
  return x;
}

TestingOptions gradual() {
  TestingOptions t;
  t.subnormals = true;
  return t;
}

const kiln::FloatingPoint kSmall[] = {kiln::ieee(2, 1),  kiln::ieee(3, 2),  kiln::ieee(4, 3),
                                      kiln::fpLib(2, 1), kiln::fpLib(3, 2), kiln::fpLib(4, 3)};

TEST(Packing, GivesEveryPatternOfSmallFormatsFromItsValue) {
  for (const auto& fp : kSmall) {
    for (unsigned pattern = 0; pattern < 1u << (fp.exp + fp.frac + 1); ++pattern) {
      const double value = valueOf(pattern, fp);
      unsigned expected = pattern;
      if (std::isnan(value)) expected = ((1u << fp.exp) - 1) << fp.frac | 1;
      if (fp.is_fp_lib) expected |= 1u << (fp.exp + fp.frac + 1);
      EXPECT_EQ(packFloatingPointToMPZ(real(value).get(), fp, gradual()).toUint64(), expected);
      // digits beyond the format are dropped
      if (std::isfinite(value) && value != 0) {
        const double more = value + std::copysign(std::ldexp(1, -20), value);
        EXPECT_EQ(packFloatingPointToMPZ(real(more).get(), fp, gradual()).toUint64(), expected);
      }
    }
  }
}

TEST(Packing, GivesFPLibSpecialsTheirException) {
  const auto fp = kiln::fpLib(8, 23);
  TestingOptions quiet;
  quiet.quietNaN = true;
  const auto packed = [&](double x, const TestingOptions& t) {
    return packFloatingPointToMPZ(real(x).get(), fp, t).toUint64();
  };
  EXPECT_EQ(packed(0.0, {}), 0u);
  EXPECT_EQ(packed(-0.0, {}), 0x080000000u);
  EXPECT_EQ(packed(1.0, {}), 0x13f800000u);
  EXPECT_EQ(packed(-INFINITY, {}), 0x2ff800000u);
  EXPECT_EQ(packed(NAN, {}), 0x37f800001u);
  EXPECT_EQ(packed(NAN, quiet), 0x37fc00000u);
  EXPECT_EQ(packFPLibToUINT(real(1.0).get(), fp, false), 0x03f800000u);
  EXPECT_EQ(packFPLibToUINT(real(std::ldexp(1, 200)).get(), fp, false), 0x27f800000u);
  EXPECT_EQ(packFPLibToUINT(real(-std::ldexp(1, -200)).get(), fp, false), 0x080000000u);
}

// float and double against the hardware's own patterns.
template <typename Float, typename Bits>
void agreesWithHardware(const kiln::FloatingPoint& fp) {
  std::mt19937_64 draw(1);
  for (int i = 0; i < 20000; ++i) {
    const Bits bits = static_cast<Bits>(draw()) & (i % 8 ? ~Bits{0} : ~(Bits{0xff} << (fp.frac)));
    const Float value = std::bit_cast<Float>(bits);
    const Real x = real(value);
    if (std::isnan(value)) continue;
    EXPECT_EQ(packFloatingPointToMPZ(x.get(), fp, gradual()).toUint64(), bits);
    if (std::fpclassify(value) == FP_SUBNORMAL) continue;
    EXPECT_EQ(packIEEEToUINT(x.get(), fp, false), bits);
    NumValue pattern;
    pattern.pattern = util::MPZ(static_cast<unsigned long>(bits));
    const NumValue decoded = decodeMPZToMPFR(pattern, fp);
    EXPECT_TRUE(mpfr_equal_p(decoded.real.get(), x.get()));
    EXPECT_EQ(mpfr_get_d(packSINTtoIEEE(static_cast<long>(bits), fp.exp, fp.frac).get(), MPFR_RNDN),
              value);
  }
}

TEST(Packing, AgreesWithHardwareFloats) {
  agreesWithHardware<float, std::uint32_t>(kiln::ieee(8, 23));
  agreesWithHardware<double, std::uint64_t>(kiln::ieee(11, 52));
}

TEST(Packing, KeepsEveryBitOfTheWidestFormat) {
  std::mt19937_64 draw(2);
  gmp_randstate_t state;
  gmp_randinit_mt(state);
  for (const auto& fp : {kiln::ieee(15, 112), kiln::fpLib(15, 112), kiln::ieee(5, 63)}) {
    for (int i = 0; i < 200; ++i) {
      util::MPZ fraction;
      mpz_urandomb(fraction.get(), state, static_cast<mp_bitcnt_t>(fp.frac));
      const long top = (1L << fp.exp) - 1;
      const long exponent = 1 + static_cast<long>(draw() % (top - 1));
      Real x(fp.frac + 1 + static_cast<int>(draw() % 100));  // limbs below the format
      mpfr_set_z_2exp(x.get(), (fraction + util::MPZ::powerOfTwo(fp.frac)).get(),
                      exponent - (top >> 1) - fp.frac, MPFR_RNDN);
      mpfr_neg(x.get(), x.get(), MPFR_RNDN);
      const util::MPZ head((fp.is_fp_lib ? 3L : 1L) << fp.exp | exponent);
      EXPECT_EQ(packFloatingPointToMPZ(x.get(), fp, {}), (head << fp.frac) + fraction);
    }
  }
  gmp_randclear(state);
}

TEST(Packing, EndsTheRunOnANumberOutOfRange) {
  const auto packs = [](double x, bool subnormals) {
    TestingOptions t;
    t.subnormals = subnormals;
    return packFloatingPointToMPZ(real(x).get(), kiln::ieee(8, 23), t);
  };
  const char* message = "packFloatingPointToMPZ input is out of FP range";
  EXPECT_EQ(packs(std::ldexp(1, -149), true), util::MPZ(1));
  EXPECT_EXIT(packs(std::ldexp(1, -150), true), testing::ExitedWithCode(255), message);
  EXPECT_EXIT(packs(std::ldexp(1, -127), false), testing::ExitedWithCode(255), message);
  EXPECT_EXIT(packs(std::ldexp(1, 128), true), testing::ExitedWithCode(255), message);
  EXPECT_EXIT(packIEEEToUINT(real(std::ldexp(1, -127)).get(), 8, 23, false),
              testing::ExitedWithCode(255), "Error in : packFloatingPointToUINT");
}

TEST(Packing, TruncatesFixedPointTowardZeroAndClamps) {
  for (const bool sign : {false, true}) {
    for (const int fraction : {-2, 0, 3, 9}) {
      const kiln::FixedPoint fx(5, fraction, sign);
      for (int eighths = -256; eighths <= 8 * 40; ++eighths) {
        const long units = eighths / 8;
        const Real x = real(std::ldexp(eighths, -3 - fraction));
        const long expected = units < 0 ? (sign ? units + 32 : 0) : std::min(units, 31L);
        EXPECT_EQ(packFixedPointToMPZ(x.get(), fx, 200), util::MPZ(expected)) << eighths;
        NumValue pattern;
        pattern.pattern = util::MPZ(expected);
        const long decoded = sign && expected > 15 ? expected - 32 : expected;
        EXPECT_EQ(mpfr_get_d(decodeMPZToMPFR(pattern, fx).real.get(), MPFR_RNDN),
                  std::ldexp(decoded, -fraction));
        if (units > -32 && units < 32) {
          EXPECT_EQ(packFixedPointToUINT(x.get(), fx), units < 0 ? units + 32 : units);
        }
      }
    }
  }
  EXPECT_EQ(packFixedPointToMPZ(real(NAN).get(), {5, 0, true}, 200), util::MPZ(0));
  EXPECT_EXIT(packFixedPointToMPZ(real(-33).get(), {5, 0, true}, 200), testing::ExitedWithCode(255),
              "ERROR: result is negative");
}

TEST(Packing, KeepsEveryBitOfWideFixedPoint) {
  gmp_randstate_t state;
  gmp_randinit_mt(state);
  for (const int width : {63, 64, 65, 128, 1024, 1500}) {
    for (int i = 0; i < 50; ++i) {
      util::MPZ number;
      mpz_urandomb(number.get(), state, static_cast<mp_bitcnt_t>(width - 1));
      Real x(width);
      mpfr_set_z_2exp(x.get(), number.get(), -7, MPFR_RNDN);
      mpfr_neg(x.get(), x.get(), MPFR_RNDN);
      EXPECT_EQ(packFixedPointToMPZ(x.get(), {width, 7, true}, 100),
                (-number).lowBits(static_cast<unsigned long>(width)));
    }
  }
  gmp_randclear(state);
}

TEST(Packing, DecodersKeepTheirWayWithExponentFieldZero) {
  NumValue pattern;
  pattern.pattern = util::MPZ(0x80000005L);
  const NumValue decoded = decodeMPZAsFPIEEEToMPFR(pattern, kiln::ieee(8, 23));
  EXPECT_TRUE(mpfr_zero_p(decoded.real.get()) && mpfr_signbit(decoded.real.get()));
  EXPECT_EQ(mpfr_get_d(packSINTtoIEEE(0x00400000, 8, 23).get(), MPFR_RNDN),
            1.5 * std::ldexp(1, -127));
  EXPECT_TRUE(mpfr_nan_p(packSINTtoIEEE(0xff800001, 8, 23).get()));
}

TEST(Packing, KnowsTheEndsOfEachFormat) {
  for (const auto& fp : kSmall) {
    const unsigned infinity = ((1u << fp.exp) - 1) << fp.frac;
    const unsigned top = fp.is_fp_lib ? (1u << (fp.exp + fp.frac)) - 1 : infinity - 1;
    EXPECT_EQ(mpfr_get_d(largestFP(fp.exp, fp.frac, fp.is_fp_lib).get(), MPFR_RNDN),
              valueOf(top, fp));
    EXPECT_EQ(mpfr_get_d(smallestFP(fp.exp, fp.frac, fp.is_fp_lib, false).get(), MPFR_RNDN),
              valueOf(fp.is_fp_lib ? 0 : 1u << fp.frac, fp));
    if (fp.is_fp_lib) continue;
    EXPECT_EQ(mpfr_get_d(smallestFP(fp.exp, fp.frac, false, true).get(), MPFR_RNDN),
              valueOf(1, fp));
  }
}

}  // namespace
