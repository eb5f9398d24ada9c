#include "backend/functions/fp_to_fixed.h"

#include "backend/functions/conversion_test_support.h"

namespace functions::testing {
namespace {

const FixedPoint kSelect(1, 0, false), kDirection(2, 0, false), kFlags(5, 0, false);

// The conversions of one format to one port: each rounding by itself, by a select and by a port.
class Conversions {
 public:
  Conversions(const FloatingPoint& in, const FixedPoint& out, bool subnormals)
      : in{in, subnormals}, out(out) {
    for (const auto& [number, mode] : kNumberedModes)
      fixed.emplace_back(std::make_unique<Conversion>(
          "DMFPToFxP", Signature{{in}, {out, kFlags}, {variant(0, number)}}, subnormals));
    tied = make({in}, {out}, variant(1, 3));
    selected = make({in, kSelect}, {out}, variant(1, 3));
    truth = make({in}, {out, kFlags}, variant(0, 6));
    directed = std::make_unique<Conversion>(
        "DMFPToFXPExpert", Signature{{in, kDirection}, {out, kFlags}, {variant(1, 0)}}, subnormals);
  }

  bool check(const MPZ& pattern) {
    const Exact x = exactOf(pattern, in);
    bool right = true;
    const auto owedBy = [&](RoundMode mode) { return owedFixed(x, out, mode); };
    for (std::size_t i = 0; i < std::size(kNumberedModes); ++i) {
      const Owed owed = owedBy(kNumberedModes[i].second);
      right = fixed[i]->check({pattern}, {owed.pattern, owed.flags}) && right;
    }
    const MPZ cut = owedBy(RoundMode::kTowardZero).pattern;
    right = tied->check({pattern}, {cut}) && right;
    right = selected->check({pattern, 0}, {cut}) && right;
    right = selected->check({pattern, 1}, {owedBy(RoundMode::kNearestAway).pattern}) && right;
    for (int i = 0; i < 4; ++i) {
      const Owed owed = owedBy(kModes[i]);
      right = directed->check({pattern, i}, {owed.pattern, owed.flags}) && right;
    }
    return checkTruth(pattern, x) && right;
  }

 private:
  bool checkTruth(const MPZ& pattern, const Exact& x) {
    const bool isZero = x.kind == Exact::kFinite && x.magnitude.isZero();
    unsigned flags = isZero ? kIsZero : 0;
    if (x.kind == Exact::kInfinite) flags |= kOverflows;
    if (x.kind == Exact::kNaN) flags |= kIsNaN;
    if (!isZero && out.sign() && out.width() == 1) flags |= kIsNegative;
    return truth->check({pattern}, {isZero ? 0 : 1, MPZ(flags)});
  }
  std::vector<std::int64_t> variant(int type, int mode) const {
    return {in.format.exp, in.format.frac, out.width(), out.fraction(), out.sign(), type, mode};
  }
  std::unique_ptr<Conversion> make(std::vector<kiln::Type> from, std::vector<kiln::Type> to,
                                   std::vector<std::int64_t> numbers) const {
    return std::make_unique<Conversion>("DMFPToFxP", Signature{from, to, {numbers}}, in.subnormals);
  }

