#include "backend/graph/loops.h"

#include <gtest/gtest.h>

#include "backend/graph/evaluator.h"
#include "backend/graph/random_graph.h"
#include "backend/graph/sample_loops.h"

namespace graph {
namespace {

using util::MPZ;

// By the definition: a node is in a loop when it reaches itself over operands and next values, and
// two nodes are in one set when each reaches the other.
TEST(Loops, AreTheNodesThatReachThemselves) {
  int inLoops = 0;
  for (std::uint32_t seed = 1; seed <= 60; ++seed) {
    RandomGraph draw(seed);
    const Graph graph = draw.make({.nodes = 40, .states = draw.upTo(6)});
    const std::size_t n = graph.size();
    std::vector<std::vector<bool>> reaches(n, std::vector<bool>(n));
    for (std::uint32_t i = 0; i < n; ++i)
      for (const NodeId operand : graph.operands(NodeId{i})) reaches[i][operand.index] = true;
    for (const State& state : graph.states()) reaches[state.node.index][state.next.index] = true;
    for (std::size_t via = 0; via < n; ++via)
      for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; reaches[i][via] && j < n; ++j)
          reaches[i][j] = reaches[i][j] || reaches[via][j];

    const Loops loops(graph);
    std::vector<std::uint32_t> seen;
    for (std::size_t set = 0; set < loops.setCount(); ++set)
      for (const NodeId id : loops.members(set)) seen.push_back(id.index);
    ASSERT_EQ(seen.size(), n);
    for (std::uint32_t i = 0; i < n; ++i) {
      bool dependent = graph.nodes()[i].op == Op::kInput;
      for (std::uint32_t j = 0; j < n; ++j) {
        dependent = dependent || (reaches[i][j] && graph.nodes()[j].op == Op::kInput);
        if (!reaches[i][j] || i == j) continue;
        ASSERT_EQ(loops.setOf({i}) == loops.setOf({j}), reaches[j][i]) << seed;
        ASSERT_LE(loops.setOf({j}), loops.setOf({i})) << seed;
      }
      ASSERT_EQ(loops.isInLoop({i}), reaches[i][i]) << seed;
      ASSERT_EQ(loops.dependsOnInputs({i}), dependent) << seed;
      inLoops += reaches[i][i] ? 1 : 0;
    }
  }
  EXPECT_GT(inLoops, 300);
}

TEST(Loops, KnowWhatRunsByItself) {
  Graph graph;
  Builder b(graph);
  const Signal x = b.input("x", 4);
  const Signal count = b.state(4), first = b.state(1, 1), before = b.state(4),
               still = b.state(4, 9);
  b.setNext(count, b.add(count, b.literal(1, 4)));
  b.setNext(first, b.bit(false));
  b.setNext(before, x);
  b.setNext(still, still);
  const Loops loops(graph);
  EXPECT_FALSE(loops.dependsOnInputs(count.node));
  EXPECT_FALSE(loops.dependsOnInputs(first.node));
  EXPECT_TRUE(loops.dependsOnInputs(before.node));
  EXPECT_TRUE(loops.isInLoop(count.node));
  EXPECT_TRUE(loops.isInLoop(still.node));
  EXPECT_FALSE(loops.isInLoop(first.node));
  EXPECT_FALSE(loops.isInLoop(before.node));
}

// The three accumulators against one sum of whole numbers.
TEST(Evaluator, SumsThroughStates) {
  Graph plain, blocks, saved;
  Builder bPlain(plain), bBlocks(blocks), bSaved(saved);
  buildAccumulator(bPlain, 96, 5);
  buildBlockAccumulator(bBlocks, 6, 16);
  buildCarrySaveAccumulator(bSaved, 6, 16);
  Evaluator plainSum(plain), blockSum(blocks), savedSum(saved);
  RandomGraph draw(1);
  for (int round = 0; round < 3; ++round) {
    MPZ sum = 0;
    for (int i = 0; i < 200; ++i) {
      const std::vector<MPZ> inputs = draw.inputsOf(plain);
      if (!inputs[0].isZero()) sum = (sum + inputs[1]).lowBits(96);
      EXPECT_EQ(plainSum(inputs)[0], (sum + MPZ(5)).lowBits(96));
      EXPECT_EQ(blockSum(inputs)[0], sum);
      const std::vector<MPZ> parts = savedSum(inputs);
      EXPECT_EQ((parts[0] + parts[1]).lowBits(96), sum);
      for (Evaluator* evaluator : {&plainSum, &blockSum, &savedSum}) evaluator->clock();
    }
    for (Evaluator* evaluator : {&plainSum, &blockSum, &savedSum}) evaluator->resetStates();
  }
}

// Each state takes the other's value of the cycle before, whichever is written first.
TEST(Evaluator, ExchangesStatesAllAtOnce) {
  Graph graph;
  Builder b(graph);
  const Signal p = b.state(70, 1), q = b.state(70, MPZ::powerOfTwo(69));
  b.setNext(p, q);
  b.setNext(q, p);
  b.output("p", p);
  Evaluator evaluate(graph);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(evaluate({})[0], i % 2 == 0 ? MPZ(1) : MPZ::powerOfTwo(69));
    evaluate.clock();
  }
}

}  // namespace
}  // namespace graph
