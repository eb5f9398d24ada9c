#include "backend/model/diagnostics.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "backend/schedule/stage_model.h"
#include "backend/schedule/wiring_placement.h"

std::string longestStageText(const schedule::Scheduled& scheduled) {
  if (scheduled.longestStage.value == 0)
    return fmt::format("Longest stage inside {}\n", scheduled.longestStep);
  std::string text =
      fmt::format("Longest stage {} ps of {} ps, ends with {}\n", scheduled.longestStage.value,
                  scheduled.period.value, scheduled.longestStep);
  for (const auto& [name, arrival] : scheduled.longestPath)
    text += fmt::format("  {} ps behind {}\n", arrival.value, name);
  return text;
}

std::string requestText(const functions::UnitRow& row, const functions::Request& request,
                        const device::Device& device) {
  std::string text = fmt::format("device {}, speed grade {}, part {}, {} MHz, period {} ps\n",
                                 device.familyName(), device.speedGradeName(), device.partName(),
                                 device.megahertz(), device.period().value);
  std::string numbers;
  for (const std::int64_t number : request.signature.variant.numbers)
    numbers += fmt::format(" {}", number);
  text += fmt::format("unit {}, variant{}, {} inputs, {} outputs\n", row.name, numbers,
                      request.signature.in.size(), request.signature.out.size());
  for (std::size_t k = 0; k < request.accuracy.size(); ++k) {
    const functions::Accuracy& accuracy = request.accuracy[k];
    text += accuracy.kind == functions::Accuracy::kWithin
                ? fmt::format("output {}: within {} ulp\n", k, accuracy.ulps)
                : fmt::format("output {}: rounded correctly, mode {}\n", k,
                              static_cast<int>(request.rounding.fixed));
  }
  text += fmt::format("subnormals {}, quiet NaN {}, {} look-up tables for a DSP block\n",
                      request.subnormals, request.quietNaN, request.prices.lutPerDsp);
  return text;
}

std::string graphText(const std::string& title, const graph::Graph& graph) {
  std::map<graph::Op, int> counts;
  for (const graph::Node& node : graph.nodes()) ++counts[node.op];
  std::string text = fmt::format("{}: {} nodes, {} scopes, {} states\n   ", title, graph.size(),
                                 graph.scopes().size(), graph.states().size());
  for (const auto& [op, count] : counts)
    text += fmt::format(" {} {}", graph::traitsOf(op).name, count);
  return text + "\n";
}

std::string scheduleText(const graph::Graph& graph, const schedule::Scheduled& scheduled,
                         const std::string& strategy) {
  const schedule::Schedule& schedule = scheduled.schedule;
  std::string text =
      fmt::format("schedule: {}, latency {}, {} register bits\n  {}", strategy, schedule.latency(),
                  schedule::registerBits(graph, schedule), longestStageText(scheduled));
  if (scheduled.warning) text += "  " + *scheduled.warning + "\n";
  struct Cycle {
    int operations = 0;
    long crossing = 0;
  };
  std::vector<Cycle> cycles(static_cast<std::size_t>(schedule.latency()) + 1);
  const std::vector<int> last = schedule::lastReads(graph, schedule);
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const graph::Node& node = graph.nodes()[i];
    if (schedule::isLiteral(node)) continue;
    const auto own = static_cast<std::size_t>(schedule.cycleByNode[i]);
    if (own >= cycles.size()) continue;
    if (!schedule::isWiring(node)) ++cycles[own].operations;
    for (std::size_t k = own; k < std::min(cycles.size(), static_cast<std::size_t>(last[i])); ++k)
      cycles[k].crossing += node.width;
  }
  for (std::size_t k = 0; k < cycles.size(); ++k)
    text += fmt::format("  cycle {}: {} operations, {} bits to the next cycle\n", k,
                        cycles[k].operations, cycles[k].crossing);
  return text;
}

std::string resourcesText(const tessel_api::ResourceUsage& usage) {
  using enum tessel_api::ResourceUsage::Kind;
  return fmt::format("estimate: LUTs {}, DSPs {}, RAMBits {}, RAMBlocks {}\n", usage.get(kLut),
                     usage.get(kDsp), usage.get(kRamBit), usage.get(kRamBlock));
}
