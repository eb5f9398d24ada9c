#include "backend/model/hard_float.h"

#include <algorithm>
#include <cstdio>

namespace {

// What the blocks can do, and how long they take when no option says otherwise.
struct BlockRow {
  std::string_view unit;
  const char* name;
  const OptionLabel& latency;
  int usualLatency;
};
const BlockRow kBlocks[] = {
    {"CFloatAdd", "hardfp_add", floatOption::hardFPAddLatency, 3},
    {"CFloatMult", "hardfp_mult", floatOption::hardFPMultLatency, 3},
    {"CFloatMultAdd", "hardfp_multadd", floatOption::hardFPMultAddLatency, 4},
    {"CFloatMultAcc", "hardfp_multacc", floatOption::hardFPMultAddLatency, 4},
};

// Single precision, or the bit that starts a new sum.
bool isServedPort(const kiln::Type& type) {
  const kiln::FloatingPoint* format = type.as_floating_point();
  return format ? format->exp == 8 && format->frac == 23 && !format->is_fp_lib : type.width() == 1;
}

const char* obstacle(const functions::Request& request, const device::Device& device) {
  if (!device.hasHardFloat()) return "this family has no hard floating point";
  if (!std::ranges::all_of(request.signature.in, isServedPort) ||
      !std::ranges::all_of(request.signature.out, isServedPort))
    return "the hard blocks serve 8 23 only";
  if (request.subnormals) return "the hard blocks have no subnormals";
  const bool directed = std::ranges::any_of(request.accuracy,
                                            [](const functions::Accuracy& accuracy) {
                                              return accuracy.kind != functions::Accuracy::kWithin;
                                            }) &&
                        request.rounding.fixed != arithmetic::RoundMode::kNearestEven;
  return directed ? "the hard blocks round to nearest even" : nullptr;
}

}  // namespace

std::optional<HardFloat> hardFloatFor(const functions::UnitRow& row,
                                      const functions::Request& request,
                                      const CModelOptions& options, const device::Device& device) {
  if (options.getOptionValue(floatOption::enableHardFP) == 0 ||
      options.getOptionValue(floatOption::simulateHardFP) != 0)
    return std::nullopt;
  const auto* block = std::ranges::find(kBlocks, row.name, &BlockRow::unit);
  if (block == std::end(kBlocks)) return std::nullopt;
  if (const char* reason = obstacle(request, device)) {
    std::fprintf(stderr, "Warning: -enableHardFP: %s; the unit is built in logic\n", reason);
    return std::nullopt;
  }
  const bool combinational = options.getOptionValue(synthOption::forceCombinational) != 0;
  const int registers =
      combinational ? 0 : options.getOptionValue(floatOption::overrideHardFPRegisters);
  const int asked = registers >= 0 ? registers : options.getOptionValue(block->latency);
  const int latency = asked >= 0 ? asked : block->usualLatency;
  return HardFloat{block->name, std::max(latency, row.minimumLatency)};
}

schedule::Schedule hardFloatSchedule(const graph::Graph& graph, int latency, int in, int out) {
  const int logic = in + (latency > 0 ? 1 : 0);
  schedule::Schedule schedule;
  for (const graph::Node& node : graph.nodes()) {
    const bool isSource = node.op == graph::Op::kInput || node.op == graph::Op::kLiteral;
    schedule.cycleByNode.push_back(isSource ? 0 : logic);
  }
  schedule.cycleByOutput.assign(graph.outputs().size(), in + latency + out);
  return schedule;
}
