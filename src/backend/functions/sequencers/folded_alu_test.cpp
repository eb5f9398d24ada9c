#include "backend/functions/sequencers/folded_alu.h"

#include "backend/functions/float_test_support.h"
#include "backend/functions/sequencers/folded_plan.h"

namespace functions::testing {
namespace {

template <int op>
int applied(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  mpfr_srcptr x = in[0].get(), y = in[1].get();
  const bool isMinusZero = mpfr_zero_p(x) && mpfr_signbit(x);
  if (op == 2 || (op == 0 && isMinusZero)) return mpfr_ui_div(r, 1, x, direction);
  if (op == 0) return mpfr_rec_sqrt(r, x, direction);
  if (op == 1) return mpfr_sqrt(r, x, direction);
  return (op == 3 ? mpfr_div : mpfr_mul)(r, x, y, direction);
}
constexpr Operation kOperations[] = {applied<0>, applied<1>, applied<2>, applied<3>, applied<4>};
constexpr int kCycles[] = {23, 26, 19, 22, 6};

struct Setting {
  RoundMode mode;
  bool faithful;
};
constexpr Setting kSettings[] = {{RoundMode::kNearestEven, true},
                                 {RoundMode::kNearestEven, false},
                                 {RoundMode::kDown, false},
                                 {RoundMode::kUp, false},
                                 {RoundMode::kTowardZero, false}};

Request requestFor(const FloatingPoint& format, const Setting& setting, bool subnormals) {
  Request request;
  request.signature = {
      {format, format, FixedPoint{3, 0, false}, FixedPoint{1, 0, false}}, {format}, {}};
  request.accuracy = {setting.faithful ? Accuracy{Accuracy::kWithin, 1}
                                       : Accuracy{Accuracy::kCorrect, 0.5}};
  request.rounding.fixed = setting.mode;
  request.subnormals = request.quietNaN = subnormals;
  return request;
}

// One ALU as a circuit, beside MPFR.
class Alu {
 public:
  Alu(int wE, int wF, const Setting& setting, bool subnormals)
      : port{ieee(wE, wF), subnormals, subnormals},
        setting(setting),
        request(requestFor(port.format, setting, subnormals)),
        circuit("CFPFoldedALUNR", request, /*hasValid=*/true) {}

  // One instruction; false when the result of its last cycle is no rounding of the exact one.
  // `after`: what the operand ports show behind the first cycle.
  bool run(int op, const MPZ& x, const MPZ& y, const MPZ& after) {
    MPZ got;
    for (int cycle = 0; cycle <= kCycles[op]; ++cycle) {
      const bool first = cycle == 0;
      got = circuit(std::vector{MPZ(1), first ? x : after, first ? y : x, MPZ(first ? op : 7 - op),
                                MPZ(first ? 1 : 0)})[0];
      circuit.clock();
    }
    const std::vector<Real> values{decode(x, port), decode(y, port)};
    const Truth truth(kOperations[op], values, port);
    const MPZ expected = encode(truth.inMode(setting.mode).get(), port);
    std::vector<MPZ> accepted{expected};
    if (setting.faithful) accepted = truth.within(1);
    const bool isRight = std::ranges::find(accepted, got) != accepted.end();
    EXPECT_TRUE(isRight) << "op " << op << ", " << x.toText(2) << " " << y.toText(2) << ": "
                         << got.toText(2) << " for " << expected.toText(2);
    return checkReference(op, values, expected) && isRight;
  }

  // A cycle without go, or with go that does not count.
  void idle(bool go) {
    circuit(std::vector{MPZ(0), MPZ(1), MPZ(1), MPZ(4), MPZ(go)});
    circuit.clock();
  }
  const MPZ shown() { return circuit(std::vector{MPZ(0), MPZ(0), MPZ(0), MPZ(0), MPZ(0)})[0]; }

  const Port port;

 private:
  bool checkReference(int op, const std::vector<Real>& values, const MPZ& expected) {
    std::vector<NumValue> inputs(4), results;
    inputs[0].real = values[0];
    inputs[1].real = values[1];
    for (const auto& [place, number] : {std::pair{2, op}, {3, 0}}) {
      inputs[place].real = Real(8);
      mpfr_set_si(inputs[place].real.get(), number, MPFR_RNDN);
    }
    circuit.row.evaluate(request.signature, results, inputs,
                         {static_cast<unsigned>(port.precision())}, {directionOf(setting.mode)},
                         port.subnormals);
    const MPZ reference = encode(results[0].real.get(), port);
    EXPECT_EQ(reference, expected) << "reference of op " << op;
    return reference == expected;
  }

