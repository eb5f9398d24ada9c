#include "backend/functions/exact_test_support.h"

namespace functions::testing {
namespace {

const kiln::Type kBit = FixedPoint(1, 0, false), kSelect = FixedPoint(3, 0, false);

// One word of the family with the results that it owes for the values of its operands.
struct OrderCase {
  const char* unit;
  std::vector<std::int64_t> numbers;
  int selectBits;
  // The operand owed, or the truth: by the numbers and the select.
  Real (*number)(const OrderCase&, const Real& x, const Real& y, unsigned select);
  bool (*truth)(const OrderCase&, const Real& x, const Real& y, unsigned select);
};

Real ownExtreme(const OrderCase& c, const Real& x, const Real& y, unsigned) {
  const bool wantsLeast = c.numbers[2] == 0;
  return c.numbers[3] != 0 ? extremeMagnitude(x, y, wantsLeast) : extreme(x, y, wantsLeast);
}
Real selectedExtreme(const OrderCase& c, const Real& x, const Real& y, unsigned select) {
  return c.numbers[2] != 0 ? extremeMagnitude(x, y, select == 0) : extreme(x, y, select == 0);
}

// -2 to 3: <, <=, =, >=, >, !=
bool isTrue(long comparison, const Real& x, const Real& y) {
  const int order = mpfr_cmp(x.get(), y.get());
  const bool truths[] = {order<0, order <= 0, order == 0, order >= 0, order> 0, order != 0};
  return truths[comparison + 2];
}
bool hasNan(const Real& x, const Real& y) { return mpfr_nan_p(x.get()) || mpfr_nan_p(y.get()); }
bool ownTruth(const OrderCase& c, const Real& x, const Real& y, unsigned) {
  const bool ordered = c.numbers[4] != 0;
  if (hasNan(x, y)) return !ordered || c.numbers[2] == 3;
  return isTrue(c.numbers[2], x, y);
}
bool selectedTruth(const OrderCase&, const Real& x, const Real& y, unsigned select) {
  return select < 5 && !hasNan(x, y) && isTrue(static_cast<long>(select) - 2, x, y);
}

std::vector<OrderCase> cases() {
  std::vector<OrderCase> list;
  for (const int greatest : {0, 1})
    for (const int byMagnitude : {0, 1})
      list.push_back({"DMFloatMinMax", {8, 23, greatest, byMagnitude, 0}, 0, ownExtreme, nullptr});
  for (const int byMagnitude : {0, 1})
    list.push_back({"DMFloatFusedMinMax", {8, 23, byMagnitude}, 1, selectedExtreme, nullptr});
  for (const int comparison : {-2, -1, 0, 1, 2, 3})
    for (const int ordered : {0, 1})
      list.push_back({"DMFloatCompare", {8, 23, comparison, 0, ordered}, 0, nullptr, ownTruth});
  list.push_back({"DMFloatCompareFused", {8, 23, 0}, 3, nullptr, selectedTruth});
  return list;
}

Signature signatureOf(const OrderCase& c, const kiln::Type& operand) {
  Signature signature{{operand, operand}, {c.number ? operand : kBit}, {c.numbers}};
  if (c.selectBits > 0) signature.in.push_back(c.selectBits == 1 ? kBit : kSelect);
  return signature;
}

// Every case on `format`: all rows, or as many drawn ones.
void checkFormat(const FloatingPoint& format, bool subnormals, int count) {
  SCOPED_TRACE(
      fmt::format("{} {} {}", format.is_fp_lib ? "FPLib" : "IEEE", format.exp, format.frac));
  unsigned seed = 1;
  for (const OrderCase& c : cases()) {
    ExactBench bench(c.unit, signatureOf(c, format), subnormals);
    const auto owed = [&](const std::vector<MPZ>& patterns) -> std::vector<MPZ> {
      const Real x = bench.valueOf(patterns[0], 0), y = bench.valueOf(patterns[1], 1);
      const auto select = patterns.size() > 2 ? static_cast<unsigned>(patterns[2].toUint64()) : 0;
      if (c.truth) return {MPZ(c.truth(c, x, y, select) ? 1 : 0)};
      return {encode(c.number(c, x, y, select).get(), bench.port(format))};
    };
    if (count == 0)
      checkAllExact(bench, owed);
    else
      checkDrawnExact(bench, count, seed++, owed);
  }
}

TEST(FloatOrder, AllPairsOfSmallFormats) {
  for (const bool subnormals : {false, true}) {
    for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}, {4, 3}})
      checkFormat(ieee(wE, wF), subnormals, 0);
    for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}})
      checkFormat(fpLib(wE, wF), subnormals, 0);
  }
}

