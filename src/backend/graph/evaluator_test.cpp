#include "backend/graph/evaluator.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>

#include "backend/graph/builder.h"
#include "backend/graph/random_graph.h"

namespace graph {
namespace {

using util::MPZ;

using Build = std::function<Signal(Builder&, const std::vector<Signal>&)>;
using Reference = std::function<MPZ(const std::vector<MPZ>&, const std::vector<int>&)>;

MPZ bitOf(bool value) { return value ? 1 : 0; }

// Each operation as a construction and as what it means on whole numbers; the reference is cut to
// the width of the result.
struct Case {
  const char* name;
  std::vector<int> widths;  // of the operands; 0 stands for the width that is tried
  Build build;
  Reference reference;
};

const std::vector<Case>& cases() {
  using Signals = const std::vector<Signal>&;
  using Values = const std::vector<MPZ>&;
  using Widths = const std::vector<int>&;
  static const std::vector<Case> rows = {
      {"not",
       {0},
       [](Builder& b, Signals s) { return b.bitNot(s[0]); },
       [](Values v, Widths w) { return MPZ::allOnes(w[0]) - v[0]; }},
      {"and",
       {0, 0},
       [](Builder& b, Signals s) { return b.bitAnd(s[0], s[1]); },
       [](Values v, Widths) { return v[0] & v[1]; }},
      {"or",
       {0, 0},
       [](Builder& b, Signals s) { return b.bitOr(s[0], s[1]); },
       [](Values v, Widths) { return v[0] | v[1]; }},
      {"xor",
       {0, 0},
       [](Builder& b, Signals s) { return b.bitXor(s[0], s[1]); },
       [](Values v, Widths) { return v[0] ^ v[1]; }},
      {"select",
       {1, 0, 0},
       [](Builder& b, Signals s) { return b.select(s[0], s[1], s[2]); },
       [](Values v, Widths) { return v[0].isZero() ? v[2] : v[1]; }},
      {"pick",
       {0, 2, 2, 2},
       [](Builder& b, Signals s) {
         return b.pick(s[0], std::vector{s[1], s[2], s[3]});
       },
       [](Values v, Widths) { return v[0].isZero()    ? v[1]
                                     : v[0] == MPZ(1) ? v[2]
                                                      : v[3]; }},
      {"reduce-and",
       {0},
       [](Builder& b, Signals s) { return b.reduceAnd(s[0]); },
       [](Values v, Widths w) { return bitOf(v[0] == MPZ::allOnes(w[0])); }},
      {"reduce-or",
       {0},
       [](Builder& b, Signals s) { return b.reduceOr(s[0]); },
       [](Values v, Widths) { return bitOf(v[0].sign() > 0); }},
      {"reduce-xor",
       {0},
       [](Builder& b, Signals s) { return b.reduceXor(s[0]); },
       [](Values v, Widths) { return bitOf(mpz_popcount(v[0].get()) % 2 == 1); }},
      {"add",
       {0, 0, 1},
       [](Builder& b, Signals s) { return b.addCarry(s[0], s[1], s[2]); },
       [](Values v, Widths) { return v[0] + v[1] + v[2]; }},
      {"add three",
       {0, 0, 0, 1},
       [](Builder& b, Signals s) { return b.addThree(s[0], s[1], s[2], s[3]); },
       [](Values v, Widths) { return v[0] + v[1] + v[2] + v[3]; }},
      {"subtract",
       {0, 0},
       [](Builder& b, Signals s) { return b.subtract(s[0], s[1]); },
       [](Values v, Widths) { return v[0] - v[1]; }},
      {"add or subtract",
       {0, 0, 1},
       [](Builder& b, Signals s) { return b.addOrSubtract(s[0], s[1], s[2]); },
       [](Values v, Widths) { return v[2].isZero() ? v[0] + v[1] : v[0] - v[1]; }},
      {"equal",
       {0, 0},
       [](Builder& b, Signals s) { return b.equal(s[0], s[1]); },
       [](Values v, Widths) { return bitOf(v[0] == v[1]); }},
      {"less",
       {0, 0},
       [](Builder& b, Signals s) { return b.less(s[0], s[1]); },
       [](Values v, Widths) { return bitOf(v[0] < v[1]); }},
      {"less signed",
       {0, 0},
       [](Builder& b, Signals s) { return b.lessSigned(s[0], s[1]); },
       [](Values v, Widths w) { return bitOf(v[0].asSigned(w[0]) < v[1].asSigned(w[1])); }},
      {"multiply",
       {0, 3},
       [](Builder& b, Signals s) { return b.multiply(s[0], s[1]); },
       [](Values v, Widths) { return v[0] * v[1]; }},
      {"multiply square",
       {0, 0},
       [](Builder& b, Signals s) { return b.multiply(s[0], s[1]); },
       [](Values v, Widths) { return v[0] * v[1]; }},
      {"multiply signed",
       {0, 0},
       [](Builder& b, Signals s) { return b.multiplySigned(s[0], s[1]); },
       [](Values v, Widths w) { return v[0].asSigned(w[0]) * v[1].asSigned(w[1]); }},
      {"heap",
       {0, 2, 3},
       [](Builder& b, Signals s) {
         return b.heap(std::vector<HeapTerm>{{s[0], 1}, {s[1], 0}, {s[2], 2}, {b.literal(5, 3), 1}},
                       s[0].width + 2);
       },
       [](Values v, Widths) { return (v[0] << 1) + v[1] + (v[2] << 2) + MPZ(10); }},
      {"concat",
       {0, 1, 0},
       [](Builder& b, Signals s) {
         return b.concat({s[0], s[1], s[2]});
       },
       [](Values v, Widths w) {
         return (v[0] << static_cast<unsigned long>(1 + w[2])) | (v[1] << w[2]) | v[2];
       }},
      {"replicate",
       {0},
       [](Builder& b, Signals s) { return b.replicate(s[0], 3); },
       [](Values v, Widths w) { return v[0] | (v[0] << w[0]) | (v[0] << 2ul * w[0]); }},
      {"top half",
       {0},
       [](Builder& b, Signals s) { return b.slice(s[0], s[0].width / 2, (s[0].width + 1) / 2); },
       [](Values v, Widths w) { return v[0] >> (w[0] / 2); }},
      {"sign extension",
       {0},
       [](Builder& b, Signals s) { return b.signExtend(s[0], s[0].width + 70); },
       [](Values v, Widths w) { return v[0].asSigned(w[0]); }},
      {"lut",
       {3},
       [](Builder& b, Signals s) { return b.lut(s[0], *MPZ::fromText("7654321089", 16), 5); },
       [](Values v, Widths) { return *MPZ::fromText("7654321089", 16) >> (v[0].toUint64() * 5); }},
  };
  return rows;
}

// One operation of the table at one width.
struct Bench {
  Bench(const Case& row, int width) : widths(row.widths) {
    Builder b(graph);
    std::vector<Signal> operands;
    for (int& operand : widths) {
      if (operand == 0) operand = width;
      operands.push_back(b.input(fmt::format("x{}", operands.size()), operand));
    }
    b.output("r", row.build(b, operands));
  }
  Graph graph;
  std::vector<int> widths;
};

TEST(Evaluator, AgreesWithIntegersOnAllInputsOfSmallWidths) {
  for (const Case& row : cases()) {
    for (int width = 1; width <= 4; ++width) {
      const Bench bench(row, width);
      Evaluator evaluate(bench.graph);
      int bits = 0;
      for (const int w : bench.widths) bits += w;
      for (long all = 0; all < 1L << bits; ++all) {
        std::vector<MPZ> values;
        int low = 0;
        for (const int w : bench.widths) {
          values.push_back(MPZ(all >> low).lowBits(w));
          low += w;
        }
        const MPZ expected =
            row.reference(values, bench.widths).lowBits(bench.graph.outputs()[0].signal.width);
        ASSERT_EQ(evaluate(values)[0], expected) << row.name << " of " << width << ", " << all;
      }
    }
  }
}

TEST(Evaluator, AgreesWithIntegersOnDrawnInputsOfWideWidths) {
  for (const Case& row : cases()) {
    for (const int width : {31, 32, 33, 62, 63, 64, 65, 127, 128, 129, 300}) {
      const Bench bench(row, width);
      Evaluator evaluate(bench.graph);
      RandomGraph draw(static_cast<std::uint32_t>(width));
      for (int i = 0; i < 100; ++i) {
        const std::vector<MPZ> values = draw.inputsOf(bench.graph);
        const MPZ expected =
            row.reference(values, bench.widths).lowBits(bench.graph.outputs()[0].signal.width);
        ASSERT_EQ(evaluate(values)[0], expected) << row.name << " of " << width;
      }
    }
  }
}

// The way in machine words against the way in limbs, node by node.
TEST(NarrowSteps, AgreeWithTheGeneralEvaluation) {
  long covered = 0;
  for (std::uint32_t seed = 1; seed <= 60; ++seed) {
    RandomGraph draw(seed);
    const Graph graph = draw.make(
        {.nodes = 80, .maxWidth = seed % 2 == 0 ? 16 : 64, .tables = true, .memories = true});
    const NarrowSteps narrow(graph);
    Evaluator evaluate(graph);
    for (int i = 0; i < 20; ++i) {
      evaluate(draw.inputsOf(graph));
      for (std::uint32_t n = 0; n < graph.size(); ++n) {
        if (!narrow.covers(n)) continue;
        const Node& node = graph.nodes()[n];
        std::vector<mp_limb_t> values(node.operandCount);
        std::vector<const mp_limb_t*> operands;
        for (std::uint32_t o = 0; o < node.operandCount; ++o) {
          values[o] = evaluate.valueOf(graph.operands(node)[o]).toUint64();
          operands.push_back(&values[o]);
        }
        mp_limb_t general = 0;
        evaluateNode(graph, node, operands, &general);
        ASSERT_EQ(narrow.evaluate(n, operands.data()), general) << traitsOf(node.op).name;
        ++covered;
      }
    }
  }
  EXPECT_GT(covered, 10000);
}

}  // namespace
}  // namespace graph
