#pragma once

#include "backend/schedule/schedule.h"
#include "backend/schedule/stage_model.h"

namespace schedule {

// What every strategy is asked: `period` in ps suffices for each node alone.
struct Request {
  int period;
  bool registerInputs;
  bool registerOutputs;
};

// Each node as soon as possible, by (cycle, arrival); all outputs in the cycle of the last one.
// With additive delays no schedule has fewer cycles. Linear in nodes and operands.
Schedule greedySchedule(const StageModel& model, const Request& request);

// All logic in one cycle, whatever it takes.
Schedule combinationalSchedule(const StageModel& model, const Request& request);

}  // namespace schedule