  Setting setting;
  Request request;
  UnitCircuit circuit;
};

bool isUnary(int op) { return op < 3; }

TEST(FoldedAlu, AllOperandsOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{2, 3}})
    for (const bool subnormals : {false, true})
      for (const Setting& setting : kSettings) {
        Alu alu(wE, wF, setting, subnormals);
        const auto patterns = allPatterns(alu.port.format);
        for (int op = 0; op < 5; ++op)
          for (const MPZ& x : patterns)
            for (const MPZ& y : patterns) {
              if (isUnary(op) && y != patterns[5]) continue;
              if (!alu.run(op, x, y, y)) FAIL() << "format " << wE << " " << wF;
            }
      }
}

TEST(FoldedAlu, OneOperandOfMiddleFormats) {
  for (const auto& [wE, wF] : {std::pair{3, 6}})
    for (const bool subnormals : {false, true})
      for (const Setting& setting : kSettings) {
        Alu alu(wE, wF, setting, subnormals);
        for (int op = 0; op < 3; ++op)
          for (const MPZ& x : allPatterns(alu.port.format))
            if (!alu.run(op, x, MPZ(0), MPZ(3))) FAIL() << "format " << wE << " " << wF;
      }
}

TEST(FoldedAlu, DrawnOperandsOfLargeFormats) {
  unsigned seed = 1;
  for (const auto& [wE, wF] :
       {std::pair{5, 10}, {8, 7}, {7, 16}, {8, 23}, {9, 30}, {2, 24}, {11, 52}})
    for (const bool subnormals : {false, true})
      for (const Setting& setting : kSettings) {
        Alu alu(wE, wF, setting, subnormals);
        Draws draws(seed++);
        for (int i = 0; i < 100; ++i) {
          const MPZ x = draws.number(alu.port.format), y = draws.number(alu.port.format);
          if (!alu.run(i % 5, x, y, draws.number(alu.port.format)))
            FAIL() << "format " << wE << " " << wF << " seed " << seed;
        }
      }
}

// Minutes: every operand of a format of 16 bits for one, and many pairs.
TEST(FoldedAlu, DISABLED_AllOperandsOfHalfPrecision) {
  for (const bool subnormals : {false, true})
    for (const std::size_t setting : {0u, 1u, 3u}) {
      Alu alu(5, 10, kSettings[setting], subnormals);
      Draws draws(7);
      const auto any = [&] { return draws.number(alu.port.format); };
      for (const MPZ& x : allPatterns(alu.port.format))
        for (int op = 0; op < 5; ++op)
          if (!alu.run(op, x, any(), any())) FAIL() << "setting " << setting;
    }
}

// Results near the middle of two numbers and near a number, where a check decides: quotients of
// neighbours, roots of squares and their neighbours, reciprocals of such.
TEST(FoldedAlu, HardOperands) {
  for (const auto& [wE, wF] : {std::pair{5, 10}, {8, 23}, {11, 52}})
    for (const Setting& setting : kSettings) {
      Alu alu(wE, wF, setting, false);
      const MPZ one = MPZ((1L << (wE - 1)) - 1) << wF;
      Draws draws(99);
      for (int i = 0; i < 300; ++i) {
        // (2m + 1)^2 / 4 rounded to the format, m of p bits.
        MPZ middle = (MPZ::powerOfTwo(wF + 1) + draws.bits(wF + 1));
        middle = (middle * middle);
        const int excess = static_cast<int>(middle.bitLength()) - (wF + 1);
        const MPZ square = (middle >> excess) + MPZ(draws.below(3) - 1);
        const MPZ radicand = one + square.lowBits(wF) + (MPZ(excess & 1) << wF);
        const MPZ near = one + draws.bits(wF), next = near + MPZ(draws.below(5) - 2);
        for (int op = 0; op < 4; ++op)
          if (!alu.run(op, op < 2 ? radicand : near, next, MPZ(0))) FAIL() << wE << " " << wF;
      }
    }
}

TEST(FoldedAlu, HoldsItsResultUntilAGoThatCounts) {
  Alu alu(5, 10, kSettings[0], false);
  const MPZ three((16 << 10) + 512), two(16 << 10), six((17 << 10) + 512);
  ASSERT_TRUE(alu.run(4, three, two, MPZ(77)));
  for (int i = 0; i < 40; ++i) {
    alu.idle(i % 3 == 0);
    ASSERT_EQ(alu.shown(), six);
  }
  ASSERT_TRUE(alu.run(3, six, two, six));
  EXPECT_EQ(alu.shown(), three);
}

TEST(FoldedAlu, StatesItsErrors) {
  for (const bool faithful : {true, false}) {
    Request request = requestFor(ieee(8, 23), {RoundMode::kNearestEven, faithful}, false);
    arithmetic::ErrorBudgets budgets;
    const auto plan = planFolded(23, !faithful, request.prices, &budgets);
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->fraction / 17, 1);
    EXPECT_EQ(budgets.size(), faithful ? 4U : 5U);
    for (const auto& budget : budgets) EXPECT_LE(budget.sum(), budget.promise());
  }
}

}  // namespace
}  // namespace functions::testing