TEST(FloatOrder, DrawnPairsOfLargeFormats) {
  for (const bool subnormals : {false, true})
    for (const auto& [wE, wF] : {std::pair{6, 9}, {8, 23}, {11, 52}, {2, 112}})
      for (const auto& format : {ieee(wE, wF), fpLib(wE, wF)})
        checkFormat(format, subnormals, 2000);
}

// Where a second reading would be thinkable, written out.
TEST(FloatOrder, SignsOfZeroEqualMagnitudesAndNaNs) {
  const MPZ zero = 0, minusZero = MPZ::powerOfTwo(31), one(0x3F800000ul), minusOne(0xBF800000ul),
            nan(0x7FC12345ul), ownNan(0x7FC00000ul), subnormal(3ul);
  struct Row {
    int greatest, byMagnitude;
    MPZ x, y, result;
  };
  const Row rows[] = {{0, 0, zero, minusZero, minusZero},
                      {1, 0, minusZero, zero, zero},
                      {0, 1, one, minusOne, minusOne},
                      {1, 1, minusOne, one, one},
                      {0, 1, minusZero, one, minusZero},
                      {1, 1, zero, minusOne, minusOne},
                      {0, 0, nan, one, one},
                      {1, 1, minusOne, nan, minusOne},
                      {0, 0, nan, nan, ownNan},
                      {1, 0, zero, subnormal, subnormal}};
  for (const Row& row : rows) {
    const Signature signature{
        {ieee(8, 23), ieee(8, 23)}, {ieee(8, 23)}, {{8, 23, row.greatest, row.byMagnitude, 0}}};
    ExactBench bench("DMFloatMinMax", signature, true);
    EXPECT_TRUE(bench.check({row.x, row.y}, {row.result}));
  }
  // Without gradual underflow a subnormal is a zero.
  ExactBench flushing("DMFloatMinMax",
                      {{ieee(8, 23), ieee(8, 23)}, {ieee(8, 23)}, {{8, 23, 1, 0, 0}}}, false);
  EXPECT_TRUE(flushing.check({subnormal, minusZero}, {zero}));
  ExactBench equal("DMFloatCompare", {{ieee(8, 23), ieee(8, 23)}, {kBit}, {{8, 23, 0, 0, 1}}},
                   false);
  EXPECT_TRUE(equal.check({subnormal, minusZero}, {MPZ(1)}));
}

TEST(FloatOrder, RefusesPortsThatItDoesNotHave) {
  const auto refusal = [](const OrderCase& c, Signature signature) {
    Request request;
    request.signature = std::move(signature);
    return findUnit(c.unit)->refuses(request).value_or("");
  };
  for (const OrderCase& c : cases()) {
    EXPECT_EQ(refusal(c, signatureOf(c, ieee(1, 5))), "wE 1 is out of range 2 to 15");
    Signature mixed = signatureOf(c, ieee(8, 23));
    mixed.in[1] = fpLib(8, 23);
    EXPECT_EQ(refusal(c, mixed), "its floating-point ports are of different forms");
    mixed.in.pop_back();
    EXPECT_NE(refusal(c, mixed), "");
  }
}

}  // namespace
}  // namespace functions::testing
