#include "backend/mapping/product_tiling.h"

#include <optional>
#include <tuple>
#include <vector>

#include "backend/device/bit_times.h"
#include "backend/device/cover.h"
#include "backend/mapping/mapping_test_support.h"

namespace mapping {
namespace {

struct Size {
  int width;
  bool extended = false;  // as a number of width + 3 bits, zeros or sign on top
};

class LoweredProduct {
 public:
  // `y` of width 0: the square of x.
  LoweredProduct(const std::string& family, Size x, Size y, bool isSigned,
                 const MappingOptions& options = {.period = {3333}})
      : x(x), y(y), isSigned(isSigned) {
    Builder builder(graph);
    const auto factor = [&](const char* name, Size size) {
      const Signal input = builder.input(name, size.width);
      const int full = size.width + (size.extended ? 3 : 0);
      return isSigned ? builder.signExtend(input, full) : builder.zeroExtend(input, full);
    };
    const Signal a = factor("x", x);
    const Signal b = y.width == 0 ? a : factor("y", y);
    const Signal product = lowerProduct(builder, deviceOf(family), options, a, b, isSigned);
    EXPECT_EQ(product.width, a.width + b.width);
    builder.output("r", product);
    evaluator.emplace(graph);
  }

  const Graph& built() const { return graph; }

  int blocks() const { return countOf(graph, Op::kMultiply) + countOf(graph, Op::kMultiplySigned); }

  // Every product is one that a block of wide x narrow bits has, unsigned ones a bit less.
  void expectOnlyBlocksOf(int wide, int narrow) const {
    for (const graph::Node& node : graph.nodes()) {
      EXPECT_NE(node.op, Op::kHeap);
      if (node.op != Op::kMultiply && node.op != Op::kMultiplySigned) continue;
      const int sign = node.op == Op::kMultiplySigned ? 0 : 1;
      const auto widths = graph.operands(node);
      const int a = graph.node(widths[0]).width + sign, b = graph.node(widths[1]).width + sign;
      EXPECT_TRUE((a <= wide && b <= narrow) || (b <= wide && a <= narrow)) << a << " x " << b;
    }
  }

  ::testing::AssertionResult isRightFor(const MPZ& patternX, const MPZ& patternY) {
    const auto value = [&](const MPZ& pattern, Size size) {
      return isSigned ? pattern.asSigned(size.width) : pattern;
    };
    const MPZ first = value(patternX, x);
    const MPZ owed = first * (y.width == 0 ? first : value(patternY, y));
    std::vector<MPZ> inputs{patternX};
    if (y.width > 0) inputs.push_back(patternY);
    const MPZ built = (*evaluator)(inputs)[0];
    if (built == owed.lowBits(graph.outputs()[0].signal.width))
      return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << x.width << " x " << y.width << (isSigned ? " signed: " : " unsigned: ")
           << patternX.toText(16) << " * " << patternY.toText(16) << " gives " << built.toText(16);
  }

  void checkAll() {
    for (unsigned long a = 0; a < 1ul << x.width; ++a)
      for (unsigned long b = 0; b < 1ul << y.width; ++b) ASSERT_TRUE(isRightFor(MPZ(a), MPZ(b)));
  }

  void checkCornersAndDraws(int draws) {
    const auto corners = [](int width) {
      if (width == 0) return std::vector<MPZ>{0};
      const MPZ ones = MPZ::allOnes(width), top = MPZ::powerOfTwo(width - 1);
      return std::vector<MPZ>{0, 1, ones, top, top - MPZ(1)};
    };
    for (const MPZ& a : corners(x.width))
      for (const MPZ& b : corners(y.width)) ASSERT_TRUE(isRightFor(a, b));
    gmp_randstate_t state;
    gmp_randinit_default(state);
    for (int draw = 0; draw < draws; ++draw) {
      MPZ a, b;
      (draw % 2 == 0 ? mpz_urandomb : mpz_rrandomb)(a.get(), state, x.width);
      if (y.width > 0) (draw % 2 == 0 ? mpz_urandomb : mpz_rrandomb)(b.get(), state, y.width);
      EXPECT_TRUE(isRightFor(a, b));
    }
    gmp_randclear(state);
  }

