#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "backend/functions/unit.h"
#include "backend/graph/evaluator.h"

namespace functions {

// A unit under test, alone in a graph: one circuit for each request on the same inputs.
class UnitCircuit {
 public:
  // With `hasValid` the first input is the valid bit that `request` then holds.
  UnitCircuit(const std::string& unit, Request& request, bool hasValid = false)
      : UnitCircuit(unit, std::span(&request, 1), hasValid) {}
  UnitCircuit(const std::string& unit, std::span<Request> requests, bool hasValid = false)
      : row(*findUnit(unit)) {
    graph::Builder builder(graph);
    const graph::Signal valid = hasValid ? builder.input("valid", 1) : graph::Signal{};
    std::vector<graph::Signal> inputs;
    for (const kiln::Type& type : requests[0].signature.in)
      inputs.push_back(builder.input(fmt::format("i{}", inputs.size()), type.width()));
    for (Request& request : requests) {
      request.valid = valid;
      EXPECT_EQ(row.refuses(request).value_or(""), "") << unit;
      const auto outputs = row.decompose(builder, request, inputs);
      EXPECT_EQ(outputs.size(), request.signature.out.size()) << unit;
      for (std::size_t k = 0; k < outputs.size(); ++k) {
        EXPECT_EQ(outputs[k].width, request.signature.out[k].width()) << unit;
        builder.output(fmt::format("o{}", graph.outputs().size()), outputs[k]);
      }
    }
    evaluator.emplace(graph);
  }

  std::vector<util::MPZ> operator()(const std::vector<util::MPZ>& patterns) {
    return (*evaluator)(patterns);
  }
  void clock() { evaluator->clock(); }

  const UnitRow& row;
  graph::Graph graph;

 private:
  std::optional<graph::Evaluator> evaluator;
};

// The integer that a pattern of a fixed-point port stands for, in units of its last place.
inline util::MPZ integerOf(const util::MPZ& pattern, const kiln::FixedPoint& format) {
  return format.sign() ? pattern.asSigned(static_cast<unsigned long>(format.width())) : pattern;
}

// `check` by the number of a case, until five are wrong.
inline void checkEach(int count, const std::function<bool(int)>& check) {
  int wrong = 0;
  for (int i = 0; i < count && wrong < 5; ++i)
    if (!check(i)) ++wrong;
}

}  // namespace functions
