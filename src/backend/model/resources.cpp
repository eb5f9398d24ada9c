// What a single-entity model is estimated to need.

#include <algorithm>
#include <cmath>

#include "backend/model/model.h"
#include "backend/schedule/stage_model.h"
#include "backend/schedule/wiring_placement.h"

namespace {

using graph::NodeId;

// A DSP block has two registers behind its product.
constexpr int kBlockRegisters = 2;

// The bits of registers that lie inside DSP blocks: those right behind a product, seen through
// wiring.
long bitsInBlocks(const graph::Graph& graph, const device::Device& device,
                  const schedule::Schedule& schedule) {
  const std::vector<int> last = schedule::lastReads(graph, schedule);
  std::vector<int> productCycle(graph.size(), -1);  // of the product whose bits these all are
  long bits = 0;
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const NodeId id{i};
    const graph::Node& node = graph.node(id);
    if (schedule::isWiring(node)) {
      bool isFirst = true;
      for (const NodeId operand : graph.operands(node)) {
        if (schedule::isLiteral(graph.node(operand))) continue;
        const int other = productCycle[operand.index];
        productCycle[i] = isFirst || other == productCycle[i] ? other : -1;
        isFirst = false;
      }
    } else if (device.delayToRegister(graph, id) != device.delayOf(graph, id)) {
      productCycle[i] = schedule.cycleByNode[i];
    }
    if (productCycle[i] < 0) continue;
    const int end = std::min(last[i], productCycle[i] + kBlockRegisters);
    bits += static_cast<long>(node.width) * std::max(0, end - schedule.cycleByNode[i]);
  }
  return bits;
}

}  // namespace

tessel_api::ResourceUsage CSynthSingleEntity::GetResourceUsage() const {
  const device::Cost total = hardFloat ? device::Cost{.dsps = 1} : scheduled->cost;
  using enum tessel_api::ResourceUsage::Kind;
  tessel_api::ResourceUsage usage;
  usage.set(kLut, static_cast<int>(std::ceil(total.luts)));
  usage.set(kDsp, static_cast<int>(std::ceil(total.dsps)));
  usage.set(kRamBlock, static_cast<int>(std::ceil(total.ramBlocks)));
  usage.set(kRamBit, static_cast<int>(std::ceil(total.ramBits)));
  return usage;
}

long CSynthSingleEntity::registerBits() const {
  if (!hardFloat)
    return schedule::registerBits(mapped, scheduled->schedule) -
           bitsInBlocks(mapped, *settings.device, scheduled->schedule);
  // Of the hard block only what stands in front of it and behind it.
  const schedule::Schedule wrappers = hardFloatSchedule(
      blockPart.graph, 0, wrapper & kWrapperIn ? 1 : 0, wrapper & kWrapperOut ? 1 : 0);
  return schedule::registerBits(flowPart.graph, flowPart.schedule) +
         schedule::registerBits(blockPart.graph, wrappers);
}
