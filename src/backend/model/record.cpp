#include "backend/model/record.h"

#include <fmt/format.h>

#include "backend/arithmetic/floating_point.h"
#include "backend/model/version.h"

namespace {

std::string quoted(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      out += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
    } else {
      out += c;
    }
  }
  return out + "\"";
}

template <typename Items, typename ToText>
std::string listOf(const Items& items, ToText toText) {
  std::string out = "[";
  bool first = true;
  for (const auto& item : items) {
    out += (first ? "" : ", ") + toText(item);
    first = false;
  }
  return out + "]";
}

std::string portText(const PortSpec& port) {
  const std::string head =
      fmt::format("{{\"name\": {}, \"width\": {}, ", quoted(port.name), port.type.width());
  if (const kiln::FixedPoint* fixed = port.type.as_fixed_point())
    return head + fmt::format("\"format\": \"fxp\", \"fraction\": {}, \"signed\": {}}}",
                              fixed->fraction(), fixed->sign());
  const kiln::FloatingPoint* format = port.type.as_floating_point();
  return head + fmt::format("\"format\": \"{}\", \"exponent\": {}, \"fraction\": {}}}",
                            format->is_fp_lib ? "fplib" : "fpieee", format->exp, format->frac);
}

std::string roundingText(const functions::Accuracy& accuracy, arithmetic::RoundMode mode) {
  if (accuracy.kind == functions::Accuracy::kWithin) return "faithful";
  switch (mode) {
    case arithmetic::RoundMode::kNearestEven:
      return "nearest even";
    case arithmetic::RoundMode::kDown:
      return "down";
    case arithmetic::RoundMode::kUp:
      return "up";
    case arithmetic::RoundMode::kTowardZero:
      return "toward zero";
    case arithmetic::RoundMode::kNearestAway:
      return "nearest away";
  }
  return "";
}

// The largest distance of a result from the exact one.
double errorBound(const functions::Accuracy& accuracy, const arithmetic::Rounding& rounding) {
  switch (accuracy.kind) {
    case functions::Accuracy::kExact:
      return 0;
    case functions::Accuracy::kCorrect:
      return arithmetic::RoundingRule{.mode = rounding.fixed}.isNearest() && !rounding.port ? 0.5
                                                                                            : 1;
    case functions::Accuracy::kWithin:
      break;
  }
  return accuracy.ulps;
}

std::string budgetText(const arithmetic::ErrorBudget& budget) {
  const auto termText = [](const arithmetic::ErrorBudget::Term& term) {
    return fmt::format("{{\"name\": {}, \"ulp\": {}}}", quoted(term.name), term.ulps());
  };
  return fmt::format("{{\"name\": {}, \"bound_ulp\": {}, \"sum_ulp\": {}, \"terms\": {}}}",
                     quoted(budget.name()), budget.promise(), budget.sum(),
                     listOf(budget.terms(), termText));
}

}  // namespace

std::string recordText(const UnitRecord& record) {
  const schedule::Scheduled& timing = *record.timing;
  const functions::Request& request = *record.request;
  using enum tessel_api::ResourceUsage::Kind;
  std::string out = "{\n";
  const auto field = [&](const char* name, const std::string& value) {
    out += fmt::format("  \"{}\": {},\n", name, value);
  };
  const auto number = [](auto value) { return fmt::format("{}", value); };
  field("generator", quoted(fmt::format("cmdGauge {}", kVersion)));
  field("command_line", quoted(record.commandLine));
  field("seed", number(record.seed));
  field("entity", quoted(record.entity));
  field("unit", quoted(record.unit));
  field("inputs", listOf(*record.inputs, portText));
  field("outputs", listOf(*record.outputs, portText));
  field("channel_valid", number(record.hasChannelValid));
  field("latency", listOf(record.latencies, number));
  field("initiation_interval", "1");
  field("device",
        fmt::format("{{\"family\": {}, \"speed_grade\": {}, \"data\": \"{}\"}}",
                    quoted(record.device->familyName()), quoted(record.device->speedGradeName()),
                    record.device->isCalibrated() ? "calibrated" : "stated model"));
  field("clock_mhz", number(record.device->megahertz()));
  field("period_ps", number(timing.period.value));
  const auto stepText = [&](const schedule::Scheduled::PathStep& step) {
    return fmt::format("{{\"step\": {}, \"arrival_ps\": {}}}", quoted(step.name),
                       step.arrival.value);
  };
  field("longest_stage",
        fmt::format("{{\"delay_ps\": {}, \"step\": {}, \"path\": {}}}", timing.longestStage.value,
                    quoted(timing.longestStep), listOf(timing.longestPath, stepText)));
  field("resources",
        fmt::format("{{\"lut\": {}, \"dsp\": {}, \"ram_bits\": {}, \"ram_blocks\": {}, "
                    "\"register_bits\": {}}}",
                    record.resources.get(kLut), record.resources.get(kDsp),
                    record.resources.get(kRamBit), record.resources.get(kRamBlock),
                    record.registerBits));
  field("rounding", listOf(request.accuracy, [&](const functions::Accuracy& accuracy) {
          return quoted(roundingText(accuracy, request.rounding.fixed));
        }));
  field("error_bound_ulp", listOf(request.accuracy, [&](const functions::Accuracy& accuracy) {
          return number(errorBound(accuracy, request.rounding));
        }));
  field("error_budget", listOf(*record.budgets, budgetText));
  field("subnormals", number(request.subnormals));
  out += "  \"files\": " + listOf(record.files, quoted) + "\n}\n";
  return out;
}