 private:
  Graph graph;
  Size x, y;
  bool isSigned;
  std::optional<graph::Evaluator> evaluator;
};

TEST(LowerProduct, IsExactForAllInputsOfSmallWidths) {
  for (const bool isSigned : {false, true})
    for (int x = 1; x <= 7; ++x)
      for (int y = 0; y <= 6; ++y)
        for (const bool extended : {false, true})
          LoweredProduct("TarnV", {x, extended}, {y}, isSigned).checkAll();
}

struct FamilyShape {
  const char* name;
  int wide, narrow;
};
constexpr FamilyShape kShapes[] = {{"TarnV", 25, 18}, {"MerrowV", 27, 27}, {"TarnIVGX", 18, 18}};

TEST(LowerProduct, TilesWhatNoBlockHolds) {
  for (const FamilyShape& shape : kShapes)
    for (const bool isSigned : {false, true})
      for (const int x : {4, 8, 11, 16, 17, 18, 19, 24, 25, 26, 27, 28, 33, 53, 64, 65, 128})
        for (const int y : {0, 1, 2, 3, 5, 9, 16, 17, 18, 19, 24, 25, 26, 27, 33, 53, 64, 113}) {
          LoweredProduct product(shape.name, {x, x % 2 == 0}, {y}, isSigned);
          product.expectOnlyBlocksOf(shape.wide, shape.narrow);
          product.checkCornersAndDraws(6);
        }
}

TEST(LowerProduct, IsExactInEveryShapeOfItsSum) {
  for (const bool inStages : {false, true})
    for (const bool cascades : {false, true})
      for (const bool isSigned : {false, true})
        for (const int x : {8, 11, 17, 25, 32, 53, 64})
          for (const int y : {7, 11, 24, 33, 53, 64}) {
            const MappingOptions options{.period = {x % 2 == 0 ? 2500 : 3333},
                                         .sums = {.inStages = inStages,
                                                  .counters = y % 2 == 0,
                                                  .chainStages = 1,
                                                  .cascades = cascades}};
            LoweredProduct product("TarnV", {x}, {y}, isSigned, options);
            product.expectOnlyBlocksOf(25, 18);
            product.checkCornersAndDraws(6);
          }
}

TEST(LowerProduct, TilesVeryLongFactors) {
  for (const bool isSigned : {false, true})
    for (const Size y : {Size{521}, Size{3}, Size{0}}) {
      LoweredProduct product("TarnV", {521}, y, isSigned);
      product.expectOnlyBlocksOf(25, 18);
      product.checkCornersAndDraws(10);
    }
  LoweredProduct product("TarnV", {1024}, {1024}, false);
  product.expectOnlyBlocksOf(25, 18);
  product.checkCornersAndDraws(2);
}

// Factors with constant bits in any place, as constants and shifted numbers have them.
TEST(LowerProduct, TakesConstantBits) {
  for (const bool isSigned : {false, true})
    for (unsigned long pattern = 0; pattern < 64; ++pattern) {
      Graph graph;
      Builder b(graph);
      const Signal x = b.input("x", 9), y = b.input("y", 3);
      std::vector<Signal> topFirst;
      for (int place = 5; place >= 0; --place)
        topFirst.push_back(place % 2 == 0 ? b.bitOf(y, place / 2) : b.bit(pattern >> place & 1));
      const Signal factor = b.concat(topFirst);
      b.output("r",
               lowerProduct(b, tarn(), {.period = {3333}, .lutPerDsp = 1000}, x, factor, isSigned));
      b.output("f", factor);
      graph::Evaluator evaluate(graph);
      for (unsigned long draw = 0; draw < 64; ++draw) {
        const MPZ patternX = MPZ(draw * 77 + pattern).lowBits(9);
        const auto results = evaluate(std::vector<MPZ>{patternX, MPZ(draw % 8)});
        const MPZ owed =
            isSigned ? patternX.asSigned(9) * results[1].asSigned(6) : patternX * results[1];
        ASSERT_EQ(results[0], owed.lowBits(15)) << pattern << " " << draw;
      }
    }
}

TEST(LowerProduct, TakesBlocksAsLongAsTheyAreWorthTheirPrice) {
  constexpr struct {
    int x, y;
    bool isSigned;
    int blocks;
  } kCases[] = {{24, 17, false, 1}, {17, 24, false, 1}, {25, 18, true, 1},  {18, 25, true, 1},
                {8, 8, false, 0},   {11, 11, false, 0}, {3, 3, true, 0},    {40, 4, false, 0},
                {24, 24, false, 2}, {26, 18, false, 1}, {32, 32, false, 2}, {53, 53, false, 6},
                {64, 64, false, 8}};
  for (const auto& c : kCases) {
    const LoweredProduct product("TarnV", {c.x}, {c.y}, c.isSigned);
    EXPECT_EQ(product.blocks(), c.blocks) << c.x << " x " << c.y;
  }
}

TEST(LowerProduct, FollowsThePriceThatWasAskedFor) {
  const auto blocksAt = [](double lutPerDsp, int width, bool isSigned) {
    LoweredProduct product("TarnV", {width}, {width}, isSigned,
                           {.period = {3333}, .lutPerDsp = lutPerDsp});
    product.expectOnlyBlocksOf(25, 18);
    product.checkCornersAndDraws(20);
    return product.blocks();
  };
  for (const bool isSigned : {false, true})
    for (const int width : {11, 16, 24, 32, 53, 64}) {
      int before = 1000;
      for (const double price : {1, 30, 100, 200, 300, 1000, 100000}) {
        const int blocks = blocksAt(price, width, isSigned);
        EXPECT_LE(blocks, before) << width << " at " << price;
        before = blocks;
      }
      EXPECT_EQ(before, 0) << width;
      EXPECT_GT(blocksAt(1, width, isSigned), 0) << width;
    }
}

// Look-up tables that additions with the logic before them take: one for each bit.
int tablesOf(const Graph& graph) {
  const std::vector<int> oneCycle(graph.size());
  return static_cast<int>(device::Cover::costBetweenRegisters(graph, tarn(), oneCycle).luts);
}

// The longest way through a graph without registers, in ps.
int longestPath(const Graph& graph) {
  const device::Cover cover(graph, tarn(), {20000});
  const device::BitSteps bits(graph, tarn(), cover);
  std::vector<device::BitTimes> arrival(graph.size());
  int longest = 0;
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    device::BitTimes start{.level = 0};
    for (const graph::NodeId operand : graph.operands(graph::NodeId{i}))
      start = later(start, bits.seen(operand, {i}, arrival[operand.index]));
    arrival[i] = bits.through({i}, start);
    longest = std::max(longest, arrival[i].last());
  }
  return longest;
}

// A row of two bits of a factor is one carry chain, its partial products made in the same tables;
// synthesised chains of 4 and 6 rows take as long as measured.
TEST(LowerProduct, MakesRowsInTheTablesThatAddThem) {
  for (const auto& [x, y, most] : {std::tuple{11, 11, 84}, {24, 7, 110}, {8, 8, 53}}) {
    const LoweredProduct product("TarnV", {x}, {y}, false, {.period = {8000}, .lutPerDsp = 1000});
    EXPECT_LE(tablesOf(product.built()), most) << x << " x " << y;
  }
  for (const auto& [x, y, measured] : {std::tuple{8, 7, 4000}, {24, 7, 4500}, {11, 11, 5700}}) {
    const LoweredProduct product("TarnV", {x}, {y}, false, {.period = {20000}, .lutPerDsp = 1000});
    EXPECT_GE(longestPath(product.built()), measured) << x << " x " << y;
    EXPECT_LE(longestPath(product.built()), measured * 1.3) << x << " x " << y;
  }
}

}  // namespace
}  // namespace mapping
