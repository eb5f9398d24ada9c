#include "backend/functions/fixed_mult.h"

#include <optional>

#include "backend/functions/integer_unit_test.h"

namespace functions {
namespace {

// What a result may show for the product n, `places` bits of which lie below its last place.
bool isAccepted(const MPZ& got, const MPZ& n, int places, const FixedPoint& out,
                const Accuracy& accuracy) {
  const MPZ low = lowestOf(out), high = highestOf(out);
  const auto held = [&](const MPZ& value) { return std::clamp(value, low, high); };
  const MPZ size = n.sign() < 0 ? -n : n;
  if (accuracy.kind != Accuracy::kWithin) {
    const MPZ nearest = floorOf(floorOf(size, places - 1) + MPZ(1), 1);
    return got == held(n.sign() < 0 ? -nearest : nearest);
  }
  const MPZ down = held(floorOf(n, places)), up = held(-floorOf(-n, places));
  // The exact value where it is one; else at bound 1 one of its neighbours.
  if (accuracy.ulps < 2) return got == down || got == up;
  const MPZ inner = n.sign() < 0 ? up : down, outer = n.sign() < 0 ? down : up;
  const int outward = n.sign() < 0 ? -1 : 1;
  for (int step = 0; step < static_cast<int>(accuracy.ulps); ++step)
    if (got == held(inner - MPZ(step * (inner.isZero() ? 1 : outward))) ||
        got == held(outer + MPZ(step * outward)))
      return true;
  // A product on the grid counts with its outer neighbour as the pair.
  return down == up && got == held(down + MPZ(static_cast<int>(accuracy.ulps) * outward));
}

struct Asked {
  FixedPoint out;
  Accuracy accuracy = {Accuracy::kWithin, 1};
  bool wholeProducts = false;
  Prices prices = {};
};

// Several products of the same factors in one circuit, and the reference.
class Bench {
 public:
  Bench(const FixedPoint& a, const FixedPoint& factor, const std::vector<Asked>& asked)
      : a(a), factor(factor), asked(asked) {
    std::vector<Request> requests(asked.size());
    for (std::size_t i = 0; i < asked.size(); ++i) {
      requests[i].signature = {{a, factor}, {asked[i].out}, {{0, 0}}};
      requests[i].accuracy = {asked[i].accuracy};
      requests[i].wholeProducts = asked[i].wholeProducts;
      requests[i].prices = asked[i].prices;
      requests[i].budgets = &budgets;
    }
    circuit.emplace("CFxPTruncMult", requests);
  }

  bool check(const MPZ& patternA, const MPZ& patternB) {
    const MPZ x = integerOf(patternA, a), y = integerOf(patternB, factor);
    const std::vector<MPZ> outputs = (*circuit)({patternA, patternB});
    bool right = true;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
      const FixedPoint& out = asked[i].out;
      const int places = a.fraction() + factor.fraction() - out.fraction();
      const MPZ got = integerOf(outputs[i], out);
      if (isAccepted(got, x * y, places, out, asked[i].accuracy)) continue;
      ADD_FAILURE() << a.width() << (a.sign() ? "s" : "u") << " x " << factor.width()
                    << (factor.sign() ? "s" : "u") << " to " << out.width() << "," << out.fraction()
                    << (out.sign() ? "s" : "u") << " at " << asked[i].accuracy.ulps
                    << " ulp: " << x.toText(10) << " * " << y.toText(10) << " gives "
                    << got.toText(10);
      right = false;
    }
    return right;
  }

  void checkAll() {
    for (unsigned long i = 0; i < 1ul << a.width(); ++i)
      for (unsigned long j = 0; j < 1ul << factor.width(); ++j) ASSERT_TRUE(check(i, j));
  }

  void checkCornersAndDraws(int draws) {
    const auto corners = [](int width) {
      const MPZ top = MPZ::powerOfTwo(static_cast<unsigned long>(width - 1));
      return std::vector<MPZ>{
          0, 1, top - MPZ(1), top, top + MPZ(1), MPZ::allOnes(static_cast<unsigned long>(width))};
    };
    for (const MPZ& x : corners(a.width()))
      for (const MPZ& y : corners(factor.width())) ASSERT_TRUE(check(x, y));
    gmp_randstate_t state;
    gmp_randinit_default(state);
    for (int draw = 0; draw < draws; ++draw) {
      MPZ x, y;
      const auto drawn = draw % 2 == 0 ? mpz_urandomb : mpz_rrandomb;
      drawn(x.get(), state, static_cast<mp_bitcnt_t>(a.width()));
      drawn(y.get(), state, static_cast<mp_bitcnt_t>(factor.width()));
      // Products with many zeros below are whole numbers of the result.
      if (draw % 3 == 0) x = (x >> 5) << 5;
      EXPECT_TRUE(check(x, y));
    }
    gmp_randclear(state);
  }

  // True when some circuit states that it leaves partial products out.
  bool leavesOut() const {
    for (const auto& budget : budgets)
      for (const auto& term : budget.terms())
        if (term.name.find("left out") != std::string::npos) return true;
    return false;
  }

