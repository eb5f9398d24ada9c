#pragma once

#include <gmp.h>

#include <span>
#include <vector>

#include "backend/graph/graph.h"
#include "backend/graph/narrow_steps.h"

namespace graph {

// Limbs of 64 bits that hold `width` bits.
inline std::size_t limbsOf(int width) { return (static_cast<std::size_t>(width) + 63) / 64; }

// Computes one node from the values of its operands, bit-exactly.
//   operands  one pointer an operand, each to limbsOf(its width) limbs, bits above its width zero
//   result    limbsOf(node.width) limbs; written whole, bits above the width zero
// Inputs and states are not computed: such a node leaves `result` as it is.
void evaluateNode(const Graph& graph, const Node& node, std::span<const mp_limb_t* const> operands,
                  mp_limb_t* result);

void toLimbs(const util::MPZ& pattern, int width, mp_limb_t* limbs);
util::MPZ fromLimbs(const mp_limb_t* limbs, int width);

// Evaluates a whole graph on bits, as often as wanted. The graph must outlive it unchanged.
class Evaluator {
 public:
  explicit Evaluator(const Graph& graph);

  // Sets input port `port` to the low bits of a non-negative pattern.
  void setInput(std::size_t port, const util::MPZ& pattern);
  void run();
  // Puts every state to its first value; so it is after construction.
  void resetStates();
  // After run(): every state takes its next value. A graph without states has no use for it.
  void clock();
  // The pattern on output port `port` after run().
  util::MPZ output(std::size_t port) const { return valueOf(graph.outputs()[port].signal.node); }
  util::MPZ valueOf(NodeId id) const;

  // run() on one pattern for each input port; one pattern for each output port.
  std::vector<util::MPZ> operator()(std::span<const util::MPZ> inputs);

 private:
  const Graph& graph;
  NarrowSteps narrow;
  std::vector<std::size_t> offsets;  // of each node's value in `limbs`
  std::vector<mp_limb_t> limbs;
  std::vector<const mp_limb_t*> operandPointers;  // as Graph lays out its operands
  std::vector<std::size_t> firstOperand;
  std::vector<mp_limb_t> nextStates;  // side by side, while they are exchanged
};

}  // namespace graph
