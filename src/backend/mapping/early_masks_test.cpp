#include "backend/mapping/early_masks.h"

#include <fmt/format.h>

#include <algorithm>

#include "backend/arithmetic/shifter.h"
#include "backend/device/device.h"
#include "backend/graph/random_graph.h"
#include "backend/mapping/mapping.h"
#include "backend/mapping/mapping_test_support.h"

namespace mapping {
namespace {

using graph::Builder;
using graph::Evaluator;
using graph::NodeId;
using graph::RandomGraph;
using graph::Signal;

// True when masks moved: then the function is the same and no node reads a later cycle.
bool moves(const Graph& graph, std::span<const int> cycles, RandomGraph& draw, int rows) {
  const auto moved = withEarlyMasks(graph, cycles);
  if (!moved) return false;
  Evaluator before(graph), after(moved->graph);
  for (int i = 0; i < rows; ++i) {
    const std::vector<MPZ> inputs = draw.inputsOf(graph);
    if (before(inputs) != after(inputs)) ADD_FAILURE() << "another function";
  }
  EXPECT_EQ(moved->cycleByNode.size(), moved->graph.size());
  for (std::uint32_t i = 0; i < moved->graph.size(); ++i)
    for (const NodeId operand : moved->graph.operands(NodeId{i}))
      EXPECT_TRUE(moved->graph.node(operand).op == Op::kLiteral ||
                  moved->cycleByNode[operand.index] <= moved->cycleByNode[i]);
  return true;
}

// Words of four bits and single bits, masks among them, each read by what comes later.
TEST(EarlyMasks, KeepTheFunctionsOfDrawnGraphs) {
  constexpr int kWidth = 4;
  int moved = 0;
  for (std::uint32_t seed = 1; seed <= 3000; ++seed) {
    RandomGraph draw(seed);
    Graph graph;
    Builder b(graph);
    std::vector<Signal> words, bits;
    for (int i = 0; i < 3; ++i) {
      words.push_back(b.input(fmt::format("w{}", i), kWidth));
      bits.push_back(b.input(fmt::format("b{}", i), 1));
    }
    const auto one = [&](const std::vector<Signal>& of) {
      return of[static_cast<std::size_t>(draw.upTo(static_cast<int>(of.size())) - 1)];
    };
    for (int i = 0; i < 14; ++i) {
      const Signal x = one(words), y = one(words), p = one(bits), q = one(bits);
      switch (draw.upTo(9)) {
        case 1:
          words.push_back(b.select(p, x, b.shiftedUp(b.slice(x, 0, kWidth - 1), 1)));
          break;
        case 2:
          words.push_back(b.bitOr(x, y));
          break;
        case 3:
          words.push_back(b.bitAnd(x, b.replicate(p, kWidth)));
          break;
        case 4:
          words.push_back(b.select(p, b.zeros(kWidth), x));
          break;
        case 5:
          words.push_back(b.add(x, y));
          break;
        case 6:
          bits.push_back(b.reduceOr(b.concat({p, x})));
          break;
        case 7:
          bits.push_back(b.bitAnd(p, b.bitNot(q)));
          break;
        case 8:
          bits.push_back(b.bitOr(p, q));
          break;
        default:
          bits.push_back(b.bitOf(x, draw.upTo(kWidth) - 1));
      }
    }
    b.output("word", words.back());
    b.output("bit", bits.back());
    const Graph live = mapGraph(graph, tarn(), {.period = {3333}, .combinational = true});
    std::vector<int> cycles(live.size());
    for (std::uint32_t i = 0; i < live.size(); ++i) {
      for (const NodeId operand : live.operands(NodeId{i}))
        cycles[i] = std::max(cycles[i], cycles[operand.index]);
      if (live.node({i}).op != Op::kInput && draw.upTo(4) == 1) ++cycles[i];
    }
    moved += moves(live, cycles, draw, 40);
  }
  EXPECT_GT(moved, 100);
}

// A right shift to 0 beyond its width: the word behind the first level is masked in place of the
// last one, as its sticky bit is 1 beyond anyway; not where a port shows that word.
TEST(EarlyMasks, PassLevelsOfAShift) {
  for (const bool isShown : {false, true}) {
    RandomGraph draw(1);
    Graph graph;
    Builder b(graph);
    const Signal x = b.input("x", 13), amount = b.input("amount", 5), present = b.input("p", 1);
    const auto right = arithmetic::shiftRightSticky(b, x, amount, present);
    b.output("shifted", right.bits);
    b.output("sticky", right.sticky);
    std::uint32_t level = 0;
    while (graph.node({level}).op != Op::kPick || graph.node({level}).width != x.width) ++level;
    if (isShown) b.output("level", graph.signal({level}));
    std::vector<int> cycles(graph.size(), 2);
    std::fill_n(cycles.begin(), level + 1, 1);
    for (const Signal input : {x, amount, present}) cycles[input.node.index] = 0;
    EXPECT_EQ(moves(graph, cycles, draw, 500), !isShown);
  }
}

// A mask by an or that its own cycle makes, which tools would make once for each inverted clear; of
// one that is known before, the inverse of the or's bit is what there is.
TEST(EarlyMasks, ClearByAnAndOfInverses) {
  for (const int cycleOfOr : {0, 1}) {
    RandomGraph draw(1);
    Graph graph;
    Builder b(graph);
    const Signal x = b.input("x", 13), bits = b.input("bits", 9);
    const Signal any = b.reduceOr(bits), word = b.bitXor(x, b.shiftedUp(b.slice(x, 0, 12), 1));
    const Signal masked = b.bitAnd(word, b.replicate(any, 13));
    b.output("masked", masked);
    b.output("any", any);
    std::vector<int> cycles(graph.size(), 2);
    cycles[x.node.index] = cycles[bits.node.index] = 0;
    cycles[any.node.index] = cycleOfOr;
    for (std::uint32_t i = 0; i <= word.node.index; ++i)
      if (i > any.node.index) cycles[i] = 1;
    const auto moved = withEarlyMasks(graph, cycles);
    ASSERT_TRUE(moved);
    EXPECT_TRUE(moves(graph, cycles, draw, 100));
    const auto& nodes = moved->graph.nodes();
    EXPECT_EQ(std::ranges::count(nodes, Op::kReduceAnd, &graph::Node::op), cycleOfOr);
    EXPECT_EQ(std::ranges::count(nodes, Op::kReduceOr, &graph::Node::op), 1);
  }
}

}  // namespace
}  // namespace mapping
