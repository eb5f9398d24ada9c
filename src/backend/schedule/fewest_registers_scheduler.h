#pragma once

#include "backend/schedule/greedy_scheduler.h"
#include "backend/schedule/schedule.h"
#include "backend/schedule/stage_model.h"

namespace schedule {

// The cycles of the outputs as in `earliest`, a valid schedule in which every node stands as early
// as it can, and of all schedules for them one with the fewest register bits (registerBits), found
// as a linear program (Leiserson and Saxe, Algorithmica 1991). Never more than `earliest` has with
// its wiring placed. Exact, but where the best schedule of that program has a product that leaves
// its block too late for its readers (SlowProduct); then it may be a few bits off.
Schedule fewestRegisters(const StageModel& model, const Request& request, const Schedule& earliest);

}  // namespace schedule
