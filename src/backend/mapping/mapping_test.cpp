#include "backend/mapping/mapping.h"

#include <fmt/format.h>

#include <limits>

#include "backend/graph/random_graph.h"
#include "backend/graph/sample_loops.h"
#include "backend/mapping/arrivals.h"
#include "backend/mapping/mapping_test_support.h"

namespace mapping {
namespace {

using graph::Evaluator;
using graph::RandomGraph;

void expectSameFunction(const Graph& graph, const Graph& mapped, RandomGraph& draw, int rows) {
  Evaluator before(graph), after(mapped);
  for (int i = 0; i < rows; ++i) {
    const std::vector<MPZ> inputs = draw.inputsOf(graph);
    ASSERT_EQ(before(inputs), after(inputs));
    before.clock();
    after.clock();
  }
}

// Nodes whose time alone is above the period.
int misfits(const Graph& mapped, int period) {
  int count = 0;
  for (std::uint32_t i = 0; i < mapped.size(); ++i)
    count += (tarn().clockToOutput() + tarn().delayToRegister(mapped, {i}) + tarn().setup()).value >
             period;
  return count;
}

TEST(MapGraph, KeepsTheSequencesOfDrawnGraphs) {
  std::size_t states = 0;
  for (const bool hasStates : {false, true})
    for (std::uint32_t seed = 1; seed <= (hasStates ? 100 : 150); ++seed) {
      RandomGraph draw(seed);
      const Graph graph = draw.make({.nodes = 60,
                                     .maxWidth = seed % 3 == 0 ? 150 : 20,
                                     .states = hasStates ? draw.upTo(8) : 0,
                                     .tables = !hasStates && seed % 2 == 0});
      const int period = hasStates || seed % 2 == 0 ? 1700 : 3333;
      const Graph mapped =
          mapGraph(graph, tarn(), {.period = {period}, .combinational = seed % 5 == 0});
      expectSameFunction(graph, mapped, draw, hasStates ? 60 : 20);
      EXPECT_EQ(countOf(mapped, Op::kHeap), 0) << seed;
      states += mapped.states().size();
    }
  EXPECT_GT(states, 150u);
}

// At 300 MHz: stages until a product is there, and what it may take.
TEST(MapGraph, ProductsTakeFewStages) {
  struct Case {
    int width, stages;
    double most;  // tables
  };
  for (const Case& c : {Case{11, 1, 140}, {24, 2, 30}, {32, 2, 280}, {53, 3, 850}, {64, 3, 1500}}) {
    Graph graph;
    Builder b(graph);
    b.output("r", b.multiply(b.input("x", c.width), b.input("y", c.width)));
    const Graph mapped = mapGraph(graph, tarn(), {.period = {3333}});
    const Arrivals arrivals(mapped, tarn(), {3333});
    EXPECT_LE(arrivals.of(mapped.outputs()[0].signal.node).cycle, c.stages) << c.width;
    EXPECT_LE(arrivals.clusters().cost().luts, c.most) << c.width;
    RandomGraph draw(static_cast<std::uint32_t>(c.width));
    expectSameFunction(graph, mapped, draw, 20);
  }
}

// A product and half of a place, in digit rows: the chain on top begins with it.
TEST(MapGraph, RowsTakeTheConstantOfTheirSum) {
  Graph graph;
  Builder b(graph);
  const Signal product = b.multiply(b.input("x", 11), b.input("y", 11));
  b.output("r", b.heap(std::vector<graph::HeapTerm>{{product, 0}, {b.literal(512, 22), 0}}, 22));
  const Graph mapped = mapGraph(graph, tarn(), {.period = {3333}});
  EXPECT_EQ(countOf(mapped, Op::kLut), 0);
  RandomGraph draw(7);
  expectSameFunction(graph, mapped, draw, 2000);
}

// Where tables go: in blocks where those are worth less and a register may follow.
TEST(MapGraph, PutsTablesIntoMemoryWhereThatPays) {
  RandomGraph draw(11);
  const auto rowsOf = [&](int indexWidth, int width) {
    std::vector<MPZ> rows;
    for (int i = 0; i < 1 << indexWidth; ++i) rows.push_back(draw.pattern(width));
    return rows;
  };
  struct Row {
    int indexWidth, width;
    MappingOptions options;
    bool isInMemory;
  };
  constexpr double kNone = std::numeric_limits<double>::infinity();
  for (const Row& row : {Row{9, 24, {.period = {5000}}, true},
                         Row{9, 24, {.period = {5000}, .combinational = true}, false},
                         Row{9, 24, {.period = {5000}, .lutPerMemory = kNone}, false},
                         Row{9, 24, {.period = {2500}}, false},  // a block takes 2563
                         Row{7, 24, {.period = {5000}}, false},
                         Row{7, 24, {.period = {5000}, .lutPerMemory = 10}, true},
                         Row{12, 40, {.period = {5000}}, true}}) {
    Graph graph;
    Builder b(graph);
    const Signal x = b.input("x", row.indexWidth);
    const Signal word = b.table(x, rowsOf(row.indexWidth, row.width), row.width);
    // One in a loop and one that a state takes stay in logic.
    const Signal state = b.state(row.width), delay = b.state(row.width);
    const Signal looped = b.table(b.bitXor(x, b.slice(state, 0, row.indexWidth)),
                                  rowsOf(row.indexWidth, row.width), row.width);
    b.setNext(state, looped);
    b.setNext(delay, b.table(x, rowsOf(row.indexWidth, row.width), row.width));
    b.output("word", b.bitXor(word, delay));
    b.output("state", state);
    const Graph mapped = mapGraph(graph, tarn(), row.options);
    expectSameFunction(graph, mapped, draw, 50);
    EXPECT_EQ(countOf(mapped, Op::kMemory), row.isInMemory) << row.indexWidth;
    EXPECT_GT(countOf(mapped, Op::kTable), 0);
  }
}

// The addition between state and state stays whole; the one that only reads the state is cut.
TEST(MapGraph, CutsNoLoop) {
  Graph graph;
  Builder b(graph);
  buildAccumulator(b, 200, MPZ::powerOfTwo(190));
  const graph::State& state = graph.states()[0];
  b.output("more", b.add(graph.signal(state.next), b.zeroExtend(b.input("y", 150), 200)));
  // Nothing reads this one.
  const Signal dead = b.state(8);
  b.setNext(dead, b.add(dead, b.literal(1, 8)));
  const Graph mapped = mapGraph(graph, tarn(), {.period = {2000}});
  ASSERT_EQ(mapped.states().size(), 1u);
  EXPECT_EQ(mapped.states()[0].initial, MPZ::powerOfTwo(190));
  EXPECT_EQ(misfits(mapped, 2000), 1);
  EXPECT_GT(countOf(mapped, Op::kAdd), 2);
  RandomGraph draw(5);
  expectSameFunction(graph, mapped, draw, 300);
}

TEST(MapGraph, KeepsPortsScopesAndNamesAndDropsDeadNodes) {
  Graph graph;
  Builder b(graph);
  const Signal valid = b.input("valid", 1, true), unused = b.input("unused", 7);
  const Signal x = b.input("x", 8);
  b.multiply(unused, x);
  Signal sum;
  {
    const auto scope = b.scope("adder");
    sum = b.name(b.add(x, b.slice(b.concat({unused, valid}), 0, 8)), "total");
  }
  b.output("v", valid);
  b.output("s", sum);
  const Graph mapped = mapGraph(graph, tarn(), {.period = {3333}});
  ASSERT_EQ(mapped.inputs().size(), 3u);
  EXPECT_EQ(mapped.inputs()[1].name, "unused");
  EXPECT_TRUE(mapped.inputs()[0].isControl);
  EXPECT_FALSE(mapped.inputs()[2].isControl);
  EXPECT_EQ(mapped.outputs()[1].name, "s");
  EXPECT_EQ(countOf(mapped, Op::kMultiply), 0);
  const graph::NodeId total = mapped.outputs()[1].signal.node;
  EXPECT_EQ(mapped.nameOf(total), "total");
  EXPECT_EQ(mapped.scopes()[mapped.node(total).scope].name, "adder");
}

// One operation that no stage of 500 MHz holds, on inputs of `width` bits.
struct Wide {
  const char* name;
  int width;
  Signal (*build)(Builder&, Signal x, Signal y);
};
const Wide kWide[] = {
    {"add", 256, [](Builder& b, Signal x, Signal y) { return b.add(x, y); }},
    {"add with carry", 101,
     [](Builder& b, Signal x, Signal y) { return b.addCarry(x, y, b.topBit(x)); }},
    {"add three", 90,
     [](Builder& b, Signal x, Signal y) {
       return b.addThree(x, y, b.bitNot(b.shiftedUp(b.slice(x, 0, x.width - 1), 1)), b.bitOf(y, 3));
     }},
    {"less", 200, [](Builder& b, Signal x, Signal y) { return b.less(x, y); }},
    {"less signed", 131, [](Builder& b, Signal x, Signal y) { return b.lessSigned(x, y); }},
    {"equal", 256, [](Builder& b, Signal x, Signal y) { return b.equal(x, y); }},
    {"reduce or", 256, [](Builder& b, Signal x, Signal) { return b.reduceOr(x); }},
    {"reduce and", 1000, [](Builder& b, Signal x, Signal) { return b.reduceAnd(x); }},
    {"reduce xor", 300, [](Builder& b, Signal x, Signal) { return b.reduceXor(x); }},
    {"product", 64, [](Builder& b, Signal x, Signal y) { return b.multiply(x, y); }},
    {"signed product", 60, [](Builder& b, Signal x, Signal y) { return b.multiplySigned(x, y); }},
};

TEST(MapGraph, CutsWideOperationsToFitTheClock) {
  for (const Wide& row : kWide) {
    Graph graph;
    Builder b(graph);
    b.output("r", row.build(b, b.input("x", row.width), b.input("y", row.width)));
    const Graph mapped = mapGraph(graph, tarn(), {.period = {2000}});
    EXPECT_EQ(misfits(mapped, 2000), 0) << row.name;
    RandomGraph draw(7);
    expectSameFunction(graph, mapped, draw, 200);
    // Operands that differ in one bit only, which drawn ones never do.
    Evaluator before(graph), after(mapped);
    for (int bit = 0; bit < row.width; ++bit) {
      const MPZ x = draw.pattern(row.width);
      for (const MPZ& y : {x, x ^ MPZ::powerOfTwo(static_cast<unsigned long>(bit)),
                           MPZ::allOnes(static_cast<unsigned long>(row.width)) - x})
        ASSERT_EQ(before(std::vector{x, y}), after(std::vector{x, y})) << row.name << " " << bit;
      const MPZ oneHot = MPZ::powerOfTwo(static_cast<unsigned long>(bit));
      const MPZ oneCold = MPZ::allOnes(static_cast<unsigned long>(row.width)) - oneHot;
      ASSERT_EQ(before(std::vector{oneHot, x}), after(std::vector{oneHot, x})) << row.name;
      ASSERT_EQ(before(std::vector{oneCold, x}), after(std::vector{oneCold, x})) << row.name;
    }
  }
}

// A sum by itself is there in four stages, however wide, where its carries pass many pieces; of
// sums one behind the other the pieces that ripple overlap.
TEST(MapGraph, IncrementsPiecesWhereThatSavesStages) {
  for (const auto& [sums, width, stages] :
       {std::tuple{1, 256, 4}, {1, 400, 4}, {1, 100, 3}, {8, 256, 16}}) {
    Graph graph;
    Builder b(graph);
    Signal sum = b.input("x", width), few = b.input("f", width);
    for (int i = 0; i < 6; ++i) few = b.bitAnd(few, b.input(fmt::format("f{}", i), width));
    for (int i = 0; i < sums; ++i)
      sum = b.addCarry(
          sum, i == 0 ? b.bitXor(b.bitNot(sum), few) : b.input(fmt::format("y{}", i), width),
          b.input(fmt::format("c{}", i), 1));
    b.output("r", sum);
    const Graph mapped = mapGraph(graph, tarn(), {.period = {2500}});
    RandomGraph draw(static_cast<std::uint32_t>(width));
    expectSameFunction(graph, mapped, draw, 300);
    EXPECT_EQ(misfits(mapped, 2500), 0);
    const Arrivals arrivals(mapped, tarn(), {2500});
    EXPECT_LE(arrivals.of(mapped.outputs()[0].signal.node).cycle, stages) << sums << " " << width;
  }
}

// Indices past the end, inside and behind the last group of four.
TEST(MapGraph, CutsPicksAndKeepsWhatAnIndexPastTheEndPicks) {
  for (const int ways : {17, 18, 20, 21, 33, 60, 63, 64}) {
    for (const int indexWidth : {6, 7, 9}) {
      Graph graph;
      Builder b(graph);
      const Signal index = b.input("i", indexWidth);
      std::vector<Signal> choices;
      for (int i = 0; i < ways; ++i) choices.push_back(b.input(fmt::format("c{}", i), 8));
      b.output("r", b.pick(index, choices));
      const Graph mapped = mapGraph(graph, tarn(), {.period = {1500}});
      EXPECT_EQ(misfits(mapped, 1500), 0) << ways;
      Evaluator after(mapped);
      std::vector<MPZ> inputs(static_cast<std::size_t>(ways) + 1);
      for (int i = 0; i < ways; ++i) inputs[static_cast<std::size_t>(i) + 1] = MPZ(3 * i + 1);
      for (int i = 0; i < 1 << indexWidth; ++i) {
        inputs[0] = MPZ(i);
        ASSERT_EQ(after(inputs)[0], MPZ((3 * std::min(i, ways - 1) + 1) % 256))
            << ways << " ways, index " << i;
      }
    }
  }
}

TEST(MapGraph, CutsNothingOfACombinationalUnit) {
  Graph graph;
  Builder b(graph);
  b.output("r", b.add(b.input("x", 300), b.input("y", 300)));
  const Graph mapped = mapGraph(graph, tarn(), {.period = {2000}, .combinational = true});
  EXPECT_EQ(mapped.node(mapped.outputs()[0].signal.node).op, Op::kAdd);
  EXPECT_EQ(mapped.node(mapped.outputs()[0].signal.node).width, 300);
}

// Products that only a heap reads join it in parts; others are numbers of their own.
TEST(MapGraph, AddsProductsUpTogether) {
  for (const bool isSigned : {false, true})
    for (const int width : {9, 24, 33, 53})
      for (const bool isShared : {false, true}) {
        Graph graph;
        Builder b(graph);
        const Signal x = b.input("x", width), y = b.input("y", width), z = b.input("z", 2 * width);
        const int sumWidth = 2 * width + 7;
        std::vector<graph::HeapTerm> terms{{z, 3}};
        for (const Signal factor : {y, b.bitNot(y), b.bitXor(x, y), x}) {
          const Signal product = isSigned ? b.multiplySigned(x, factor) : b.multiply(x, factor);
          const int shift = static_cast<int>(terms.size());
          terms.push_back({isSigned ? b.signExtend(product, sumWidth - shift) : product, shift});
          if (isShared) b.output(fmt::format("p{}", shift), product);
        }
        b.output("s", b.heap(terms, sumWidth));
        const Graph mapped = mapGraph(graph, tarn(), {.period = {3333}});
        RandomGraph draw(static_cast<std::uint32_t>(width));
        expectSameFunction(graph, mapped, draw, 40);
        for (const graph::Node& node : mapped.nodes()) {
          if (node.op != Op::kMultiply && node.op != Op::kMultiplySigned) continue;
          EXPECT_LE(node.width, 43) << width;
        }
      }
}

}  // namespace
}  // namespace mapping
