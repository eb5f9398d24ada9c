#include "backend/hdl/bench.h"

#include <algorithm>

#include "backend/hdl/names.h"
#include "backend/hdl/plan.h"
#include "util/failure.h"

namespace hdl {

BenchPlan::BenchPlan(const Design& design, const BenchSettings& settings)
    : design(design), settings(settings) {
  const Plan unit(design);
  entity = unit.entity;
  clock = unit.clock;
  reset = unit.reset;
  bench = Names().claim(design.name + "_atb");
  firstData = settings.hasChannelValid ? 2 : 0;
  const auto& ins = design.graph->inputs();
  const auto& outs = design.graph->outputs();
  LOAM_ASSERT(ins.size() >= firstData && outs.size() >= firstData, "valid and channel are ports");
  for (std::size_t i = 0; i < ins.size(); ++i)
    inputs.push_back({unit.inputNames[i], ins[i].signal.width, 0});
  for (std::size_t i = 0; i < outs.size(); ++i)
    outputs.push_back({unit.outputNames[i], outs[i].signal.width, 0});
  LOAM_ASSERT(settings.alternatives.size() == dataPorts(), "one count for each data output");
  for (std::size_t i = 0; i < dataPorts(); ++i) {
    outputs[firstData + i].alternatives = settings.alternatives[i];
    dataColumns += settings.alternatives[i];
  }
  mostColumns = std::max(dataColumns, 2 * static_cast<int>(dataPorts()));
}

}  // namespace hdl
