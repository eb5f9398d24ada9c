#include "backend/functions/fp_to_fp.h"

#include "backend/functions/conversion_test_support.h"

namespace functions::testing {
namespace {

const FixedPoint kClass(3, 0, false);

// The conversions of one format to another, by the number of the rounding.
class Conversions {
 public:
  Conversions(const FloatingPoint& in, const FloatingPoint& out, bool subnormals)
      : in{in, subnormals}, out{out, subnormals, subnormals} {
    for (int rounding = 0; rounding < 4; ++rounding)
      units.push_back(std::make_unique<Conversion>(
          "DMFPIEEEToFPIEEE",
          Signature{{in}, {out}, {{in.exp, in.frac, out.exp, out.frac, rounding}}}, subnormals));
  }

  bool check(const MPZ& pattern) {
    constexpr RoundMode kModes[] = {RoundMode::kNearestAway, RoundMode::kNearestEven,
                                    RoundMode::kTowardZero, RoundMode::kNearestAway};
    const Exact x = exactOf(pattern, in);
    bool right = true;
    for (std::size_t i = 0; i < 4; ++i)
      right = units[i]->check({pattern}, {owedFloat(x, out, kModes[i], false).pattern}) && right;
    return right;
  }

 private:
  Port in, out;
  std::vector<std::unique_ptr<Conversion>> units;
};

TEST(FloatToFloat, AllPatternsOfSmallFormats) {
  const FloatingPoint formats[] = {ieee(2, 1), ieee(2, 5), ieee(3, 2), ieee(4, 3),
                                   ieee(3, 6), ieee(5, 1), ieee(6, 3)};
  for (const auto& in : formats)
    for (const auto& out : formats)
      for (const bool subnormals : {false, true}) {
        Conversions conversions(in, out, subnormals);
        forAllPatterns(in.width, [&](const MPZ& pattern) { return conversions.check(pattern); });
      }
}

TEST(FloatToFloat, AllPatternsOf16Bits) {
  for (const auto& [in, out, subnormals] : {std::tuple{ieee(5, 10), ieee(8, 7), true},
                                            {ieee(8, 7), ieee(5, 10), true},
                                            {ieee(5, 10), ieee(4, 3), true},
                                            {ieee(8, 7), ieee(4, 3), false}}) {
    Conversions conversions(in, out, subnormals);
    forAllPatterns(in.width, [&](const MPZ& pattern) { return conversions.check(pattern); });
  }
}

TEST(FloatToFloat, DrawnNumbersOfLargeFormats) {
  const FloatingPoint formats[] = {ieee(5, 10),   ieee(8, 23),  ieee(11, 52),
                                   ieee(15, 112), ieee(2, 112), ieee(15, 1)};
  unsigned seed = 1;
  for (const auto& in : formats)
    for (const auto& out : formats)
      for (const bool subnormals : {false, true}) {
        Conversions conversions(in, out, subnormals);
        const Port from{in, subnormals}, to{out, subnormals};
        Draws draws(seed++);
        checkEach(400, [&](int i) {
          MPZ pattern = draws.number(in);
          if (i % 2 == 0 && in.frac > out.frac) {
            // The middle between two numbers of the output, or beside it.
            Exact x = exactOf(draws.number(out), to);
            x.magnitude = (x.magnitude << 1) + MPZ(1);
            x.exponent -= 1;
            pattern =
                owedFloat(x, from, RoundMode::kNearestEven, true).pattern + MPZ(draws.below(3) - 1);
            if (pattern.sign() < 0) pattern = 0;
          }
          return conversions.check(pattern.lowBits(in.width));
        });
      }
}

// Every class of number goes over; with subnormals those of the narrow format become regular.
TEST(FloatCast, WidensAllPatternsAndTellsTheirClass) {
  for (const auto& in : {ieee(2, 1), ieee(4, 3), ieee(5, 7)})
    for (const bool subnormals : {false, true}) {
      const FloatingPoint out = ieee(in.exp + 2, in.frac);
      Conversion unit("DMFloatCastIEEEtoFPC", {{in}, {out, kClass}, {{in.exp, in.frac, 0}}},
                      subnormals);
      forAllPatterns(in.width, [&](const MPZ& pattern) {
        const Exact x = exactOf(pattern, {in, subnormals});
        const int kind = x.kind == Exact::kNaN        ? 4
                         : x.kind == Exact::kInfinite ? 2
                         : x.magnitude.isZero()       ? 1
                                                      : 0;
        const Port port{out, subnormals, subnormals};
        return unit.check({pattern},
                          {owedFloat(x, port, RoundMode::kTowardZero, false).pattern, kind});
      });
    }
}

TEST(FloatCast, NarrowsAllPatternsUnderEveryClass) {
  for (const auto& in : {ieee(4, 1), ieee(5, 3), ieee(6, 4)})
    for (const bool subnormals : {false, true})
      for (const RoundMode mode : kModes) {
        const FloatingPoint out = ieee(in.exp - 2, in.frac);
        Conversion unit("DMFloatCastFPCToIEEE", {{in, kClass}, {out}, {{in.exp, in.frac, 0}}},
                        subnormals, mode);
        forAllPatterns(in.width + 3, [&](const MPZ& row) {
          const MPZ pattern = row >> 3;
          const int kind = static_cast<int>(row.lowBits(3).toUint64());
          Exact x = exactOf(pattern, {in, subnormals});
          if (x.kind == Exact::kNaN) x.negative = false;
          if (kind != 0) {
            x.magnitude = 0;
            x.kind = kind >= 4 ? Exact::kNaN : kind >= 2 ? Exact::kInfinite : Exact::kFinite;
          }
          return unit.check({pattern, kind},
                            {owedFloat(x, {out, subnormals, subnormals}, mode, false).pattern},
                            directionOf(mode));
        });
      }
}

}  // namespace
}  // namespace functions::testing
