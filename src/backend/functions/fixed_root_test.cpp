#include "backend/functions/fixed_root.h"

#include <optional>

#include "backend/functions/integer_unit_test.h"

namespace functions {
namespace {

enum Kind { kReciprocal, kRoot, kReciprocalRoot };

struct Case {
  Kind kind;
  FixedPoint in, out;
  bool inOneTwo = false;
  const char* unit() const {
    constexpr const char* kUnits[] = {"DMFxPReciprocal", "DMFxPSQRT", "DMFxPInvSQRT"};
    return kUnits[kind];
  }
  std::string label() const {
    return fmt::format("{} {},{}{} to {},{}{}{}", unit(), in.width(), in.fraction(),
                       in.sign() ? "s" : "u", out.width(), out.fraction(), out.sign() ? "s" : "u",
                       inOneTwo ? " in [1, 2)" : "");
  }
};

MPZ power(int exponent) { return MPZ::powerOfTwo(static_cast<unsigned long>(exponent)); }

// Twice the root in last places, rounded down, and whether that is all of it: in integers alone.
struct Truth {
  bool exists = true, isNegative = false, isExact = true;
  MPZ halves;
};
Truth truthOf(const Case& c, const MPZ& a) {
  Truth t;
  t.isNegative = a.sign() < 0;
  t.exists = c.kind == kReciprocal ? !a.isZero() : a.sign() > 0 || (c.kind == kRoot && a.isZero());
  if (!t.exists) return t;
  const MPZ size = t.isNegative ? -a : a;
  const int fIn = c.in.fraction(), fOut = c.out.fraction();
  const int scale = c.kind == kReciprocal ? fIn + fOut + 1
                    : c.kind == kRoot     ? 2 * fOut - fIn + 2
                                          : 2 * fOut + fIn + 2;
  const MPZ up = power(std::max(0, scale)), down = power(std::max(0, -scale));
  const MPZ numerator = c.kind == kRoot ? size * up : up;
  const MPZ denominator = c.kind == kRoot ? down : size * down;
  mpz_fdiv_q(t.halves.get(), numerator.get(), denominator.get());
  if (c.kind != kReciprocal) mpz_sqrt(t.halves.get(), t.halves.get());
  const MPZ back = c.kind == kReciprocal ? t.halves : t.halves * t.halves;
  t.isExact = back * denominator == numerator;
  return t;
}

bool isAccepted(const MPZ& got, const Truth& t, const FixedPoint& out, double ulps) {
  const MPZ low = lowestOf(out), high = highestOf(out);
  if (!t.exists) return got == high;
  const auto held = [&](const MPZ& size) {
    return std::clamp(t.isNegative ? -size : size, low, high);
  };
  if (ulps < 1) return got == held((t.halves + MPZ(1)) >> 1);
  const MPZ inner = t.halves >> 1;
  const bool isWhole = t.isExact && !t.halves.bit(0);
  const MPZ outer = isWhole ? inner : inner + MPZ(1);
  for (int step = 0; step < static_cast<int>(ulps); ++step)
    if (got == held(inner - MPZ(step)) || got == held(outer + MPZ(step))) return true;
  // Inward of the limit, where the root is beyond it.
  const MPZ limit = t.isNegative ? low : high;
  const MPZ off = t.isNegative ? got - limit : limit - got;
  return held(inner) == limit && off.sign() >= 0 && off < MPZ(static_cast<int>(ulps));
}

class Bench {
 public:
  explicit Bench(const Case& what) : what(what) {
    request.signature = {{what.in}, {what.out}, {{what.inOneTwo, 0, 0}}};
    request.budgets = &budgets;
    std::vector<Request> requests;
    for (const double ulps : kBounds) {
      request.accuracy = {{ulps < 1 ? Accuracy::kCorrect : Accuracy::kWithin, ulps}};
      requests.push_back(request);
    }
    circuit.emplace(what.unit(), requests);
  }

  bool check(const MPZ& pattern) {
    const MPZ a = integerOf(pattern, what.in);
    const Truth truth = truthOf(what, a);
    const std::vector<MPZ> outputs = (*circuit)({pattern});
    bool right = true;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
      const MPZ got = integerOf(outputs[i], what.out);
      if (isAccepted(got, truth, what.out, kBounds[i])) continue;
      ADD_FAILURE() << what.label() << " at " << kBounds[i] << " ulps: " << a.toText(10)
                    << " gives " << got.toText(10) << ", halves " << truth.halves.toText(10);
      right = false;
    }
    return checkReference(a, truth) && right;
  }

  void checkAll() {
    const unsigned long count = 1ul << what.in.width();
    for (unsigned long i = what.inOneTwo ? count / 2 : 0; i < count; ++i) ASSERT_TRUE(check(i));
  }

  // Numbers of every size, and those whose roots are near the middle of two results.
  void checkHard(int draws) {
    const int width = what.in.width();
    gmp_randstate_t state;
    gmp_randinit_default(state);
    for (int draw = 0; draw < draws; ++draw) {
      MPZ x, t;
      mpz_urandomb(x.get(), state, static_cast<mp_bitcnt_t>(1 + draw % width));
      if (draw % 5 == 0) x = power(draw / 5 % width) - MPZ(draw % 3) + MPZ(1);
      if (draw % 3 == 0) {
        mpz_urandomb(t.get(), state, static_cast<mp_bitcnt_t>(1 + draw % (what.out.width() + 1)));
        t = t * MPZ(2) + MPZ(1);
        const int scale =
            what.kind == kReciprocal
                ? what.in.fraction() + what.out.fraction() + 1
                : 2 * what.out.fraction() + 2 + (what.kind == kRoot ? -1 : 1) * what.in.fraction();
        const MPZ up = power(std::max(0, scale)), down = power(std::max(0, -scale));
        const MPZ image = what.kind == kReciprocal ? t : t * t;
        const MPZ numerator = what.kind == kRoot ? image * down : up;
        const MPZ denominator = what.kind == kRoot ? up : image * down;
        mpz_fdiv_q(x.get(), numerator.get(), denominator.get());
        x += MPZ(draw / 3 % 3 - 1);
      }
      x = x.lowBits(static_cast<unsigned long>(width));
      if (what.inOneTwo && !x.bit(static_cast<unsigned long>(width - 1))) x += power(width - 1);
      if (!check(x)) break;
    }
    gmp_randclear(state);
  }

