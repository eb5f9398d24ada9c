#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/device/device.h"
#include "backend/graph/graph.h"
#include "util/failure.h"

namespace schedule {

// The cycle in which each node of one graph is computed: iteration t of a node in cycle c at time
// t + c.
//
// A plain value: making one leaves the graph as it was. Holds ids only, so it is of use only beside
// the graph it came from. A value computed in cycle c and read in cycle d crosses d - c registers.
struct Schedule {
  std::vector<int> cycleByNode;    // indexed by NodeId::index
  std::vector<int> cycleByOutput;  // when each output port shows its result; all equal unless split
  // Selects of constants, in order, that tools would turn into the clear or set of the registers
  // right behind, for which their conditions come too late: to be printed as gates.
  std::vector<graph::NodeId> lateClears{};

  int cycleOf(graph::NodeId node) const { return cycleByNode[node.index]; }
  // Cycles from sampling an input to the last result; 0 for a combinational unit.
  int latency() const;
};

enum class Strategy {
  kCombinational = 0,
  kGreedy = 1,
  kTimed = 2,
  kScopes = 3,
  kFewestRegisters = 4
};

struct ScheduleOptions {
  device::Picoseconds period;  // target clock period
  double megahertz = 0;        // that clock as it was asked for, for messages; 0: by the period
  Strategy strategy = Strategy::kGreedy;
  // Exact cycles wanted of every output, wrappers included; the shortest when empty.
  std::optional<int> latency = {};
  bool registerInputs = false;   // a register in front of every input
  bool registerOutputs = false;  // and behind every output
  // No registers but the states: one stage, as for a combinational unit, which lowers the clock
  // with a warning where it is too long.
  bool statesOnly = false;
  // Output ports of one group show their results in the same cycle, each group as early as it can;
  // a number for each port, or none at all for one group.
  std::vector<int> outputGroups{};
};

struct Scheduled {
  Schedule schedule;
  device::Picoseconds period;        // built for this period: the asked one, or the slowest step's
  device::Picoseconds longestStage;  // by the checker's own arrival analysis
  std::string longestStep;           // the node kind and width that ends it
  // The way through the longest stage, from the register where it begins: each cluster and when it
  // has its result.
  struct PathStep {
    std::string name;
    device::Picoseconds arrival;
  };
  std::vector<PathStep> longestPath{};
  device::Cost cost{};  // of the logic between the registers, and of blocks
  // Set when the asked period is below the slowest indivisible step, a node or a loop: one line
  // that names the step, the clock asked for and the highest clock.
  std::optional<std::string> warning;
};

// The period for which clusters are made: none is longer, unless combinational.
device::Picoseconds coverPeriod(const ScheduleOptions& options);

// Gives every node a cycle; what comes back has passed the checker (checker.h). A combinational
// unit is never cut: its period is raised to what it takes, without a warning. Added latency goes
// where the fewest bits cross. A state stands in the cycle of what it takes next, so a loop stands
// in one stage. Fails, with one line that names the shortest latency at this clock, when `latency`
// cannot be met.
util::Result<Scheduled> scheduleGraph(const graph::Graph& graph, const device::Device& device,
                                      const ScheduleOptions& options);

// The same for a graph whose cycles are known, which computes what `before` does as `options` ask;
// nothing unless it keeps the period that `before` was built for, costs clearly less and has no
// more register bits (outside blocks; `bitsBefore`: what `before` has).
std::optional<Scheduled> cheaperThan(const Scheduled& before, long bitsBefore,
                                     const graph::Graph& graph, const device::Device& device,
                                     Schedule schedule, const ScheduleOptions& options);

// True where `one`, for what was asked of the other too, keeps a clearly shorter period, else takes
// fewer cycles, else, in no more register bits (outside blocks), costs clearly less, or no more and
// leaves more of a period that the other nearly fills.
bool isBetter(const Scheduled& one, long bitsOfOne, const Scheduled& other, long bitsOfOther);

// Bits of all states and of all registers between stages, each value counted once however many
// readers it has.
long registerBits(const graph::Graph& graph, const Schedule& schedule);
// The same without those that DSP blocks have inside: the first two behind a product, seen through
// wiring.
long registerBitsOutsideBlocks(const graph::Graph& graph, const device::Device& device,
                               const Schedule& schedule);

}  // namespace schedule
