#include "backend/functions/exact_test_support.h"

namespace functions::testing {
namespace {

ExactBench benchOf(const char* unit, const kiln::Type& operand, int codeBits, bool subnormals) {
  return ExactBench(
      unit,
      {{operand, operand, operand, FixedPoint(2, 0, false), FixedPoint(codeBits, 0, false)},
       {operand, FixedPoint(1, 0, false)},
       {}},
      subnormals);
}

// Every x, y, z and code, with every s where the code is `multiplexes`.
template <typename Check>
void checkAllCodes(int width, int codeBits, unsigned long multiplexes, Check check) {
  const unsigned long count = 1ul << width, codes = 1ul << codeBits;
  int wrong = 0;
  for (unsigned long row = 0; row < count * count * count * codes && wrong < 5; ++row) {
    const unsigned long code = row % codes, rest = row / codes;
    for (unsigned long select = 0; select < (code == multiplexes ? 4u : 1u); ++select)
      if (!check(std::vector<MPZ>{rest % count, rest / count % count, rest / count / count, select,
                                  code}))
        ++wrong;
  }
}

bool checkFloat(ExactBench& bench, const std::vector<MPZ>& patterns, const Port& port) {
  const Real x = bench.valueOf(patterns[0], 0), y = bench.valueOf(patterns[1], 1),
             z = bench.valueOf(patterns[2], 2);
  const auto select = patterns[3].toUint64(), code = patterns[4].toUint64();
  Real r(port.precision());
  mpfr_set_zero(r.get(), 1);
  bool truth = false;
  if (code < 2) r = extreme(x, y, code == 0);
  if (code == 2 || code == 3) r = extremeMagnitude(x, y, code == 2);
  if (code == 4) truth = mpfr_lessequal_p(x.get(), y.get());
  if (code == 5) truth = mpfr_less_p(x.get(), y.get());
  if (code == 6) truth = mpfr_equal_p(x.get(), y.get());
  if (code == 7) truth = mpfr_greaterequal_p(x.get(), y.get());
  if (code == 8) truth = mpfr_greater_p(x.get(), y.get());
  if (code == 9) truth = !mpfr_equal_p(x.get(), y.get());
  if (code == 10) r = extreme(extreme(x, y, false), z, true);
  if (code == 11) r = select == 0 ? x : select == 1 ? y : z;
  if (truth) mpfr_set_ui(r.get(), 1, MPFR_RNDN);
  return bench.check(patterns, {encode(r.get(), port), MPZ(truth ? 1 : 0)});
}

TEST(FloatMultiFunction, AllTriplesAndCodesOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {2, 2}})
    for (const bool subnormals : {false, true}) {
      const Port port{ieee(wE, wF), subnormals, subnormals};
      ExactBench bench = benchOf("DMFloatFusedMultiFunction", port.format, 4, subnormals);
      checkAllCodes(wE + wF + 1, 4, 11, [&](const std::vector<MPZ>& patterns) {
        return checkFloat(bench, patterns, port);
      });
    }
}

TEST(FloatMultiFunction, DrawnOperandsOfLargeFormats) {
  unsigned seed = 1;
  for (const auto& [wE, wF] : {std::pair{3, 2}, {8, 23}, {11, 52}})
    for (const bool subnormals : {false, true}) {
      const Port port{ieee(wE, wF), subnormals, subnormals};
      ExactBench bench = benchOf("DMFloatFusedMultiFunction", port.format, 4, subnormals);
      Draws draws(seed++);
      checkEach(20000, [&](int i) {
        std::vector<MPZ> row = draws.row(bench.in());
        if (i % 8 == 0) row[1] = row[0];
        return checkFloat(bench, row, port);
      });
    }
}

// Integers, bit by bit where the code works so.
bool checkInteger(ExactBench& bench, const std::vector<MPZ>& patterns, int width) {
  const MPZ &x = patterns[0], &y = patterns[1], &z = patterns[2];
  const auto select = patterns[3].toUint64(), code = patterns[4].toUint64();
  const MPZ xs = x.asSigned(width), ys = y.asSigned(width);
  int bits = 0;
  while (1 << bits < width) ++bits;
  const auto position = y.lowBits(bits).toUint64(), count = z.lowBits(bits).toUint64() + 1;
  const auto places = static_cast<unsigned long>(width);
  MPZ r;
  for (unsigned long i = 0; i < places && (code < 8 || code == 19); ++i) {
    const bool p = x.bit(i), q = y.bit(i), mirrored = x.bit(places - 1 - i);
    const bool picked = i < count && position + i < places && x.bit(position + i);
    const bool values[] = {p && q, p || q, p != q, !(p && q), !(p || q), p == q, !p, mirrored};
    if (code == 19 ? picked : values[code]) r += MPZ::powerOfTwo(i);
  }
  bool truth = false;
  if (code == 8) truth = x == y;
  if (code == 9) truth = x != y;
  if (code == 10) truth = xs >= ys;
  if (code == 11) truth = xs < ys;
  if (code == 12) r = xs < ys ? x : y;
  if (code == 13) r = xs < ys ? y : x;
  if (code == 14) r = (MPZ::powerOfTwo(width) - x).lowBits(width);
  if (code == 15) r = xs < MPZ(0) ? (MPZ::powerOfTwo(width) - x).lowBits(width) : x;
  if (code == 16) truth = x == MPZ::allOnes(width);
  if (code == 17) truth = x != MPZ(0);
  if (code == 18) r = select == 0 ? x : select == 1 ? y : z;
  if (truth) r = 1;
  return bench.check(patterns, {r, MPZ(truth ? 1 : 0)});
}

TEST(IntMultiFunction, AllOperandsAndCodesOfSmallWidths) {
  for (const int width : {1, 2, 3, 4}) {
    ExactBench bench = benchOf("DMFxPFusedMultiFunction", FixedPoint(width, 0, true), 5, false);
    checkAllCodes(width, 5, 18, [&](const std::vector<MPZ>& patterns) {
      return checkInteger(bench, patterns, width);
    });
  }
}

TEST(IntMultiFunction, DrawnOperandsOfLargeWidths) {
  unsigned seed = 1;
  for (const int width : {5, 8, 32, 33, 64, 200}) {
    ExactBench bench = benchOf("DMFxPFusedMultiFunction", FixedPoint(width, 0, true), 5, false);
    Draws draws(seed++);
    checkEach(10000, [&](int i) {
      std::vector<MPZ> row = draws.row(bench.in());
      // Equal operands, and those that wrap or reduce.
      if (i % 6 == 0) row[1] = row[0];
      if (i % 16 == 1) row[0] = MPZ::powerOfTwo(width - 1);
      if (i % 16 == 2) row[0] = MPZ::allOnes(width);
      if (i % 16 == 3) row[0] = 0;
      return checkInteger(bench, row, width);
    });
  }
}

}  // namespace
}  // namespace functions::testing
