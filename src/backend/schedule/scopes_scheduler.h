#pragma once

#include "backend/schedule/greedy_scheduler.h"
#include "backend/schedule/schedule.h"
#include "backend/schedule/stage_model.h"

namespace schedule {

// Pipelining of large granularity: a register behind every outermost scope, where its values are
// read by other scopes or leave the unit; the greedy schedule inside a scope that takes longer than
// the period, and for what belongs to the unit itself.
Schedule scopesSchedule(const StageModel& model, const Request& request);

}  // namespace schedule
