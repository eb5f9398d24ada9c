#pragma once

#include <span>

#include "backend/schedule/schedule.h"
#include "backend/schedule/stage_model.h"

namespace schedule {

// What every strategy is asked: `period` in ps suffices for each node and each loop alone.
struct Request {
  int period;
  bool registerInputs;
  bool registerOutputs;
  std::span<const int> outputGroups;  // as in ScheduleOptions
  // Of fewestRegisters(): a linear program with more arcs is solved some cycles at a time.
  std::size_t mostArcs = 4'000'000;
  int shortestPeriod = 0;  // the smallest `period` that could be asked, in ps
  // A number for each node, or none at all: the greedy schedule has a register between a node and
  // readers with another number, but behind those with kOpen; outputs have none of these numbers.
  // Wiring reads as if it had the number of what it reads.
  std::span<const int> blocks = {};
  static constexpr int kOpen = -1;
};

// Each node as soon as possible, by (cycle, arrival), a loop as if it were one node; the outputs of
// a group in the cycle of its last one.
// With additive delays no schedule has fewer cycles. Linear in nodes and operands.
Schedule greedySchedule(const StageModel& model, const Request& request);

// All logic in one cycle, whatever it takes. A state stands where its next value does: in cycle 0
// what only delays an input, and what runs by itself.
Schedule combinationalSchedule(const StageModel& model, const Request& request);

}  // namespace schedule
