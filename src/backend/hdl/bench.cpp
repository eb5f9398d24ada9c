#include "backend/hdl/bench.h"

#include <fmt/format.h>

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
  enable = unit.enable;
  bench = Names().claim(design.name + "_atb");
  controls = settings.hasChannelValid ? 2 : 0;
  const auto& ins = design.graph->inputs();
  const auto& outs = design.graph->outputs();
  const bool isSplit = !settings.splitLatencies.empty();
  const std::size_t fileCount = isSplit ? settings.splitLatencies.size() : 1;
  const std::size_t firstData = controls * fileCount;
  LOAM_ASSERT(!ins.empty() && outs.size() > firstData,
              "a bench has something to drive and compare");
  LOAM_ASSERT(ins.size() >= controls, "valid and channel are ports");
  for (std::size_t i = 0; i < ins.size(); ++i)
    inputs.push_back({unit.inputNames[i], ins[i].signal.width, 0});
  for (std::size_t i = 0; i < outs.size(); ++i)
    outputs.push_back({unit.outputNames[i], outs[i].signal.width, 0});
  const std::size_t dataPorts = outs.size() - firstData;
  LOAM_ASSERT(settings.alternatives.size() == dataPorts, "one count for each data output");
  LOAM_ASSERT(!isSplit || fileCount == dataPorts, "one latency for each data output");
  LOAM_ASSERT(!isSplit || !settings.oneResponseFile || fileCount == 1, "a file for each output");
  for (std::size_t i = 0; i < dataPorts; ++i)
    outputs[firstData + i].alternatives = settings.alternatives[i];
  for (std::size_t i = 0; i < fileCount; ++i) {
    ResponseFile file;
    const std::string number = isSplit ? std::to_string(i) : "";
    file.name = fmt::format("{}_xOut{}.stm", design.name, settings.oneResponseFile ? "" : number);
    if (isSplit) file.mark = "_" + number;
    file.latency = isSplit ? settings.splitLatencies[i] : settings.latency;
    file.valid = controls * i;
    file.channel = file.valid + 1;
    file.firstData = firstData + i;
    file.dataPorts = isSplit ? 1 : dataPorts;
    for (std::size_t port = 0; port < file.dataPorts; ++port)
      file.dataColumns += outputs[file.firstData + port].alternatives;
    file.mostColumns = std::max(file.dataColumns, 2 * static_cast<int>(file.dataPorts));
    longestLatency = std::max(longestLatency, file.latency);
    mostColumns = std::max(mostColumns, file.mostColumns);
    files.push_back(file);
  }
}

std::string BenchPlan::responseNames() const {
  return files.size() == 1
             ? files[0].name
             : fmt::format("{0}_xOut0.stm to {0}_xOut{1}.stm", design.name, files.size() - 1);
}

}  // namespace hdl
