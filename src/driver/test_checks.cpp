#include "driver/test_checks.h"

#include <fmt/format.h>

#include "stimuli/exhaustive.h"
#include "stimuli/injected.h"
#include "util/failure.h"

namespace driver {

void checkTests(std::string_view word, const PortSpecList& inputs, const TestingOptions& testing,
                bool writesVectors) {
  if (testing.injectTestVector && testing.injectedVector.size() != inputs.size())
    util::exitWith({fmt::format("-injectTestVector: {} values for the {} inputs of {}",
                                testing.injectedVector.size(), inputs.size(), word)});
  if (testing.injectTestVector) {
    if (const auto reason = injectionRefused(inputs, testing)) util::exitWith({*reason});
  }
  if (writesVectors && testing.exhaustiveTests)
    getExhaustiveTestCount(inputs, testing);  // ends the run where they are too many
  if (testing.expRangeMin > testing.expRangeMax) return;
  for (const PortSpec& port : inputs) {
    const kiln::FloatingPoint* format = port.type.as_floating_point();
    if (!format) continue;
    const int half = 1 << (format->exp - 1);
    const int low = 2 - half - format->is_fp_lib;
    const int high = half - 1 + format->is_fp_lib;
    if (testing.expRangeMax < low || testing.expRangeMin > high)
      util::exitWith(
          {fmt::format("{}: the exponent range {} to {} is out of range {} to {} of {}", word,
                       testing.expRangeMin, testing.expRangeMax, low, high, port.name)});
  }
}

}  // namespace driver
