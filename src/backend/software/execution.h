#pragma once

#include <vector>

#include "backend/graph/evaluator.h"
#include "backend/graph/graph.h"
#include "backend/graph/narrow_steps.h"
#include "backend/schedule/schedule.h"
#include "util/mpz.h"

namespace software {

// A scheduled graph run cycle by cycle, registers included, on patterns of any width. Graph and
// schedule must outlive it unchanged.
class Execution {
 public:
  Execution(const graph::Graph& graph, const schedule::Schedule& schedule);
  // All registers to zero, all states to their first values. A state in cycle c takes c next values
  // before the first inputs reach its stage: it keeps its first value if they do, with zeros in the
  // registers between (an accumulator that holds without its valid bit).
  void reset();
  // One clock cycle: presents `inputs` (one pattern for each input port); the result is what the
  // output ports show in that same cycle, before the clock edge. Without `enable` every register
  // holds over that edge.
  std::vector<util::MPZ> step(const std::vector<util::MPZ>& inputs, bool enable = true);

 private:
  const graph::Graph& graph;
  const schedule::Schedule& schedule;
  graph::NarrowSteps narrow;
  int depth;                                   // cycles that are remembered
  std::vector<std::size_t> offsets;            // of each node's value in one frame
  std::vector<std::vector<mp_limb_t>> frames;  // ring of the values of the last `depth` cycles
  long now = 0;
};

}  // namespace software