  static constexpr std::pair<int, RoundMode> kNumberedModes[] = {{0, RoundMode::kTowardZero},
                                                                 {1, RoundMode::kNearestAway},
                                                                 {2, RoundMode::kNearestEven},
                                                                 {4, RoundMode::kDown},
                                                                 {5, RoundMode::kUp}};
  Port in;
  FixedPoint out;
  std::vector<std::unique_ptr<Conversion>> fixed;
  std::unique_ptr<Conversion> tied, selected, truth, directed;
};

void checkAll(const FloatingPoint& in, const FixedPoint& out, bool subnormals) {
  Conversions conversions(in, out, subnormals);
  forAllPatterns(in.width, [&](const MPZ& pattern) { return conversions.check(pattern); });
}

TEST(FloatToFixed, AllPatternsOf16Bits) {
  for (const auto& [in, out, subnormals] : {std::tuple{ieee(5, 10), FixedPoint(16, 8, true), true},
                                            {ieee(5, 10), FixedPoint(11, 16, false), true},
                                            {ieee(8, 7), FixedPoint(8, 0, true), false},
                                            {ieee(8, 7), FixedPoint(20, -4, false), false}})
    checkAll(in, out, subnormals);
}

// Every place that the binary point can have against the digits of small formats.
TEST(FloatToFixed, AllPatternsOfSmallFormatsToPortsOfEveryPlace) {
  for (const auto& in : {ieee(2, 1), ieee(3, 2), ieee(4, 3), ieee(3, 5)})
    for (const bool subnormals : {false, true})
      for (const int width : {1, 2, 3, 8, 19})
        for (const int fraction : {-40, -9, -5, -1, 0, 1, 2, 6, 11, 18, 60})
          for (const bool isSigned : {false, true})
            checkAll(in, FixedPoint(width, fraction, isSigned), subnormals);
}

// Numbers beside the limits of the port, ties, and the ends of the format.
TEST(FloatToFixed, HardAndDrawnNumbersOfLargeFormats) {
  unsigned seed = 1;
  for (const auto& in : {ieee(8, 23), ieee(11, 52), ieee(15, 112), ieee(2, 112)})
    for (const auto& out :
         {FixedPoint(32, 16, true), FixedPoint(8, 0, false), FixedPoint(64, 0, true),
          FixedPoint(256, 128, true), FixedPoint(24, 160, false), FixedPoint(16, -120, true)})
      for (const bool subnormals : {false, true}) {
        Conversions conversions(in, out, subnormals);
        const Port port{in, subnormals};
        Draws draws(seed++);
        const std::vector<kiln::Type> types{in};
        checkEach(400, [&](int i) {
          MPZ pattern = draws.row(types)[0];
          if (i % 2 == 0) {
            // k + 1/2 for k of few bits or beside the port's end, and its neighbours.
            const int bits = 1 + draws.below(out.width());
            const MPZ k =
                i % 4 == 0 ? MPZ::powerOfTwo(bits) - MPZ(draws.below(3)) : draws.bits(bits);
            Exact x{.negative = draws.below(2) == 1,
                    .magnitude = (k << 1) + MPZ(draws.below(2)),
                    .exponent = -out.fraction() - 1};
            pattern = owedFloat(x, port, RoundMode::kNearestEven, true).pattern;
            const MPZ moved = pattern + MPZ(draws.below(3) - 1);
            if (moved.sign() >= 0) pattern = moved.lowBits(in.width);
          }
          return conversions.check(pattern);
        });
      }
}

// Far from all digits the circuit stays small, and right.
TEST(FloatToFixed, PortsFarFromTheNumbers) {
  for (const bool subnormals : {false, true})
    for (const int fraction : {-65536, -3000, 3000, 65536})
      for (const int width : {5, 40}) {
        checkAll(ieee(4, 3), FixedPoint(width, fraction, true), subnormals);
        checkAll(ieee(3, 2), FixedPoint(width, fraction, false), subnormals);
        Conversion unit(
            "DMFPToFxP",
            {{ieee(4, 3)}, {FixedPoint(width, fraction, true)}, {{4, 3, 0, 0, 0, 0, 1}}},
            subnormals);
        EXPECT_LT(logicBits(unit.graph()), 1500) << fraction;
      }
}

TEST(FloatToFixed, WorkedCases) {
  struct Case {
    Exact x;
    int mode, q;
    unsigned flags;
  };
  // 8 bits, signed, no fraction; modes by the variant's number.
  const Case cases[] = {{{.negative = true, .magnitude = 300}, 1, -128, 0b10010},
                        {{.magnitude = 255, .exponent = -1}, 1, 127, 0b10000},  // 127.5
                        {{.magnitude = 255, .exponent = -1}, 0, 127, 0},
                        {{.negative = true, .magnitude = 257, .exponent = -1}, 2, -128, 0b00010},
                        {{.negative = true, .magnitude = 257, .exponent = -1}, 1, -128, 0b10010},
                        {{.magnitude = 5, .exponent = -1}, 2, 2, 0},
                        {{.magnitude = 5, .exponent = -1}, 1, 3, 0},
                        {{.negative = true, .magnitude = 1, .exponent = -2}, 1, 0, 0b01001},
                        {{.negative = true, .magnitude = 1, .exponent = -2}, 4, -1, 0b00010},
                        {{.kind = Exact::kNaN}, 1, 127, 0b00100},
                        {{.kind = Exact::kInfinite, .negative = true}, 5, -128, 0b10010}};
  const Port single{ieee(8, 23)};
  for (const auto& [x, mode, q, flags] : cases) {
    Conversion unit(
        "DMFPToFxP",
        {{single.format}, {FixedPoint(8, 0, true), kFlags}, {{8, 23, 8, 0, 1, 0, mode, 1, 0}}},
        false);
    const MPZ pattern = owedFloat(x, single, RoundMode::kTowardZero, false).pattern;
    unit.check({pattern}, {MPZ(q).lowBits(8), MPZ(flags)});
  }
}

}  // namespace
}  // namespace functions::testing
