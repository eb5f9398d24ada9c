#pragma once

#include "backend/schedule/greedy_scheduler.h"
#include "backend/schedule/schedule.h"
#include "backend/schedule/stage_model.h"

namespace schedule {

// The cycles of the outputs as in `earliest`, a valid schedule in which every node stands as early
// as it can, and of all schedules for them one with the fewest register bits (registerBits), found
// as a linear program (Leiserson and Saxe, Algorithmica 1991). Exact, but for products that can
// share a stage with their reader: those stay apart or together as they are in `earliest`.
Schedule fewestRegisters(const StageModel& model, const Request& request, const Schedule& earliest);

}  // namespace schedule
