#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/device/device.h"
#include "backend/graph/graph.h"
#include "backend/schedule/schedule.h"

namespace schedule {

// What holds for a schedule, found from graph and cycles alone, whichever strategy made it.
struct StageAnalysis {
  device::Picoseconds longestStage;
  graph::NodeId lastNode;  // the one that ends it; none when nothing is computed
  struct Step {
    graph::NodeId root;
    device::Picoseconds arrival;
  };
  std::vector<Step> path{};                 // the clusters that it passes, first one first
  std::vector<graph::NodeId> lateClears{};  // as a schedule has them
  std::optional<std::string> fault;         // the first broken rule, as one line
};

// Computes every arrival again. Rules: one cycle for each node and port; inputs in cycle 0; no node
// and no output reads a later cycle, nor a memory block in its own; a state in the cycle of what it
// takes next, which with the rule before keeps each loop in one cycle; one cycle for each cluster;
// one for each group of outputs; with registerInputs no logic before the first register, with
// registerOutputs none behind the last; no stage longer than `period`, unless combinational.
StageAnalysis analyseStages(const graph::Graph& graph, const device::Device& device,
                            const Schedule& schedule, const ScheduleOptions& options);

}  // namespace schedule
