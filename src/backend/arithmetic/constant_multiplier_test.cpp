#include "backend/arithmetic/constant_multiplier.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "backend/graph/evaluator.h"

namespace arithmetic {
namespace {

using util::MPZ;

constexpr ConstantArchitecture kArchitectures[] = {
    ConstantArchitecture::kAuto, ConstantArchitecture::kTables, ConstantArchitecture::kShiftAndAdd};
const ProductGoal kGoals[] = {
    {ProductGoal::kWhole},        {ProductGoal::kNearestAway},  {ProductGoal::kTowardZero},
    {ProductGoal::kWithin, 1, 1}, {ProductGoal::kWithin, 1, 2}, {ProductGoal::kWithin, 2, 1},
    {ProductGoal::kWithin, 1, 4},
};

MPZ floorDivided(const MPZ& value, long places) {
  return places >= 0 ? value >> static_cast<unsigned long>(places)
                     : value << static_cast<unsigned long>(-places);
}

// One product under test.
class Product {
 public:
  Product(int width, bool isSigned, const Dyadic& constant, const ConstantProductOptions& options)
      : width(width), isSigned(isSigned), constant(constant), options(options) {
    graph::Builder b(circuit);
    product = multiplyByConstant(b, b.input("x", width), isSigned, constant, options);
    b.output("r", product.bits);
    evaluator.emplace(circuit);
  }

