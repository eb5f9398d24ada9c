#include "driver/format_check.h"

#include <fmt/format.h>

#include "operators/row_parts.h"

namespace driver {

namespace {

// The values of one width for which circuits and vectors exist.
struct Range {
  const char* name;
  int low, high;
};
constexpr Range kExponent{"wE", operators::kMinExponent, operators::kMaxExponent};
constexpr Range kFraction{"wF", operators::kMinFraction, operators::kMaxFraction};
// Far enough to put a bit anywhere that the widest floating-point format reaches.
constexpr Range kPoint{"f", -(1 << 15), 1 << 15};

std::optional<util::Failure> outOfRange(std::string_view word, const PortSpec& port, int value,
                                        const Range& range) {
  if (value >= range.low && value <= range.high) return std::nullopt;
  return util::Failure{fmt::format("{}: {} {} of port {} is out of range {} to {}", word,
                                   range.name, value, port.name, range.low, range.high)};
}

std::optional<util::Failure> portFailure(std::string_view word, const PortSpec& port,
                                         int precision) {
  if (const kiln::FloatingPoint* format = port.type.as_floating_point()) {
    if (auto failure = outOfRange(word, port, format->exp, kExponent)) return failure;
    return outOfRange(word, port, format->frac, kFraction);
  }
  const kiln::FixedPoint& format = *port.type.as_fixed_point();
  if (auto failure = outOfRange(word, port, format.width(), {"w", 1, precision})) return failure;
  return outOfRange(word, port, format.fraction(), kPoint);
}

}  // namespace

std::optional<util::Failure> formatFailure(std::string_view word, const PortSpecList& inputs,
                                           const PortSpecList& outputs, int precision) {
  for (const PortSpecList* side : {&inputs, &outputs})
    for (const PortSpec& port : *side)
      if (auto failure = portFailure(word, port, precision)) return failure;
  return std::nullopt;
}

}  // namespace driver
