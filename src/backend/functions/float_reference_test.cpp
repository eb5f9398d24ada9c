#include "backend/functions/float_reference.h"

#include <gtest/gtest.h>

#include <cmath>

namespace functions {
namespace {

using kiln::fpLib;
using kiln::ieee;

NumValue number(double value) {
  NumValue result;
  mpfr_set_d(result.real.prepare(53), value, MPFR_RNDN);
  return result;
}

double read(double value, const kiln::FloatingPoint& port, bool subnormals) {
  Real result;
  readFloat(result, number(value), port, subnormals);
  return mpfr_get_d(result.get(), MPFR_RNDN);
}

TEST(FloatReference, ReadsWhatAPortCanCarry) {
  const auto half = ieee(5, 10);
  EXPECT_EQ(read(1 + 0x1p-11 + 0x1p-20, half, false), 1 + 0x1p-10);  // to nearest
  EXPECT_EQ(read(65520, half, false), HUGE_VAL);                     // above after rounding
  EXPECT_EQ(read(-65519, half, false), -65504);
  EXPECT_EQ(read(0x1.8p-15, half, true), 0x1.8p-15);
  EXPECT_EQ(read(0x1.8p-15, half, false), 0);
  EXPECT_TRUE(std::signbit(read(-0x1.8p-15, half, false)));
  EXPECT_EQ(read(0x1.8p-24, half, true), 0x1p-24);  // a subnormal is cut to its grid
  EXPECT_EQ(read(0x1.8p-25, half, true), 0);
}

// FPLib has a binade more at both ends; below it a number is what its pattern stands for.
TEST(FloatReference, ReadsFPLibPatterns) {
  const auto port = fpLib(5, 10);
  EXPECT_EQ(read(0x1.8p16, port, false), 0x1.8p16);
  EXPECT_EQ(read(0x1p17, port, false), HUGE_VAL);
  EXPECT_EQ(read(0x1.4p-15, port, false), 0x1.4p-15);
  EXPECT_EQ(read(0x1p-16, port, false), 0);
  EXPECT_EQ(read(0x1p-16, port, true), 0x1.8p-15);      // fraction 1000000000
  EXPECT_EQ(read(-0x1p-25, port, true), -0x1.004p-15);  // fraction 0000000001
}

TEST(FloatReference, RoundsOnceAtTheEdgeOfTheSubnormals) {
  const auto port = ieee(5, 10);
  NumValue result;
  const auto deliver = [&](double odd, mpfr_rnd_t rounding, bool tiesAway = false) {
    Real value(53);
    mpfr_set_d(value.get(), odd, MPFR_RNDN);
    deliverOdd(result, value.get(),
               {.port = port,
                .precision = 11,
                .rounding = rounding,
                .tiesAway = tiesAway,
                .subnormals = true});
    return mpfr_get_d(result.real.get(), MPFR_RNDN);
  };
  const double smallest = 0x1p-24;
  EXPECT_EQ(deliver(smallest / 2, MPFR_RNDN), 0);
  EXPECT_EQ(deliver(smallest / 2, MPFR_RNDN, true), smallest);
  EXPECT_EQ(deliver(0x1.001p-25, MPFR_RNDN), smallest);
  EXPECT_EQ(deliver(0x1p-40, MPFR_RNDU), smallest);
  EXPECT_EQ(deliver(-0x1p-40, MPFR_RNDU), 0);
  EXPECT_EQ(deliver(-0x1p-40, MPFR_RNDD), -smallest);
  EXPECT_EQ(deliver(0x1.8p-24, MPFR_RNDN), 2 * smallest);
  EXPECT_EQ(deliver(0x1.ffep-15, MPFR_RNDN), 0x1p-14);  // up into the normal numbers
}

TEST(FloatReference, LeavesTheCallersRangeAndSpreadsDoNotCares) {
  const mpfr_exp_t emin = mpfr_get_emin(), emax = mpfr_get_emax();
  mpfr_set_emin(-13);
  mpfr_set_emax(17);
  const UnitRow* row = findUnit("CFloatAdd");
  const Signature signature{{ieee(5, 10), ieee(5, 10)}, {ieee(5, 10)}, {}};
  std::vector<NumValue> results, inputs{number(65504), number(65504)};
  row->evaluate(signature, results, inputs, {11}, {MPFR_RNDD}, false);
  EXPECT_EQ(mpfr_get_d(results[0].real.get(), MPFR_RNDN), 2 * 65504.0);
  mpfr_set_emax(16);
  row->evaluate(signature, results, inputs, {11}, {MPFR_RNDU}, false);
  EXPECT_TRUE(mpfr_inf_p(results[0].real.get()));
  EXPECT_EQ(mpfr_get_emin(), -13);
  EXPECT_EQ(mpfr_get_emax(), 16);
  mpfr_set_emin(emin);
  mpfr_set_emax(emax);
  inputs[1].type = NumType::kDontCare;
  row->evaluate(signature, results, inputs, {11}, {MPFR_RNDN}, false);
  EXPECT_EQ(results[0].type, NumType::kDontCare);
  EXPECT_TRUE(mpfr_zero_p(results[0].real.get()));
}

}  // namespace
}  // namespace functions
