#pragma once

#include <optional>
#include <string>

#include "backend/device/device.h"
#include "backend/functions/unit.h"
#include "backend/graph/graph.h"
#include "backend/model/options.h"
#include "backend/schedule/schedule.h"

// A hard floating-point block that stands for a whole unit.
struct HardFloat {
  std::string name;  // "hardfp_add": the end of its entity's name
  int latency = 0;   // cycles of its own registers
};

// The block that serves the request on this device, if the options ask for one: single precision
// on a family that has such blocks, rounded to nearest even, subnormals flushed. Asked for and out
// of reach, a warning on standard error says why and the unit is built in logic. A combinational
// unit takes the block without registers.
std::optional<HardFloat> hardFloatFor(const functions::UnitRow& row,
                                      const functions::Request& request,
                                      const CModelOptions& options, const device::Device& device);

// The logic of a block in one cycle, behind one of its registers and before the others; `in` and
// `out` further registers in front and behind. Control ports pass beside it.
schedule::Schedule hardFloatSchedule(const graph::Graph& graph, int latency, int in, int out);
