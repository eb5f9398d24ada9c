#include "backend/graph/builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "backend/graph/evaluator.h"
#include "backend/graph/random_graph.h"

namespace graph {
namespace {

using util::MPZ;

class BuilderTest : public ::testing::Test {
 protected:
  Graph graph;
  Builder b{graph};
  Signal x = b.input("x", 4);
  Signal y = b.input("y", 4);
  Signal c = b.input("c", 1);
};

TEST_F(BuilderTest, SharesEqualNodesWhateverTheOrderOfCommutingOperands) {
  EXPECT_EQ(b.bitAnd(x, y), b.bitAnd(y, x));
  EXPECT_EQ(b.bitXor(x, y), b.bitXor(y, x));
  EXPECT_EQ(b.addCarry(x, y, c), b.addCarry(y, x, c));
  EXPECT_EQ(b.addThree(x, y, b.bitNot(x), c), b.addThree(b.bitNot(x), y, x, c));
  EXPECT_EQ(b.equal(x, y), b.equal(y, x));
  EXPECT_EQ(b.multiply(x, y), b.multiply(y, x));
  EXPECT_EQ(b.literal(5, 4), b.literal(21, 4));
  EXPECT_NE(b.less(x, y), b.less(y, x));
  EXPECT_NE(b.slice(x, 0, 2), b.slice(x, 1, 2));
  const std::vector<HeapTerm> terms{{x, 0}, {y, 1}}, shifted{{x, 0}, {y, 2}};
  EXPECT_EQ(b.heap(terms, 7), b.heap(terms, 7));
  EXPECT_NE(b.heap(terms, 7), b.heap(shifted, 7));
}

TEST_F(BuilderTest, LeavesOutMasksThatFollow) {
  const Signal any = b.reduceOr(x), all = b.reduceAnd(x);
  const auto mask = [&](Signal bit) { return b.replicate(bit, 4); };
  EXPECT_EQ(b.bitAnd(x, mask(any)), x);
  EXPECT_EQ(b.bitAnd(b.slice(x, 1, 2), b.replicate(any, 2)), b.slice(x, 1, 2));
  EXPECT_EQ(b.bitAnd(x, mask(b.bitOr(c, any))), x);
  EXPECT_EQ(b.bitOr(x, mask(all)), x);
  EXPECT_EQ(b.bitAnd(all, any), all);
  EXPECT_EQ(b.bitOr(b.bitAnd(all, b.bitNot(c)), b.bitAnd(all, c)), all);
  EXPECT_EQ(b.bitAnd(b.bitAnd(y, mask(c)), mask(c)), b.bitAnd(y, mask(c)));
  // The outer mask says the inner one.
  EXPECT_EQ(b.bitAnd(b.bitAnd(y, mask(any)), mask(b.bitNot(b.bitOr(b.bitNot(any), c)))),
            b.bitAnd(y, mask(b.bitNot(b.bitOr(b.bitNot(any), c)))));
  EXPECT_EQ(b.bitAnd(b.bitNot(any), b.bitNot(all)), b.bitNot(any));
  EXPECT_NE(b.bitAnd(y, mask(any)), y);
  EXPECT_NE(b.bitAnd(x, mask(all)), x);
  EXPECT_NE(b.bitOr(x, mask(any)), x);
  EXPECT_NE(b.bitAnd(b.bitNot(x), mask(any)), b.bitNot(x));
}

TEST_F(BuilderTest, SeesThroughWiring) {
  const Signal joined = b.concat({x, y});
  EXPECT_EQ(b.slice(joined, 0, 4), y);
  EXPECT_EQ(b.slice(joined, 4, 4), x);
  EXPECT_EQ(b.slice(joined, 2, 4), b.concat({b.slice(x, 0, 2), b.slice(y, 2, 2)}));
  EXPECT_EQ(b.concat({b.slice(x, 2, 2), b.slice(x, 0, 2)}), x);
  EXPECT_EQ(b.concat({Signal{}, x, b.zeros(0)}), x);
  EXPECT_EQ(b.concat({b.literal(1, 1), b.literal(2, 3)}), b.literal(10, 4));
  EXPECT_EQ(b.slice(b.replicate(c, 9), 3, 2), b.replicate(c, 2));
  EXPECT_EQ(b.bitNot(b.bitNot(x)), x);
  EXPECT_EQ(b.select(b.bitNot(c), x, y), b.select(c, y, x));
}

// A table of ten bits is built of what its columns need; its rows are the reference.
TEST_F(BuilderTest, FoldsTables) {
  const Signal wide = b.input("wide", 10);
  RandomGraph draw(3);
  std::vector<MPZ> drawn;
  for (int i = 0; i < 1024; ++i) drawn.push_back(draw.pattern(5));
  const auto rowsBy = [](int count, const std::function<MPZ(unsigned long)>& row) {
    std::vector<MPZ> rows;
    for (int x = 0; x < count; ++x) rows.push_back(row(static_cast<unsigned long>(x)));
    return rows;
  };
  const auto at = [&](unsigned long x) { return drawn[x]; };
  const auto opOf = [&](Signal s) { return graph.node(s.node).op; };
  const auto tables = [&] {
    return std::ranges::count_if(graph.nodes(), [](const Node& n) { return n.op == Op::kTable; });
  };

  const Signal whole = b.table(wide, drawn, 5);
  EXPECT_EQ(opOf(whole), Op::kTable);
  EXPECT_EQ(b.table(wide, drawn, 5), whole);
  EXPECT_EQ(tables(), 1);
  EXPECT_EQ(b.table(b.literal(77, 10), drawn, 5), b.literal(drawn[77], 5));
  EXPECT_EQ(b.memory(b.literal(77, 10), drawn, 5), b.literal(drawn[77], 5));
  // Parts of the index, constants, and each other.
  EXPECT_EQ(b.table(wide, rowsBy(1024, [](unsigned long x) { return MPZ(x >> 3 & 31); }), 5),
            b.slice(wide, 3, 5));
  EXPECT_EQ(b.table(wide, rowsBy(1024, [](unsigned long x) { return MPZ(~x & 7); }), 3),
            b.concat({b.bitNot(b.bitOf(wide, 2)), b.bitNot(b.bitOf(wide, 1)),
                      b.bitNot(b.bitOf(wide, 0))}));
  EXPECT_EQ(b.table(wide, rowsBy(1024, [](unsigned long) { return MPZ(9); }), 4), b.literal(9, 4));
  EXPECT_EQ(
      b.table(wide, rowsBy(1024, [&](unsigned long x) { return (at(x) << 6) | MPZ(32) | at(x); }),
              11),
      b.concat({whole, b.literal(1, 1), whole}));
  EXPECT_EQ(tables(), 1);
  // Bits of the index that nothing depends on, that are literals or that stand there twice.
  const auto few = rowsBy(1024, [&](unsigned long x) { return at((x >> 2 & 3) | (x >> 3 & 60)); });
  const Signal lut = b.table(wide, few, 5);
  EXPECT_EQ(opOf(lut), Op::kLut);
  EXPECT_EQ(graph.node(graph.operands(lut.node)[0]).width, 6);
  EXPECT_EQ(opOf(b.table(b.concat({x, b.literal(5, 4), b.slice(y, 0, 2)}), drawn, 5)), Op::kLut);
  EXPECT_EQ(opOf(b.table(b.concat({x, b.replicate(c, 6)}), drawn, 5)), Op::kLut);
  EXPECT_EQ(tables(), 1);
  const Signal narrow = b.table(b.concat({b.slice(wide, 0, 4), x, b.literal(2, 2)}), drawn, 5);
  EXPECT_EQ(graph.node(graph.operands(narrow.node)[0]).width, 8);
  // A column of few inputs leaves the table.
  const Signal mixed = b.table(
      wide, rowsBy(1024, [&](unsigned long x) { return (at(x) << 1) | MPZ((x & 9) == 9 ? 1 : 0); }),
      6);
  EXPECT_EQ(b.slice(mixed, 1, 5), whole);
  EXPECT_EQ(graph.node(b.bitOf(mixed, 0).node).op, Op::kLut);

  for (const auto& [name, s] : std::initializer_list<std::pair<const char*, Signal>>{
           {"whole", whole},
           {"lut", lut},
           {"narrow", narrow},
           {"mixed", mixed},
           {"literals", b.table(b.concat({x, b.literal(5, 4), b.slice(y, 0, 2)}), drawn, 5)},
           {"twice", b.table(b.concat({x, b.replicate(c, 6)}), drawn, 5)},
           {"memory", b.memory(wide, drawn, 5)}})
    b.output(name, s);
  Evaluator evaluator(graph);
  for (unsigned long v = 0; v < 1024; ++v) {
    const unsigned long p = v * 7 % 16, q = v % 16, one = v % 2;
    const std::vector<MPZ> found = evaluator(std::vector<MPZ>{p, q, one, v});
    EXPECT_EQ(found, (std::vector<MPZ>{at(v), few[v], at((v % 16) << 6 | p << 2 | 2),
                                       (at(v) << 1) | MPZ((v & 9) == 9 ? 1 : 0),
                                       at(p << 6 | 5 << 2 | q % 4), at(p << 6 | 63 * one), at(v)}));
  }
}

TEST_F(BuilderTest, KeepsNodesInTopologicalOrder) {
  b.output("r", b.select(b.less(x, y), b.add(x, y), b.bitNot(b.multiply(x, y)) == x ? x : y));
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    for (const NodeId operand : graph.operands(NodeId{i})) EXPECT_LT(operand.index, i);
}

TEST_F(BuilderTest, ScopesNestAndSharingKeepsTheFirstOwner) {
  Signal inner, again;
  {
    const auto outer = b.scope("outer");
    {
      const auto scope = b.scope("inner");
      inner = b.add(x, y);
    }
    again = b.add(y, x);
  }
  EXPECT_EQ(inner, again);
  const Scope& scope = graph.scopes()[graph.node(inner.node).scope];
  EXPECT_EQ(scope.name, "inner");
  EXPECT_EQ(graph.scopes()[static_cast<std::size_t>(scope.parent)].name, "outer");
  EXPECT_EQ(graph.node(b.bitAnd(x, y).node).scope, 0u);
}

TEST_F(BuilderTest, FirstNameStays) {
  const Signal sum = b.name(b.add(x, y), "sum");
  b.name(sum, "other");
  EXPECT_EQ(graph.nameOf(sum.node), "sum");
  EXPECT_EQ(graph.nameOf(x.node), "");
}

TEST_F(BuilderTest, WidthsThatDoNotFitEndTheRun) {
  EXPECT_EXIT(b.add(x, c), ::testing::ExitedWithCode(255), "unequal widths");
  EXPECT_EXIT(b.slice(x, 2, 3), ::testing::ExitedWithCode(255), "inside its operand");
  EXPECT_EXIT(b.lut(b.concat({x, y}), 0, 1), ::testing::ExitedWithCode(255), "six");
}

}  // namespace
}  // namespace graph