 private:
  FixedPoint a, factor;
  std::vector<Asked> asked;
  arithmetic::ErrorBudgets budgets;
  std::optional<UnitCircuit> circuit;
};

// Blocks so small and dear that narrow products leave partial products out.
Prices smallBlocks() {
  Prices prices;
  prices.lutPerDsp = prices.lutPerFurtherDsp = 30;
  prices.dsp = {3, 2};
  return prices;
}

// The formats of the words: all fraction, all fraction behind a sign, and top bits of any product.
TEST(FixedMult, AllPatternsOfEightBitsToEveryWidth) {
  bool leftOut = false;
  for (const bool isSigned : {false, true}) {
    const FixedPoint factor(8, isSigned ? 7 : 8, isSigned);
    std::vector<Asked> asked;
    for (int width = 1; width <= 16; ++width)
      asked.push_back({FixedPoint(width, isSigned ? width - 1 : width, isSigned), kFaithful, false,
                       width % 2 == 0 ? smallBlocks() : Prices{}});
    Bench bench(factor, factor, asked);
    bench.checkAll();
    leftOut = leftOut || bench.leavesOut();
  }
  EXPECT_TRUE(leftOut);
}

TEST(FixedMult, AllPatternsOfNarrowFactorsAtEveryBound) {
  bool leftOut = false;
  for (const bool signA : {false, true})
    for (const bool signB : {false, true})
      for (const auto& [widthA, widthB] : {std::pair{1, 1}, {1, 4}, {5, 4}, {4, 6}}) {
        const FixedPoint a(widthA, 3, signA), factor(widthB, -1, signB);
        const bool isSigned = signA || signB;
        std::vector<Asked> asked;
        for (int width = 1; width <= widthA + widthB + 2; ++width)
          for (const Accuracy& accuracy : {kFaithful, kNearest, kTwo, kFive})
            for (const bool whole : {false, true})
              asked.push_back(
                  {{width, 2 + width - widthA - widthB, isSigned}, accuracy, whole, smallBlocks()});
        Bench bench(a, factor, asked);
        bench.checkAll();
        leftOut = leftOut || bench.leavesOut();
      }
  EXPECT_TRUE(leftOut);
}

// The square of -1 is the one product that a signed word holds back.
TEST(FixedMult, AllPatternsOfNarrowSignedWords) {
  for (const int widthA : {1, 2, 4})
    for (const int widthB : {1, 3, 5}) {
      std::vector<Asked> asked;
      for (int width = 1; width <= widthA + widthB + 1; ++width)
        for (const Accuracy& accuracy : {kFaithful, kNearest, kTwo, kFive})
          asked.push_back({{width, width - 1, true}, accuracy, false, smallBlocks()});
      Bench({widthA, widthA - 1, true}, {widthB, widthB - 1, true}, asked).checkAll();
    }
}

// Results that are narrower than the product on top, or of the other sign.
TEST(FixedMult, SaturatesInAnyFormat) {
  for (const bool signA : {false, true})
    for (const bool signB : {false, true}) {
      const FixedPoint a(5, 2, signA), factor(4, 3, signB);
      std::vector<Asked> asked;
      for (const bool signOut : {false, true})
        for (const int width : {1, 2, 4, 6})
          for (const int fraction : {-1, 1, 3, 5, 6})
            for (const Accuracy& accuracy : {kFaithful, kNearest, kTwo, kFive})
              asked.push_back({{width, fraction, signOut}, accuracy, false, smallBlocks()});
      Bench(a, factor, asked).checkAll();
    }
}

TEST(FixedMult, DrawnPatternsOfWideFactors) {
  bool leftOut = false;
  for (const bool isSigned : {false, true})
    for (const auto& [width, to] :
         {std::pair{24, 24}, {32, 32}, {53, 54}, {32, 16}, {17, 30}, {64, 64}, {113, 60}}) {
      const FixedPoint factor(width, isSigned ? width - 1 : width, isSigned);
      const FixedPoint out(to, isSigned ? to - 1 : to, isSigned);
      Bench bench(factor, factor, {{out, kFaithful}, {out, kNearest}, {out, kFive}});
      bench.checkCornersAndDraws(200);
      leftOut = leftOut || bench.leavesOut();
    }
  EXPECT_TRUE(leftOut);
}

// The reference: directed roundings to few bits, and the limits.
TEST(FixedMult, ReferenceRoundsTheExactProductOnce) {
  Request request;
  const FixedPoint factor(4, 3, true), out(4, 3, true);
  request.signature = {{factor, factor}, {out}, {{0, 0}}};
  std::vector<NumValue> results, inputs(2);
  for (int x = -8; x < 8; ++x)
    for (int y = -8; y < 8; ++y)
      for (const mpfr_rnd_t rounding : {MPFR_RNDD, MPFR_RNDU, MPFR_RNDN}) {
        mpfr_set_si_2exp(inputs[0].real.prepare(53), x, -3, MPFR_RNDN);
        mpfr_set_si_2exp(inputs[1].real.prepare(53), y, -3, MPFR_RNDN);
        findUnit("CFxPTruncMult")
            ->evaluate(request.signature, results, inputs, {3}, {rounding}, false);
        Real owed(3);
        mpfr_set_si_2exp(owed.get(), std::min(x * y, 56), -6, rounding);
        EXPECT_TRUE(mpfr_equal_p(results[0].real.get(), owed.get())) << x << " * " << y;
        EXPECT_FALSE(mpfr_zero_p(results[0].real.get()) && mpfr_signbit(results[0].real.get()));
      }
}

}  // namespace
}  // namespace functions
