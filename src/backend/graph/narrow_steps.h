#pragma once

#include <cstdint>
#include <vector>

#include "backend/graph/graph.h"

namespace graph {

// The nodes of one graph whose result and operands all have at most 64 bits, made ready to compute
// in machine words; most nodes of most units. The graph must outlive it unchanged.
class NarrowSteps {
 public:
  explicit NarrowSteps(const Graph& graph);

  // Inputs and literals are never covered: they are not computed.
  bool covers(std::size_t node) const { return steps[node].isCovered; }
  // The value of a covered node; bits above its width are zero, as those of the operands must be.
  std::uint64_t evaluate(std::size_t node, const mp_limb_t* const* operands) const;

 private:
  struct Step {
    Op op = Op::kInput;
    bool isCovered = false;
    std::uint32_t operandCount = 0;
    std::uint32_t first = 0;     // of a table's rows or a node's per-operand numbers in `words`
    std::uint64_t mask = 0;      // the bits of the result
    std::uint64_t constant = 0;  // what the operation needs of its operands' widths
    std::uint64_t constant2 = 0;
  };

  Step stepOf(const Node& node);

  const Graph& graph;
  std::vector<Step> steps;
  std::vector<std::uint64_t> words;
};

}  // namespace graph
