#include "driver/run.h"

#include <algorithm>
#include <span>
#include <string_view>

#include "driver/classic_flow.h"
#include "driver/model_flow.h"

namespace driver {

int run(int argc, const char* const* argv) {
  const std::span words(argv, argc);
  // This word alone selects the model flow, wherever it stands; its case matters.
  const bool wantsModelFlow = std::ranges::any_of(
      words.subspan(words.empty() ? 0 : 1), [](std::string_view word) { return word == "-kiln"; });
  return wantsModelFlow ? runModelFlow(words) : runClassicFlow(words);
}

}  // namespace driver
