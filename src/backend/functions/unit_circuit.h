#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "backend/functions/unit.h"
#include "backend/graph/evaluator.h"

namespace functions {

// One unit under test, alone in a graph.
class UnitCircuit {
 public:
  // With `hasValid` the first input is the valid bit that `request` then holds.
  UnitCircuit(const std::string& unit, Request& request, bool hasValid = false)
      : row(*findUnit(unit)) {
    EXPECT_EQ(row.refuses(request).value_or(""), "") << unit;
    graph::Builder builder(graph);
    if (hasValid) request.valid = builder.input("valid", 1);
    std::vector<graph::Signal> inputs;
    for (const kiln::Type& type : request.signature.in)
      inputs.push_back(builder.input(fmt::format("i{}", inputs.size()), type.width()));
    const auto outputs = row.decompose(builder, request, inputs);
    EXPECT_EQ(outputs.size(), request.signature.out.size()) << unit;
    for (std::size_t k = 0; k < outputs.size(); ++k) {
      EXPECT_EQ(outputs[k].width, request.signature.out[k].width()) << unit;
      builder.output(fmt::format("o{}", k), outputs[k]);
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

// `check` by the number of a case, until five are wrong.
inline void checkEach(int count, const std::function<bool(int)>& check) {
  int wrong = 0;
  for (int i = 0; i < count && wrong < 5; ++i)
    if (!check(i)) ++wrong;
}

}  // namespace functions
