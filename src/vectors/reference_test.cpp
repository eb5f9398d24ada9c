#include "vectors/reference.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

NumValue valueOf(double x, int precision = 53) {
  NumValue v;
  mpfr_set_d(v.real.prepare(precision), x, MPFR_RNDN);
  return v;
}

double numberOf(const NumValue& v) { return mpfr_get_d(v.real.get(), MPFR_RNDN); }

PortSpecList singleAndFixed() {
  PortSpecList ports;
  ports.push_back("x", kiln::ieee(8, 23));
  ports.push_back("s", kiln::FixedPoint(8, 2, true));
  return ports;
}

// Two cycles that hand the first pattern through with its sign bit turned.
struct Negation final : ExecuteInterface {
  void Reset() override { held.assign(2, 0); }
  int inputToOutputLatency() const override { return 2; }
  void Execute(const std::vector<std::uint64_t>& inputs, bool valid, int channel,
               std::vector<std::uint64_t>& outputs) override {
    EXPECT_TRUE(valid && channel == 9);
    outputs[0] = held[1] ^ 0x80000000;
    held[1] = held[0];
    held[0] = inputs[0];
  }
  std::vector<std::uint64_t> held;
};

TEST(Reference, RunsTheModelThroughItsLatency) {
  const PortSpecList in = singleAndFixed();
  PortSpecList out;
  out.push_back("q", kiln::ieee(8, 23));
  Negation model;
  std::vector<NumValue> results;
  executeFunction({valueOf(1.5), valueOf(-1)}, in, results, out, model, 9);
  executeFunction({valueOf(-7), valueOf(-1)}, in, results, out, model, 9);
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(numberOf(results[0]), -1.5);
  EXPECT_EQ(numberOf(results[1]), 7);
}

TEST(Reference, FiltersEachKindOfOutput) {
  const PortSpecList ports = singleAndFixed();
  const double sixth = 1 + std::ldexp(1, -24);
  std::vector<NumValue> down = {valueOf(sixth), valueOf(0.3)};
  std::vector<NumValue> up = {valueOf(-0.0), valueOf(0.4)};
  std::vector<NumValue> nearest = {valueOf(5), valueOf(-0.125)};
  nearest[0].type = NumType::kDontCare;
  filterFixedPointOutputs(ports, down, up, nearest, {});
  filterFloatingPointOutputs(ports, down, up, nearest, {});
  EXPECT_EQ(numberOf(down[0]), 1);  // a tie, to even
  EXPECT_EQ(mpfr_get_prec(down[0].real.get()), 24);
  EXPECT_TRUE(std::signbit(numberOf(up[0])));
  EXPECT_TRUE(numberOf(nearest[0]) == 0 && !std::signbit(numberOf(nearest[0])));
  EXPECT_EQ(numberOf(down[1]), 0.3);
  EXPECT_EQ(numberOf(up[1]), 0.4);
  EXPECT_EQ(numberOf(nearest[1]), -0.25);  // half a place away from zero
}

TEST(Reference, CopiesAtThePrecisionOfThePort) {
  std::vector<NumValue> copies;
  copyNumValueVector(copies, {valueOf(1.0 / 3), valueOf(1.0 / 3)}, singleAndFixed(), {24, 200});
  EXPECT_EQ(numberOf(copies[0]), 1.0f / 3);
  EXPECT_EQ(numberOf(copies[1]), 1.0 / 3);
}

TEST(Reference, KeepsEnableHighAsOftenAsAsked) {
  int high = 0, low = 0;
  for (int i = 0; i < 5000; ++i) {
    EXPECT_TRUE(generateEnable(100));
    high += generateEnable(75);
    low += generateEnable(0);
  }
  EXPECT_NEAR(high, 5000 * 76 / 101, 150);
  EXPECT_GT(low, 20);
}

}  // namespace
