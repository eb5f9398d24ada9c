#include "backend/mapping/heap_lowering.h"

#include <fmt/format.h>

#include <array>
#include <random>
#include <vector>

#include "backend/mapping/arrivals.h"
#include "backend/mapping/mapping_test_support.h"

namespace mapping {
namespace {

using graph::HeapTerm;

// A term as a unit may write it, with the number that it adds for an input's value.
enum Form { kPlain, kComplement, kSignExtended, kConstant, kWithConstantPart, kFormCount };

struct FormRow {
  Signal (*bits)(Builder&, Signal x);
  MPZ (*value)(const MPZ& x, int width);
};
const FormRow kForms[kFormCount] = {
    {[](Builder&, Signal x) { return x; }, [](const MPZ& x, int) { return x; }},
    {[](Builder& b, Signal x) { return b.bitNot(x); },
     [](const MPZ& x, int width) { return MPZ::allOnes(width) - x; }},
    {[](Builder& b, Signal x) { return b.signExtend(x, x.width + 9); },
     [](const MPZ& x, int width) { return x.asSigned(width).lowBits(width + 9); }},
    {[](Builder& b, Signal x) { return b.literal(0x2d, x.width); },
     [](const MPZ&, int width) { return MPZ(0x2d).lowBits(width); }},
    {[](Builder& b, Signal x) {
       return b.concat({x, b.literal(0x55, 7)});
     },
     [](const MPZ& x, int) -> MPZ { return (x << 7) + MPZ(0x55); }},
};

struct Term {
  Form form;
  int inputWidth, shift;
};

class LoweredHeap {
 public:
  LoweredHeap(const std::vector<Term>& terms, int width, const MappingOptions& options = {})
      : terms(terms), width(width) {
    Builder builder(graph);
    std::vector<HeapTerm> heap;
    for (const Term& term : terms) {
      const Signal x = builder.input(fmt::format("x{}", heap.size()), term.inputWidth);
      heap.push_back({kForms[term.form].bits(builder, x), term.shift});
    }
    const Signal sum = lowerHeap(builder, tarn(), options, heap, width);
    EXPECT_EQ(sum.width, width);
    builder.output("r", sum);
    EXPECT_EQ(countOf(graph, Op::kHeap), 0);
  }

  ::testing::AssertionResult isRightFor(const std::vector<MPZ>& inputs) {
    MPZ owed;
    for (std::size_t i = 0; i < terms.size(); ++i)
      owed += kForms[terms[i].form].value(inputs[i], terms[i].inputWidth) << terms[i].shift;
    owed = owed.lowBits(width);
    const MPZ built = graph::Evaluator(graph)(inputs)[0];
    if (built == owed) return ::testing::AssertionSuccess();
    auto failure = ::testing::AssertionFailure();
    for (std::size_t i = 0; i < terms.size(); ++i)
      failure << "form " << terms[i].form << " of " << terms[i].inputWidth << " bits << "
              << terms[i].shift << ": " << inputs[i].toText(16) << "\n";
    return failure << width << " bits owed " << owed.toText(16) << ", built " << built.toText(16);
  }

  Graph graph;