  ::testing::AssertionResult isRightFor(const MPZ& pattern) {
    const MPZ x = isSigned ? pattern.asSigned(static_cast<unsigned long>(width)) : pattern;
    const MPZ bits = (*evaluator)(std::vector<MPZ>{pattern})[0];
    const auto resultWidth = static_cast<unsigned long>(product.bits.width);
    const MPZ result = product.low.sign() < 0 ? bits.asSigned(resultWidth) : bits;
    const bool inRange = options.width || (product.low <= result && result <= product.high);
    if (inRange && fits(x, result)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << x.toText(10) << " * " << constant.mantissa.toText(10) << " * 2^" << constant.exponent
           << ", goal " << options.goal.kind << " " << options.goal.below << " "
           << options.goal.above << ", architecture " << static_cast<int>(options.architecture)
           << ": " << result.toText(10) << " * 2^" << product.lsb << " in ["
           << product.low.toText(10) << ", " << product.high.toText(10) << "]";
  }

  graph::Graph circuit;

 private:
  // Compares in units of 2^-fraction, of which the exact product is a multiple.
  bool fits(const MPZ& x, const MPZ& result) const {
    const auto fraction = static_cast<unsigned long>(std::max(1L, -constant.exponent));
    const MPZ one = MPZ::powerOfTwo(fraction), half = MPZ::powerOfTwo(fraction - 1);
    const MPZ exact = (x * constant.mantissa) << static_cast<unsigned long>(
                          constant.exponent + static_cast<long>(fraction));
    const MPZ size = exact.sign() < 0 ? -exact : exact;
    const auto withSign = [&](const MPZ& n) { return exact.sign() < 0 ? -n : n; };
    switch (options.goal.kind) {
      case ProductGoal::kWhole: {
        // Between the same halves, and on one only where the exact product is.
        const MPZ twice = result << 1;
        const bool onHalf =
            floorDivided(twice, -product.lsb) << static_cast<unsigned long>(-product.lsb) == twice;
        const bool exactOnHalf = (exact >> (fraction - 1)) << (fraction - 1) == exact;
        return floorDivided(twice, -product.lsb) == exact >> (fraction - 1) &&
               onHalf == exactOnHalf;
      }
      case ProductGoal::kNearestAway:
        return result == withSign((size + half) >> fraction);
      case ProductGoal::kTowardZero: {
        const MPZ owed = withSign(size >> fraction);
        if (!options.width) return result == owed;
        const auto kept = static_cast<unsigned long>(std::min(*options.width, product.bits.width));
        const MPZ got = product.low.sign() < 0 ? result.lowBits(*options.width) : result;
        return got.lowBits(*options.width) == owed.lowBits(*options.width) && kept > 0;
      }
      case ProductGoal::kWithin: {
        const MPZ error = (result << fraction) - exact;
        return error > -(MPZ(options.goal.below) << fraction) && error < MPZ(options.goal.above)
                                                                             << fraction;
      }
    }
    return false;
  }

  int width;
  bool isSigned;
  Dyadic constant;
  ConstantProductOptions options;
  ConstantProduct product;
  std::optional<graph::Evaluator> evaluator;
};

void checkAllOperands(int width, bool isSigned, const Dyadic& constant,
                      const ConstantProductOptions& options) {
  Product product(width, isSigned, constant, options);
  for (long x = 0; x < 1L << width; ++x) ASSERT_TRUE(product.isRightFor(MPZ(x)));
}

TEST(ConstantMultiplier, AllOperandsWithShortConstants) {
  for (int mantissa = -37; mantissa <= 37; mantissa += 6)
    for (const int exponent : {-11, -7, -4, -1, 0, 2})
      for (const int width : {1, 2, 5, 7, 9})
        for (const bool isSigned : {false, true})
          for (const ProductGoal& goal : kGoals)
            for (const ConstantArchitecture architecture : kArchitectures)
              for (const int lutInputs : {4, 6})
                checkAllOperands(width, isSigned, dyadic(mantissa, exponent),
                                 {goal, architecture, lutInputs, {}});
}

TEST(ConstantMultiplier, AllOperandsWithLongConstants) {
  const MPZ pi = *MPZ::fromText("1921fb54442d18", 16), third = *MPZ::fromText("15555555555555", 16);
  for (const MPZ& mantissa : {pi, -pi, third, MPZ::allOnes(53), MPZ::powerOfTwo(52) + MPZ(1)})
    for (const long exponent : {-61, -55, -53, -48})
      for (const bool isSigned : {false, true})
        for (const ProductGoal& goal : kGoals)
          for (const ConstantArchitecture architecture : kArchitectures)
            checkAllOperands(10, isSigned, dyadic(mantissa, exponent), {goal, architecture, 6, {}});
}

TEST(ConstantMultiplier, LowBitsOfATruncatedProduct) {
  for (const int mantissa : {1, -1, 5, -13, 173, -1001})
    for (const int exponent : {-9, -5, -1, 0, 3, 6, 7, 40})
      for (const bool isSigned : {false, true})
        for (const ConstantArchitecture architecture : kArchitectures)
          checkAllOperands(7, isSigned, dyadic(mantissa, exponent),
                           {{ProductGoal::kTowardZero}, architecture, 6, 7});
}

TEST(ConstantMultiplier, DrawnWideOperands) {
  std::mt19937_64 random(1);
  for (int draw = 0; draw < 60; ++draw) {
    const MPZ mantissa = MPZ(static_cast<unsigned long>(random() >> (11 + random() % 40)));
    const int width = 20 + static_cast<int>(random() % 70);
    const long exponent = -static_cast<long>(random() % static_cast<unsigned>(width + 20));
    const bool isSigned = random() % 2 != 0;
    for (const ProductGoal& goal : kGoals)
      for (const ConstantArchitecture architecture : kArchitectures) {
        Product product(width, isSigned, dyadic(draw % 2 ? mantissa : -mantissa, exponent),
                        {goal, architecture, 6, {}});
        const auto places = static_cast<unsigned long>(width);
        for (const MPZ& x : {MPZ(0), MPZ(1), MPZ::allOnes(places), MPZ::powerOfTwo(places - 1),
                             MPZ::allOnes(places - 1)})
          ASSERT_TRUE(product.isRightFor(x));
        for (int i = 0; i < 40; ++i) {
          MPZ x = random();
          x = (x << 64) + MPZ(static_cast<unsigned long>(random()));
          ASSERT_TRUE(product.isRightFor(x.lowBits(places)));
        }
      }
  }
}

// The least distance of n K to an integer, by trying every n.
TEST(ConstantMultiplier, SeparationIsTheLeastDistance) {
  std::mt19937 random(2);
  for (int draw = 0; draw < 300; ++draw) {
    const int bits = 2 + static_cast<int>(random() % 20);
    const long mantissa = static_cast<long>(random() % (8u << bits)) - (4L << bits);
    const Dyadic constant{2 * mantissa + 1, -bits};
    const long one = 1L << bits, most = 1 + static_cast<long>(random() % 500);
    long least = one;
    for (long n = 1; n <= most; ++n) {
      const long part = ((n * (2 * mantissa + 1)) % one + one) % one;
      least = std::min({least, part, one - part});
    }
    EXPECT_EQ(separation(constant, most), MPZ(least)) << mantissa << " " << bits << " " << most;
  }
}

// Bits that tables and adders make; a heap adds all its bits but those that are its result.
int logicBits(const Product& product) {
  int bits = 0;
  for (const graph::Node& node : product.circuit.nodes()) {
    // Inverters vanish in what reads them.
    if (graph::traitsOf(node.op).wiring || node.op == graph::Op::kNot) continue;
    int made = node.width;
    if (node.op == graph::Op::kHeap) {
      made = -node.width;
      for (const graph::NodeId operand : product.circuit.operands(node))
        if (product.circuit.node(operand).op != graph::Op::kLiteral)
          made += product.circuit.node(operand).width;
    }
    bits += std::max(0, made);
  }
  return bits;
}

TEST(ConstantMultiplier, SmallCircuitsWhereTheConstantAllows) {
  EXPECT_EQ(logicBits(Product(16, true, dyadic(1, 5), {})), 0) << "a power of two is wiring";
  const Dyadic ln2 = dyadic(*MPZ::fromText("162e42fefa39ef", 16), -53);
  const auto bits = [&](const ProductGoal& goal, ConstantArchitecture architecture) {
    return logicBits(Product(16, false, ln2, {goal, architecture, 6, {}}));
  };
  for (const ConstantArchitecture architecture : kArchitectures) {
    const int faithful = bits({ProductGoal::kWithin, 1, 1}, architecture);
    const int nearest = bits({ProductGoal::kNearestAway}, architecture);
    EXPECT_LT(faithful, architecture == ConstantArchitecture::kTables ? 75 : 65);
    EXPECT_LT(faithful, nearest);
    EXPECT_LE(bits({ProductGoal::kWithin, 1, 3}, architecture), faithful);
  }
}

}  // namespace
}  // namespace arithmetic
