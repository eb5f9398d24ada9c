#include "backend/functions/fixed_to_fp.h"

#include "backend/functions/conversion_test_support.h"

namespace functions::testing {
namespace {

const FixedPoint kDirection(2, 0, false), kFlags(5, 0, false);

// The conversions of one port to one format: each rounding by itself and by a port.
class Conversions {
 public:
  Conversions(const FixedPoint& in, const FloatingPoint& out, bool subnormals)
      : in(in), out{out, subnormals, subnormals} {
    const auto make = [&](std::vector<kiln::Type> from, std::vector<kiln::Type> to, int mode,
                          int dynamic) {
      const int flags = to.size() > 1;
      units.push_back(std::make_unique<Conversion>(
          "DMFxPToFP", Signature{from, to, {{out.exp, out.frac, mode, flags, dynamic, subnormals}}},
          subnormals));
    };
    for (int mode = 0; mode < 5; ++mode) make({in}, {out}, mode, 0);
    make({in}, {out, kFlags}, 1, 0);
    make({in, kDirection}, {out, kFlags}, 1, 1);
  }

  bool check(const MPZ& pattern) {
    const Exact x = exactOf(pattern, in);
    bool right = true;
    constexpr RoundMode kNumberedModes[] = {RoundMode::kTowardZero, RoundMode::kNearestEven,
                                            RoundMode::kNearestAway, RoundMode::kUp,
                                            RoundMode::kDown};
    for (std::size_t i = 0; i < 5; ++i)
      right = units[i]->check({pattern}, {owedFloat(x, out, kNumberedModes[i], false).pattern}) &&
              right;
    const Owed nearest = owedFloat(x, out, RoundMode::kNearestEven, false);
    right = units[5]->check({pattern}, {nearest.pattern, nearest.flags}) && right;
    for (int i = 0; i < 4; ++i) {
      const Owed owed = owedFloat(x, out, kModes[i], true);
      right = units[6]->check({pattern, i}, {owed.pattern, owed.flags}) && right;
    }
    return right;
  }

 private:
  FixedPoint in;
  Port out;
  std::vector<std::unique_ptr<Conversion>> units;
};

void checkAll(const FixedPoint& in, const FloatingPoint& out, bool subnormals) {
  Conversions conversions(in, out, subnormals);
  forAllPatterns(in.width(), [&](const MPZ& pattern) { return conversions.check(pattern); });
}

TEST(FixedToFloat, AllPatternsOf16Bits) {
  for (const auto& [in, out, subnormals] : {std::tuple{FixedPoint(16, 0, true), ieee(5, 10), true},
                                            {FixedPoint(16, 30, true), ieee(5, 10), true},
                                            {FixedPoint(16, 0, false), ieee(5, 10), false},
                                            {FixedPoint(16, 8, false), ieee(8, 7), false},
                                            {FixedPoint(16, 12, true), ieee(4, 3), true},
                                            {FixedPoint(16, 5, true), ieee(8, 23), false}})
    checkAll(in, out, subnormals);
}

// Every place that the digits can have against the range of small formats.
TEST(FixedToFloat, AllPatternsOfSmallPortsAtEveryPlace) {
  for (const auto& out : {ieee(2, 1), ieee(3, 2), ieee(4, 3), ieee(3, 9)})
    for (const bool subnormals : {false, true})
      for (const int width : {1, 2, 5, 8})
        for (const int fraction : {-65536, -9, -2, 0, 1, 2, 3, 5, 7, 8, 10, 14, 17, 65536})
          for (const bool isSigned : {false, true})
            checkAll(FixedPoint(width, fraction, isSigned), out, subnormals);
}

TEST(FixedToFloat, HardAndDrawnNumbersOfWidePorts) {
  unsigned seed = 1;
  for (const auto& out : {ieee(5, 10), ieee(8, 23), ieee(11, 52), ieee(15, 112)})
    for (const auto& in :
         {FixedPoint(32, 0, true), FixedPoint(64, 20, false), FixedPoint(256, 255, true),
          FixedPoint(256, 0, false), FixedPoint(80, 160, true), FixedPoint(200, 1160, true)})
      for (const bool subnormals : {false, true}) {
        Conversions conversions(in, out, subnormals);
        Draws draws(seed++);
        checkEach(300, [&](int i) {
          // Any length, and ties and their neighbours below a significand.
          MPZ n = draws.bits(1 + draws.below(in.width()));
          const int below = static_cast<int>(n.bitLength()) - (out.frac + 1);
          if (i % 2 == 0 && below > 0) {
            n = n >> static_cast<unsigned long>(below - 1);
            if (i % 4 == 0) n = n | MPZ(1);
            n = (n << static_cast<unsigned long>(below - 1)) + MPZ(draws.below(3) - 1);
          }
          if (draws.below(2) == 1) n = -n;
          return conversions.check(n.lowBits(in.width()));
        });
        for (const MPZ& n : {MPZ(0), MPZ(1), MPZ(-1), MPZ::powerOfTwo(in.width() - 1),
                             MPZ::allOnes(in.width() - 1)})
          conversions.check(n.lowBits(in.width()));
      }
}

// A number never set is 0, and what no port carries is held within its limits.
TEST(FixedToFloat, ReadsAnyNumber) {
  const UnitRow* row = findUnit("DMFxPToFP");
  const Signature signature{{FixedPoint(8, 4, true)}, {ieee(8, 23)}, {{8, 23, 1}}};
  struct Case {
    double input, result;
  };
  for (const auto& [input, result] : {Case{1.99, 1.9375},
                                      {-1.99, -1.9375},
                                      {100, 7.9375},
                                      {-100, -8},
                                      {1e300, 7.9375},
                                      {-HUGE_VAL, -8},
                                      {0.01, 0},
                                      {NAN, 0}}) {
    std::vector<NumValue> inputs(1), results;
    mpfr_set_d(inputs[0].real.prepare(53), input, MPFR_RNDN);
    row->evaluate(signature, results, inputs, {24}, {MPFR_RNDN}, false);
    EXPECT_EQ(mpfr_get_d(results[0].real.get(), MPFR_RNDN), result) << input;
    EXPECT_EQ(mpfr_signbit(results[0].real.get()) != 0, std::signbit(result)) << input;
  }
}

}  // namespace
}  // namespace functions::testing
