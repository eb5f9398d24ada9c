#pragma once

#include "backend/schedule/greedy_scheduler.h"
#include "backend/schedule/schedule.h"
#include "backend/schedule/stage_model.h"

namespace schedule {

// Adds `cycles` where they need the fewest register bits: behind the inputs, between two cycles, or
// before the outputs. No stage grows, for what is held longer was held before or is a port.
void lengthen(const StageModel& model, Schedule& schedule, int cycles, const Request& request);

}  // namespace schedule
