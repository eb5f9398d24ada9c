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

Case of(const char* name, std::vector<int> widths, Build build, Reference reference) {
  return {name, std::move(widths), std::move(build), std::move(reference)};
}
template <typename... Signals>
Case of(const char* name, std::vector<int> widths, Signal (Builder::*operation)(Signals...),
        Reference reference) {
  const Build build = [operation](Builder& b, const std::vector<Signal>& s) {
    const auto call = [&]<std::size_t... k>(std::index_sequence<k...>) {
      return (b.*operation)(s[k]...);
    };
    return call(std::index_sequence_for<Signals...>());
  };
  return of(name, std::move(widths), build, std::move(reference));
}

const std::vector<Case>& cases() {
  static const std::vector<Case> rows = {
      of("not", {0}, &Builder::bitNot, [](auto& v, auto& w) { return MPZ::allOnes(w[0]) - v[0]; }),
      of("and", {0, 0}, &Builder::bitAnd, [](auto& v, auto&) { return v[0] & v[1]; }),
      of("or", {0, 0}, &Builder::bitOr, [](auto& v, auto&) { return v[0] | v[1]; }),
      of("xor", {0, 0}, &Builder::bitXor, [](auto& v, auto&) { return v[0] ^ v[1]; }),
      of("select", {1, 0, 0}, &Builder::select,
         [](auto& v, auto&) { return v[0].isZero() ? v[2] : v[1]; }),
      of(
          "pick", {0, 2, 2, 2},
          [](Builder& b, auto& s) {
            return b.pick(s[0], std::vector{s[1], s[2], s[3]});
          },
          [](auto& v, auto&) { return v[0].isZero()    ? v[1]
                                      : v[0] == MPZ(1) ? v[2]
                                                       : v[3]; }),
      of("reduce-and", {0}, &Builder::reduceAnd,
         [](auto& v, auto& w) { return bitOf(v[0] == MPZ::allOnes(w[0])); }),
      of("reduce-or", {0}, &Builder::reduceOr,
         [](auto& v, auto&) { return bitOf(v[0].sign() > 0); }),
      of("reduce-xor", {0}, &Builder::reduceXor,
         [](auto& v, auto&) { return bitOf(mpz_popcount(v[0].get()) % 2 == 1); }),
      of("add", {0, 0, 1}, &Builder::addCarry, [](auto& v, auto&) { return v[0] + v[1] + v[2]; }),
      of("add three", {0, 0, 0, 1}, &Builder::addThree,
         [](auto& v, auto&) { return v[0] + v[1] + v[2] + v[3]; }),
      of("subtract", {0, 0}, &Builder::subtract, [](auto& v, auto&) { return v[0] - v[1]; }),
      of("add or subtract", {0, 0, 1}, &Builder::addOrSubtract,
         [](auto& v, auto&) { return v[2].isZero() ? v[0] + v[1] : v[0] - v[1]; }),
      of("equal", {0, 0}, &Builder::equal, [](auto& v, auto&) { return bitOf(v[0] == v[1]); }),
      of("less", {0, 0}, &Builder::less, [](auto& v, auto&) { return bitOf(v[0] < v[1]); }),
      of("less signed", {0, 0}, &Builder::lessSigned,
         [](auto& v, auto& w) { return bitOf(v[0].asSigned(w[0]) < v[1].asSigned(w[1])); }),
      of("multiply", {0, 3}, &Builder::multiply, [](auto& v, auto&) { return v[0] * v[1]; }),
      of("multiply square", {0, 0}, &Builder::multiply, [](auto& v, auto&) { return v[0] * v[1]; }),
      of("multiply signed", {0, 0}, &Builder::multiplySigned,
         [](auto& v, auto& w) { return v[0].asSigned(w[0]) * v[1].asSigned(w[1]); }),
      of(
          "heap", {0, 2, 3},
          [](Builder& b, auto& s) {
            return b.heap(
                std::vector<HeapTerm>{{s[0], 1}, {s[1], 0}, {s[2], 2}, {b.literal(5, 3), 1}},
                s[0].width + 2);
          },
          [](auto& v, auto&) { return (v[0] << 1) + v[1] + (v[2] << 2) + MPZ(10); }),
      of(
          "concat", {0, 1, 0},
          [](Builder& b, auto& s) {
            return b.concat({s[0], s[1], s[2]});
          },
          [](auto& v, auto& w) {
            return (v[0] << static_cast<unsigned long>(1 + w[2])) | (v[1] << w[2]) | v[2];
          }),
      of(
          "replicate", {0}, [](Builder& b, auto& s) { return b.replicate(s[0], 3); },
          [](auto& v, auto& w) { return v[0] | (v[0] << w[0]) | (v[0] << 2ul * w[0]); }),
      of(
          "top half", {0},
          [](Builder& b, auto& s) { return b.slice(s[0], s[0].width / 2, (s[0].width + 1) / 2); },
          [](auto& v, auto& w) { return v[0] >> (w[0] / 2); }),
      of(
          "sign extension", {0},
          [](Builder& b, auto& s) { return b.signExtend(s[0], s[0].width + 70); },
          [](auto& v, auto& w) { return v[0].asSigned(w[0]); }),
      of(
          "lut", {3},
          [](Builder& b, auto& s) { return b.lut(s[0], *MPZ::fromText("7654321089", 16), 5); },
          [](auto& v, auto&) { return *MPZ::fromText("7654321089", 16) >> (v[0].toUint64() * 5); }),
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

// Folding must give the value that the operation has: built of literals, of literals and inputs, or
// of one input and its complement.
TEST(Builder, FoldsToTheValueOfTheOperation) {
  for (const Case& row : cases())
    for (const int width : {1, 2, 3}) {
      std::vector<int> widths = row.widths;
      int bits = 0;
      for (int& operand : widths) bits += operand = operand == 0 ? width : operand;
      for (long all = 0; all < 1L << bits; ++all) {
        Graph graph;
        Builder b(graph);
        std::vector<MPZ> values;
        std::vector<Signal> inputs, literals;
        int low = 0;
        for (const int w : widths) {
          values.push_back(MPZ(all >> low).lowBits(w));
          inputs.push_back(b.input(fmt::format("x{}", low), w));
          literals.push_back(b.literal(values.back(), w));
          low += w;
        }
        // Every operand once as the only literal, and once as the only input.
        std::vector<std::vector<MPZ>> meant{values};
        b.output("literals", row.build(b, literals));
        EXPECT_TRUE(b.isLiteral(graph.outputs()[0].signal)) << row.name;
        const auto add = [&](const std::vector<Signal>& operands, const std::vector<MPZ>& owed) {
          b.output("r", row.build(b, operands));
          meant.push_back(owed);
        };
        for (std::size_t k = 0; k < inputs.size(); ++k) {
          std::vector<Signal> one = inputs, others = literals;
          std::swap(one[k], others[k]);
          add(one, values), add(others, values);
          if (k == 0 || widths[k] != widths[0]) continue;
          std::vector<Signal> same = inputs, complement = inputs;
          std::vector<MPZ> equal = values, opposite = values;
          same[k] = inputs[0], complement[k] = b.bitNot(inputs[0]);
          equal[k] = values[0], opposite[k] = MPZ::allOnes(widths[0]) - values[0];
          add(same, equal), add(complement, opposite);
        }
        const std::vector<MPZ> results = Evaluator(graph)(values);
        for (std::size_t k = 0; k < results.size(); ++k)
          ASSERT_EQ(results[k],
                    row.reference(meant[k], widths).lowBits(graph.outputs()[k].signal.width))
              << row.name << " of " << width << ", " << all << ", " << k;
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
