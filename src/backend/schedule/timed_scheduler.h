#pragma once

#include "backend/schedule/greedy_scheduler.h"
#include "backend/schedule/schedule.h"
#include "backend/schedule/stage_model.h"

namespace schedule {

// The outputs in the cycles of `earliest`, a valid schedule, at the smallest period for which the
// greedy schedule meets them: stages are filled evenly instead of up to the period that was asked.
// Then one sweep from outputs to inputs and one back move each node, all others in place, to where
// it needs the fewest register bits.
Schedule timedSchedule(const StageModel& model, const Request& request, const Schedule& earliest);

}  // namespace schedule