 private:
  static constexpr double kBounds[] = {1, 0.5, 3};

  // The reference lies between the halves around the root, or is the limit. Roots beside a half are
  // off it by half the operand's last place, so that twice its bits show it.
  bool checkReference(const MPZ& a, const Truth& t) {
    const int precision = 200 + 2 * what.in.width();
    std::vector<NumValue> results, inputs(1);
    mpfr_set_z_2exp(inputs[0].real.prepare(precision), a.get(), -what.in.fraction(), MPFR_RNDN);
    circuit->row.evaluate(request.signature, results, inputs, {static_cast<unsigned>(precision)},
                          {MPFR_RNDD}, false);
    mpfr_mul_2si(results[0].real.get(), results[0].real.get(), what.out.fraction() + 1, MPFR_RNDN);
    MPZ halves, above;
    mpfr_get_z(halves.get(), results[0].real.get(), MPFR_RNDZ);
    const bool isExact = mpfr_integer_p(results[0].real.get()) != 0;
    const MPZ limit = t.exists && t.isNegative ? lowestOf(what.out) : highestOf(what.out);
    const MPZ size = t.isNegative ? -t.halves : t.halves;
    const bool isBeyond =
        !t.exists || (t.isNegative ? size < limit * MPZ(2) : size > limit * MPZ(2));
    const bool right = isBeyond || (size == limit * MPZ(2) && !t.isExact)
                           ? halves == limit * MPZ(2) && isExact
                           : halves == size && isExact == t.isExact;
    EXPECT_TRUE(right) << what.label() << ": reference of " << a.toText(10);
    return right;
  }

  Case what;
  Request request;
  arithmetic::ErrorBudgets budgets;
  std::optional<UnitCircuit> circuit;
};

std::vector<Case> casesOf(int width, int fIn, int fOut) {
  std::vector<Case> cases;
  for (const Kind kind : {kReciprocal, kRoot, kReciprocalRoot})
    for (const bool sign : {false, true})
      cases.push_back({kind, {width, fIn, sign}, {width, fOut, sign}});
  return cases;
}

TEST(FixedRoots, AllNumbersOfSmallFormats) {
  constexpr int kFormats[][3] = {{1, 0, 0},  {2, 1, 3},    {4, 2, 2},  {8, 4, 4},
                                 {8, -3, 5}, {9, 0, 8},    {9, 8, 8},  {10, 14, 3},
                                 {10, 5, 1}, {11, -6, 12}, {10, 3, -2}};
  for (const auto& [width, fIn, fOut] : kFormats)
    for (const Case& one : casesOf(width, fIn, fOut)) Bench(one).checkAll();
}

TEST(FixedRoots, HardNumbersOfLargeFormats) {
  for (const auto& [width, fIn, fOut] : {std::tuple{16, 8, 12}, {20, 19, 18}, {23, 0, 20}})
    for (const Case& one : casesOf(width, fIn, fOut)) Bench(one).checkHard(600);
  Bench({kRoot, {32, 30, false}, {32, 31, false}}).checkHard(600);
  Bench({kReciprocal, {32, 16, true}, {32, 15, true}}).checkHard(600);
}

// Not among the tests for its time.
TEST(FixedRoots, DISABLED_AllAndHardNumbersOfFurtherFormats) {
  for (const auto& [width, fIn, fOut] : {std::tuple{16, 8, 12}, {16, 15, 15}, {16, 0, 8}})
    for (const Case& one : casesOf(width, fIn, fOut)) Bench(one).checkAll();
  for (const auto& [width, fIn, fOut] : {std::tuple{24, 23, 22},
                                         {32, 16, 16},
                                         {33, 0, 20},
                                         {47, 50, 31},
                                         {48, 24, 24},
                                         {64, 62, 63},
                                         {64, 32, 31}})
    for (const Case& one : casesOf(width, fIn, fOut)) Bench(one).checkHard(20000);
  for (int width = 1; width <= 64; ++width)
    Bench({kRoot, {width, width / 2, false}, {width, width - 1, false}}).checkHard(500);
  Bench({kRoot, {200, 100, false}, {200, 20, false}}).checkHard(5000);
  for (const Kind kind : {kReciprocal, kRoot, kReciprocalRoot})
    for (const int width : {16, 32, 48, 64})
      Bench({kind, {width, width - 1, false}, {width, width - 1, false}, true}).checkHard(20000);
}

TEST(FixedRoots, PromisedIntervals) {
  for (const Kind kind : {kReciprocal, kRoot, kReciprocalRoot})
    for (const int width : {7, 11, 24}) {
      Bench bench({kind, {width, width - 1, false}, {width, width - 1, false}, true});
      width < 12 ? bench.checkAll() : bench.checkHard(600);
    }
}

}  // namespace
}  // namespace functions
