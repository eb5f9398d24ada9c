// What a single-entity model is estimated to need.

#include <cmath>

#include "backend/model/model.h"
#include "backend/schedule/schedule.h"

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
    return schedule::registerBitsOutsideBlocks(mapped, *settings.device, scheduled->schedule);
  // Of the hard block only what stands in front of it and behind it.
  const schedule::Schedule wrappers = hardFloatSchedule(
      blockPart.graph, 0, wrapper & kWrapperIn ? 1 : 0, wrapper & kWrapperOut ? 1 : 0);
  return schedule::registerBits(flowPart.graph, flowPart.schedule) +
         schedule::registerBits(blockPart.graph, wrappers);
}