 private:
  std::vector<Term> terms;
  int width;
};

// Zeros, all ones, and drawn values.
void check(const std::vector<Term>& terms, int width, std::mt19937& random, int draws,
           const MappingOptions& options = {}) {
  LoweredHeap heap(terms, width, options);
  for (int draw = 0; draw < draws; ++draw) {
    std::vector<MPZ> inputs;
    for (const Term& term : terms) {
      MPZ x = draw == 0 ? MPZ(0) : draw == 1 ? MPZ::allOnes(term.inputWidth) : MPZ(random());
      while (draw > 1 && x.bitLength() + 32 < static_cast<std::size_t>(term.inputWidth))
        x = (x << 32) + MPZ(random());
      inputs.push_back(x.lowBits(term.inputWidth));
    }
    ASSERT_TRUE(heap.isRightFor(inputs));
  }
}

TEST(LowerHeap, AddsAnyTermsModuloTheWidth) {
  std::mt19937 random(1);
  const auto below = [&](int limit) { return static_cast<int>(random() % limit); };
  for (int round = 0; round < 3000; ++round) {
    const int width = 1 + below(round % 10 == 0 ? 200 : 30);
    std::vector<Term> terms(1 + below(round % 10 == 0 ? 60 : 14));
    for (Term& term : terms) {
      const int longest = below(3) == 0 ? 1 : width;
      term = {below(2) == 0 ? kPlain : static_cast<Form>(below(kFormCount)), 1 + below(longest),
              below(width + 2)};
    }
    check(terms, width, random, 8);
  }
}

// Stages of a few tables, of one addition, and of many.
TEST(LowerHeap, AddsAnyTermsInStages) {
  std::mt19937 random(5);
  const auto below = [&](int limit) { return static_cast<int>(random() % limit); };
  for (int round = 0; round < 2000; ++round) {
    const bool isLarge = round % 10 == 0;
    const int width = 1 + below(isLarge ? 300 : 30);
    std::vector<Term> terms(1 + below(isLarge ? 40 : 14));
    for (Term& term : terms)
      term = {static_cast<Form>(below(kFormCount)), 1 + below(below(3) == 0 ? 1 : width),
              below(width + 2)};
    const int period = std::array{1100, 1700, 2500, 3333, 10000}[round % 5];
    check(terms, width, random, 6,
          {.period = {period},
           .sums = {.inStages = true, .counters = round % 2 == 0, .apart = round % 4 == 0}});
  }
  check(std::vector<Term>(100, {kPlain, 64, 0}), 71, random, 4,
        {.period = {3333}, .sums = {.inStages = true}});
  check({3, {kPlain, 2000, 0}}, 2002, random, 4, {.period = {3333}, .sums = {.inStages = true}});
}

// Table mappers take the bits of a chain for early ones, and where tables follow each other there
// they put them first: one table at most follows a chain in its stage.
TEST(LowerHeap, PutsNoTwoTablesBehindAChainInItsStage) {
  for (const int rows : {4, 5, 6, 7, 12})
    for (const int width : {8, 24, 40, 64, 100})
      for (const int period : {2500, 3333, 5000}) {
        const MappingOptions options{.period = {period},
                                     .sums = {.inStages = true, .counters = true}};
        const LoweredHeap heap(std::vector<Term>(rows, {kPlain, width, 0}), width + 5, options);
        const Graph& graph = heap.graph;
        const Arrivals arrivals(graph, tarn(), {period});
        std::vector<int> tables(graph.size(), -1);  // behind a chain, which has 0
        for (std::uint32_t i = 0; i < graph.size(); ++i) {
          const graph::Node& node = graph.node({i});
          for (const graph::NodeId operand : graph.operands(node))
            if (arrivals.of(operand).cycle == arrivals.of({i}).cycle)
              tables[i] = std::max(tables[i], tables[operand.index]);
          if (node.op == Op::kAdd) tables[i] = 0;
          if (node.op == Op::kLut && tables[i] >= 0) ++tables[i];
          EXPECT_LE(tables[i], 1) << rows << " rows of " << width << " at " << period;
        }
      }
}

// Copies of one signal: a column may hold two neighbouring bits of it, one of each copy.
TEST(LowerHeap, AddsCopiesOfOneSignal) {
  std::mt19937 random(4);
  for (int round = 0; round < 500; ++round) {
    const int width = 1 + static_cast<int>(random() % 12), sumWidth = 24;
    Graph graph;
    Builder b(graph);
    const Signal x = b.input("x", width), y = b.input("y", 1);
    std::vector<HeapTerm> terms{{y, 0}};
    MPZ factor;
    for (int copies = 2 + static_cast<int>(random() % 6); copies > 0; --copies) {
      const int shift = static_cast<int>(random() % 5);
      terms.push_back({x, shift});
      factor += MPZ::powerOfTwo(static_cast<unsigned long>(shift));
    }
    b.output("r", lowerHeap(b, tarn(), {}, terms, sumWidth));
    graph::Evaluator evaluate(graph);
    for (int draw = 0; draw < 20; ++draw) {
      const MPZ value = MPZ(random()).lowBits(static_cast<unsigned long>(width));
      const MPZ bit = MPZ(draw % 2);
      ASSERT_EQ(evaluate(std::vector{value, bit})[0], (value * factor + bit).lowBits(sumWidth));
    }
  }
}

TEST(LowerHeap, AddsManyEqualColumns) {
  std::mt19937 random(2);
  for (const int rows : {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 24, 25, 63, 64, 100, 256})
    for (const int width : {1, 2, 3, 33})
      check(std::vector<Term>(rows, {kPlain, width, 0}), width + 9, random, 6);
}

TEST(LowerHeap, AddsLargeHeapsByWholeRows) {
  std::mt19937 random(3);
  check(std::vector<Term>(256, {kPlain, 521, 0}), 529, random, 10);
  std::vector<Term> slanted;
  for (int i = 0; i < 700; ++i) slanted.push_back({kPlain, 40, i % 37 * 13 + i % 5});
  check(slanted, 512, random, 10);
  check({3, {kPlain, 9000, 0}}, 9002, random, 4);
}

// The operands of the only addition, its carry among them.
std::size_t operandsOfAddition(const Graph& graph) {
  EXPECT_EQ(countOf(graph, Op::kAdd), 1);
  for (const graph::Node& node : graph.nodes())
    if (node.op == Op::kAdd) return graph.operands(node).size();
  return 0;
}

TEST(LowerHeap, NeedsOneAdditionForThreeRowsAndACarry) {
  const LoweredHeap heap({{kPlain, 60, 0}, {kPlain, 60, 0}, {kPlain, 60, 0}, {kPlain, 1, 0}}, 60);
  EXPECT_EQ(operandsOfAddition(heap.graph), 4u);
  EXPECT_EQ(countOf(heap.graph, Op::kLut), 0);
}

// Three rows overlap in six columns only: counters there instead of a third addend.
TEST(LowerHeap, TakesTwoRowsWhereTheThirdIsShort) {
  const LoweredHeap heap({{kPlain, 40, 0}, {kPlain, 24, 17}, {kPlain, 24, 34}}, 60);
  EXPECT_EQ(operandsOfAddition(heap.graph), 3u);
  EXPECT_LE(countOf(heap.graph, Op::kLut), 7);
}

TEST(LowerHeap, PassesASingleTermThrough) {
  for (const Term term : {Term{kPlain, 8, 3}, Term{kConstant, 8, 0}, Term{kPlain, 8, 20}}) {
    LoweredHeap heap({term}, 16);
    EXPECT_EQ(countOf(heap.graph, Op::kAdd), 0);
    EXPECT_TRUE(heap.isRightFor({MPZ(0xb7)}));
  }
}

// A counter of six bits in each of 24 columns, and one addition no wider than the sum.
TEST(LowerHeap, TakesOneLevelOfCountersForSixRows) {
  const LoweredHeap heap(std::vector<Term>(6, {kPlain, 24, 0}), 40);
  EXPECT_EQ(countOf(heap.graph, Op::kLut), 24);
  EXPECT_EQ(countOf(heap.graph, Op::kAdd), 1);
  for (const graph::Node& node : heap.graph.nodes())
    EXPECT_TRUE(node.op != Op::kAdd || node.width <= 27) << node.width;
}

// Eight numbers extended to 64 bits: what stands above them is two bits each and constants.
TEST(LowerHeap, DoesNotAddCopiesOfSigns) {
  Graph graph;
  Builder builder(graph);
  std::vector<HeapTerm> terms;
  for (int i = 0; i < 8; ++i)
    terms.push_back({builder.signExtend(builder.input(fmt::format("x{}", i), 16), 64), 0});
  builder.output("r", lowerHeap(builder, tarn(), {}, terms, 64));
  EXPECT_LE(countOf(graph, Op::kLut), 60);
}

}  // namespace
}  // namespace mapping
