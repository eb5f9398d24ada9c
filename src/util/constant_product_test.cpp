#include "util/constant_product.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

struct Format {
  int width, fraction;
  bool isSigned;
  bool operator==(const Format&) const = default;
};

void PrintTo(const Format& format, std::ostream* out) {
  *out << (format.isSigned ? "s(" : "u(") << format.width << "," << format.fraction << ")";
}

Format outputFormat(double constant, Format in, int outputWidth, int constantBits = -1,
                    bool cropped = false) {
  mpfr_t value;
  mpfr_init2(value, 53);
  mpfr_set_d(value, constant, MPFR_RNDN);
  Format out{};
  util::constantMultiplierOutputType(value, in.width, in.fraction, in.isSigned, outputWidth,
                                     &out.width, &out.fraction, &out.isSigned, constantBits,
                                     cropped);
  EXPECT_EQ(mpfr_get_d(value, MPFR_RNDN), constant) << "the caller's constant stays";
  mpfr_clear(value);
  return out;
}

TEST(ConstantProduct, OutputFormatsWorkedOutByHand) {
  const Format u12{12, 0, false}, s4{4, 0, true};
  EXPECT_EQ(outputFormat(5, u12, 16), (Format{16, 1, false}));  // to 20475
  EXPECT_EQ(outputFormat(-5, u12, 8), (Format{8, -8, true}));   // from -20475
  EXPECT_EQ(outputFormat(-1, s4, 5), (Format{5, 0, true}));     // from -7 to 8
  EXPECT_EQ(outputFormat(1, s4, 4), (Format{4, 0, true}));      // from -8 to 7
  EXPECT_EQ(outputFormat(0, s4, 6), (Format{6, 5, true}));      // nothing but 0
  EXPECT_EQ(outputFormat(0, u12, 6), (Format{6, 6, false}));
  EXPECT_EQ(outputFormat(-0.0, u12, 6), (Format{6, 6, false}));
  EXPECT_EQ(outputFormat(0x1p-20, u12, 8), (Format{8, 16, false}));  // below 2^-8
  EXPECT_EQ(outputFormat(std::numeric_limits<double>::infinity(), s4, 6), (Format{6, 5, true}));
}

// 1.1111b becomes 2 in three bits, and a tie goes to the even neighbour.
TEST(ConstantProduct, TheConstantIsRoundedFirst) {
  const Format one{1, 0, false};
  EXPECT_EQ(outputFormat(1.9375, one, 8, 5), (Format{8, 7, false}));
  EXPECT_EQ(outputFormat(1.9375, one, 8, 3), (Format{8, 6, false}));
  EXPECT_EQ(outputFormat(7, one, 8, 2), (Format{8, 4, false}));   // 8
  EXPECT_EQ(outputFormat(13, one, 8, 1), (Format{8, 3, false}));  // 16
  EXPECT_EQ(outputFormat(5, one, 8, 1), (Format{8, 5, false}));   // 4
  EXPECT_EQ(outputFormat(5, one, 8, 0), (Format{8, 5, false}));
}

TEST(ConstantProduct, ACroppedResultTakesTheInputsFormat) {
  const Format in{9, 0, true};
  EXPECT_EQ(outputFormat(-3.5, in, 40, 2, true), in);
}

// Every product fits, and with one integer bit fewer some would not: all small inputs.
TEST(ConstantProduct, TheFormatIsTheTightestOneThatHoldsEveryProduct) {
  for (const double constant : {3.0, -3.0, 0.7, -0.7, 1.0, -1.0, 4.0, -4.0, 1e-3, -255.0})
    for (int width = 1; width <= 6; ++width)
      for (const int fraction : {-2, 0, 3})
        for (const bool isSigned : {false, true}) {
          const Format out = outputFormat(constant, {width, fraction, isSigned}, 10);
          const bool negative = isSigned || constant < 0;
          EXPECT_EQ(out.width, 10);
          EXPECT_EQ(out.isSigned, negative);
          const int integer = 10 - (negative ? 1 : 0) - out.fraction;
          bool fitsTighter = true;
          for (int n = isSigned ? -(1 << (width - 1)) : 0; n < 1 << (width - (isSigned ? 1 : 0));
               ++n) {
            const double product = std::ldexp(n, -fraction) * constant;
            EXPECT_TRUE(-std::ldexp(1, integer) <= product && product < std::ldexp(1, integer));
            const double half = std::ldexp(1, integer - 1);
            fitsTighter = fitsTighter && -half <= product && product < half;
          }
          EXPECT_FALSE(fitsTighter) << constant << " " << width << " " << fraction << isSigned;
        }
}

}  // namespace
