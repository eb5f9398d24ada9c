#include "backend/arithmetic/function_circuit.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

#include "backend/approximation/sample_functions.h"
#include "backend/graph/evaluator.h"
#include "backend/graph/random_graph.h"

namespace arithmetic {
namespace {

using approximation::kSampleFunctions;
using approximation::SampleFunction;
using util::MPZ;

// All arguments up to 16 bits, else the first, the last and drawn ones: the circuit's result lies
// in the interval that it states, and its error against MPFR within its budget.
void checkCircuit(const graph::Graph& graph, const EvaluatedFunction& made,
                  const SampleFunction& sample, const approximation::ArgumentFormat& argument,
                  bool isTight = true) {
  graph::Evaluator evaluate(graph);
  const auto width = static_cast<unsigned long>(argument.bits);
  graph::RandomGraph draw(7);
  constexpr int kBelow = 30;  // bits of an error below the result's last place
  const double budget = made.budget.sum();
  double worst = 0;
  const auto check = [&](const MPZ& x) {
    MPZ result = evaluate(std::array{x})[0];
    if (made.result.isSigned())
      result = result.asSigned(static_cast<unsigned long>(made.result.bits.width));
    ASSERT_LE(made.result.low, result);
    ASSERT_GE(made.result.high, result);
    const MPZ exact = approximation::sampleValue(sample, argument.first + x, argument.lsb,
                                                 kBelow - made.result.lsb);
    const double error = std::ldexp(mpz_get_d(((result << kBelow) - exact).get()), -kBelow);
    worst = std::max(worst, std::abs(error));
    ASSERT_LE(std::abs(error), budget + 0x1p-28) << x.toText(10);
  };
  if (argument.bits <= 16) {
    for (unsigned long x = 0; x < 1ul << argument.bits; ++x) check(MPZ(x));
    // A budget of exact bounds is not far off where all errors are seen.
    if (isTight) {
      EXPECT_GE(worst * 1.02 + 0.25, budget);
    }
    return;
  }
  const MPZ last = MPZ::allOnes(width);
  for (const MPZ& x : {MPZ(0), MPZ(1), last, last - MPZ(1), last >> 1}) check(x);
  for (int i = 0; i < 5000; ++i) {
    MPZ x;
    for (unsigned long bit = 0; bit < width; bit += 16) x = (x << 16) + MPZ(draw.upTo(1 << 16) - 1);
    check(x.lowBits(width));
  }
}

// A result of the argument's places on the usual prices.
PolynomialRequest requestFor(const SampleFunction& sample, int width, double promise = 1,
                             const EvaluationPrices& prices = {}) {
  return {.function = sample.text,
          .argument = {width, -width},
          .resultLsb = -width,
          .promise = promise,
          .prices = prices};
}

void checkFunction(const SampleFunction& sample, const PolynomialRequest& request,
                   const PlannedFunction& plan, bool isTight) {
  graph::Graph graph;
  Builder b(graph);
  const EvaluatedFunction made =
      evaluateFunction(b, b.input("x", request.argument.bits), plan, request);
  b.output("r", made.result.bits);
  checkCircuit(graph, made, sample, request.argument, isTight);
}

void checkPolynomial(const SampleFunction& sample, const PolynomialRequest& request) {
  SCOPED_TRACE(std::string(sample.text) + " " + std::to_string(request.argument.bits));
  const auto planned = planPolynomial(request);
  ASSERT_TRUE(planned) << planned.failure().message;
  graph::Graph graph;
  Builder b(graph);
  const Signal x = b.input("x", request.argument.bits);
  const EvaluatedFunction made =
      evaluatePolynomial(b, x, planned->polynomial, planned->plan, request.promise, request.prices);
  EXPECT_LE(made.budget.sum(), request.promise);
  EXPECT_EQ(made.result.lsb, request.resultLsb);
  b.output("r", made.result.bits);
  checkCircuit(graph, made, sample, request.argument);
}

EvaluationPrices withoutBlocks() {
  EvaluationPrices prices;
  prices.product.lutPerDsp = prices.product.lutPerFurtherDsp = 1e5;
  prices.table.lutPerMemory = std::numeric_limits<double>::infinity();
  return prices;
}

TEST(PolynomialCircuit, KeepsItsPromise) {
  for (const SampleFunction& sample : kSampleFunctions)
    for (const auto& [width, prices] : {std::pair{8, EvaluationPrices{}},
                                        {12, withoutBlocks()},
                                        {16, EvaluationPrices{}},
                                        {24, EvaluationPrices{}},
                                        {24, withoutBlocks()}})
      checkPolynomial(sample, requestFor(sample, width, 1, prices));
  for (const int width : {32, 53})
    checkPolynomial(kSampleFunctions[1], requestFor(kSampleFunctions[1], width));
}

// Log(1 + x) / x about its gap at 0, from -1/4 on: polynomials, and tables where they are cheaper.
TEST(FunctionCircuit, ArgumentsBelowZero) {
  const SampleFunction& sample = kSampleFunctions[5];
  for (const int width : {6, 10, 16, 24}) {
    PolynomialRequest request = requestFor(sample, width);
    request.argument.first = -MPZ::powerOfTwo(static_cast<unsigned long>(width - 2));
    checkPolynomial(sample, request);
    const auto planned = planFunction(request);
    ASSERT_TRUE(planned);
    checkFunction(sample, request, *planned, /*isTight=*/false);
  }
}

TEST(PolynomialCircuit, KeepsOtherPromises) {
  // Nearly rounded to nearest; many units; a short range with a finer result; a forced split.
  const SampleFunction& log = kSampleFunctions[1];
  PolynomialRequest request = requestFor(log, 13);
  request.resultLsb = -15;
  for (const double promise : {0.5625, 0.6, 2.0, 40.0}) {
    request.promise = promise;
    checkPolynomial(log, request);
  }
  request = requestFor(log, 11);
  request.argument.lsb = -16, request.resultLsb = -20;
  checkPolynomial(log, request);
}

TEST(PolynomialCircuit, HierarchicalSegments) {
  const SampleFunction steep{"sqrt(x + 0.0078125)", [](mpfr_ptr y, mpfr_srcptr x) {
                               mpfr_add_d(y, x, 0.0078125, MPFR_RNDN);
                               mpfr_sqrt(y, y, MPFR_RNDN);
                             }};
  const PolynomialRequest request = requestFor(steep, 15, 1, withoutBlocks());
  const auto planned = planPolynomial(request);
  ASSERT_TRUE(planned);
  EXPECT_FALSE(planned->polynomial.segmentation.isUniform());
  checkPolynomial(steep, request);
}

TEST(PolynomialCircuit, FollowsThePrices) {
  PolynomialRequest request{
      .function = "2^x - 1", .argument = {24, -24}, .resultLsb = -24, .promise = 1, .prices = {}};
  request.prices.product.lutPerDsp = request.prices.product.lutPerFurtherDsp = 20;
  const auto rich = planPolynomial(request);
  request.prices.product.lutPerDsp = request.prices.product.lutPerFurtherDsp = 5000;
  const auto poor = planPolynomial(request);
  request.prices.table.lutPerMemory = std::numeric_limits<double>::infinity();
  request.prices.table.lutPerBit = 1;
  const auto withoutTables = planPolynomial(request);
  ASSERT_TRUE(rich && poor && withoutTables);
  EXPECT_LT(rich->plan.productLuts, poor->plan.productLuts);
  EXPECT_LT(withoutTables->polynomial.segmentation.rows(), poor->polynomial.segmentation.rows());
  request.function = "cot(x)";
  EXPECT_FALSE(planPolynomial(request));
}

TEST(MultipartiteCircuit, KeepsItsPromise) {
  for (const SampleFunction& sample : kSampleFunctions)
    for (const auto& [width, promise] :
         {std::pair{4, 0.5}, {8, 0.5}, {8, 1.0}, {10, 1.0}, {12, 1.0}, {14, 1.0}}) {
      SCOPED_TRACE(std::string(sample.text) + " " + std::to_string(width));
      TablePrices prices;
      prices.lutPerMemory = std::numeric_limits<double>::infinity();
      const TableRequest request{sample.text, {width, -width}, -width, promise, prices};
      const auto planned = planTable(request);
      ASSERT_TRUE(planned) << planned.failure().message;
      graph::Graph graph;
      Builder b(graph);
      const EvaluatedFunction made = evaluateTable(b, b.input("x", width), planned->table, promise);
      b.output("r", made.result.bits);
      checkCircuit(graph, made, sample, {width, -width});
      // From some width on parts are cheaper than the whole.
      if (promise == 1.0 && width >= 10) {
        EXPECT_FALSE(planned->table.groups.empty());
      }
      if (promise == 0.5) {
        EXPECT_TRUE(planned->table.groups.empty());
      }
    }
}

TEST(FunctionCircuit, TakesTheCheapestMethod) {
  const SampleFunction& root = kSampleFunctions[3];
  const auto describe = [&](int width, double promise) {
    const PolynomialRequest request = requestFor(root, width, promise, withoutBlocks());
    const auto planned = planFunction(request);
    if (!planned) return planned.failure().message;
    checkFunction(root, request, *planned, /*isTight=*/true);
    return planned->description();
  };
  EXPECT_EQ(describe(1, 1), "one table");
  EXPECT_EQ(describe(6, 0.5), "one table");
  EXPECT_EQ(describe(8, 1), "bipartite table");
  EXPECT_NE(describe(16, 1).find("polynomials"), std::string::npos);
  EXPECT_NE(describe(16, 0.5).find("no table of 16 bits"), std::string::npos);
}

// Narrow, coarse, fine and hardly fitting ones: each plan that there is keeps its promise.
TEST(FunctionCircuit, OddRequests) {
  constexpr struct {
    int function, bits, argumentLsb, resultLsb;
    double promise;
    int mostDegree, mostRowBits;
  } kOdd[] = {
      {0, 6, -10, -3, 100, 5, 2},   {3, 2, -3, -20, 0.5625, 4, 9}, {1, 5, -6, -31, 0.51, 5, 10},
      {5, 12, -15, -13, 0.7, 2, 9}, {2, 9, -9, -2, 1, 1, 1},       {4, 40, -41, -17, 1, 3, 8},
      {1, 20, -24, -44, 3, 6, 10},  {0, 1, -5, -9, 0.5, 1, 1},     {5, 30, -33, -20, 1, 6, 4}};
  for (const auto& odd : kOdd) {
    const SampleFunction& sample = kSampleFunctions[odd.function];
    SCOPED_TRACE(std::string(sample.text) + " " + std::to_string(odd.bits));
    const PolynomialRequest request{.function = sample.text,
                                    .argument = {odd.bits, odd.argumentLsb},
                                    .resultLsb = odd.resultLsb,
                                    .promise = odd.promise,
                                    .prices = withoutBlocks(),
                                    .mostDegree = odd.mostDegree,
                                    .mostRowBits = odd.mostRowBits};
    std::vector<PlannedFunction> plans;
    const auto cheapest = planFunction(request);
    ASSERT_TRUE(cheapest) << cheapest.failure().message;
    plans.push_back(*cheapest);
    if (odd.bits > 1) {
      if (const auto polynomial = planPolynomial(request)) plans.push_back({*polynomial});
    }
    for (const PlannedFunction& plan : plans)
      checkFunction(sample, request, plan, /*isTight=*/false);
  }
}

}  // namespace
}  // namespace arithmetic
