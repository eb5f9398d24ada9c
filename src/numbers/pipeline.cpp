#include "numbers/pipeline.h"

#include <algorithm>
#include <utility>

Pipeline::Pipeline(int columns, int latency, bool chanValid, bool enable) {
  PipelineStage start{.valid = chanValid ? 0 : -1,
                      .channel = chanValid ? 0 : -1,
                      .enable = enable ? 0 : -1,
                      .values = std::vector<NumValue>(static_cast<std::size_t>(columns))};
  for (NumValue& value : start.values) {
    mpfr_set_zero(value.real.prepare(2), 1);
    value.type = NumType::kDontCare;
  }
  ring.assign(static_cast<std::size_t>(std::max(latency, 0)), start);
  if (!chanValid) results = std::max(latency, 0);
}

const PipelineStage& Pipeline::advance(PipelineStage& stage) {
  if (ring.empty()) return stage;
  PipelineStage& place = ring[oldest];
  if (stage.enable == 0) return place;
  results += (stage.valid != 0) - (place.valid != 0);
  std::swap(place, stage);
  oldest = (oldest + 1) % ring.size();
  return stage;
}
