#pragma once

#include <vector>

#include "numbers/ports.h"

// What one clock cycle puts into a delay: the columns of a row and its values.
struct PipelineStage {
  int valid = 0;    // -1 in a start stage of a unit without valid and channel
  int channel = 0;  // likewise
  int enable = 1;   // 1 the unit advances in this cycle, 0 it stalls, -1 it has no enable
  std::vector<NumValue> values;
};

// The delay of a pipelined unit with an enable, cycle by cycle: a ring of as many stages as the
// delay has cycles, which begins with do-not-care values. Stages change places with those that
// come in, so that a run needs no memory beyond its first `latency` cycles.
class Pipeline {
 public:
  //   columns   values in a stage
  //   latency   cycles; below 1 there is no delay
  Pipeline(int columns, int latency, bool chanValid, bool enable);

  // One clock cycle: takes what `stage` holds and returns what leaves the delay, which is to be
  // read before the next cycle; it is `stage` itself or one of the ring's. In a stalled cycle the
  // new stage is dropped and the oldest one shows again. Afterwards `stage` is free for use.
  const PipelineStage& advance(PipelineStage& stage);

  // Whether some stage inside has a valid column other than 0: a result is still to come.
  bool holdsResults() const { return results > 0; }

 private:
  std::vector<PipelineStage> ring;
  std::size_t oldest = 0;  // the stage that leaves next, whose place the new one takes
  int results = 0;         // stages with a valid column other than 0
};

// One delay for each output port.
using ComplexPipeline = std::vector<Pipeline>;
