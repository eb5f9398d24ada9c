#include "backend/functions/float_unit.h"

#include <fmt/format.h>

#include "util/failure.h"

namespace functions {

namespace {

// Every floating port of a request, inputs first.
std::vector<kiln::FloatingPoint> floatPorts(const Request& request) {
  std::vector<kiln::FloatingPoint> ports;
  for (const auto* side : {&request.signature.in, &request.signature.out})
    for (const kiln::Type& type : *side)
      if (const auto* format = type.as_floating_point()) ports.push_back(*format);
  return ports;
}

}  // namespace

const kiln::FloatingPoint& inputFloat(const Signature& signature, std::size_t port) {
  return *signature.in[port].as_floating_point();
}

const kiln::FloatingPoint& outputFloat(const Signature& signature, std::size_t port) {
  return *signature.out[port].as_floating_point();
}

arithmetic::FloatFormat inputFormat(const Request& request, std::size_t port) {
  return arithmetic::formatOf(inputFloat(request.signature, port), request.subnormals);
}

arithmetic::FloatFormat outputFormat(const Request& request, std::size_t port) {
  return arithmetic::formatOf(outputFloat(request.signature, port), request.subnormals);
}

double ulpsOf(const Request& request, std::size_t port) {
  if (request.rounding.port) return 0.5;  // rounded as the port says, whatever the bound
  const Accuracy accuracy = port < request.accuracy.size() ? request.accuracy[port] : Accuracy{};
  return accuracy.kind == Accuracy::kWithin ? accuracy.ulps : 0.5;
}

arithmetic::RoundingRule roundingOf(const Request& request, bool tiesAway,
                                    std::span<const graph::Signal> inputs) {
  arithmetic::RoundingRule rule{.mode = request.rounding.fixed};
  if (tiesAway && rule.mode == RoundMode::kNearestEven) rule.mode = RoundMode::kNearestAway;
  if (request.rounding.port) rule.port = inputs[static_cast<std::size_t>(*request.rounding.port)];
  return rule;
}

bool isUnsignedOf(const kiln::Type& type, int width) {
  const kiln::FixedPoint* format = type.as_fixed_point();
  return format && format->width() == width && format->fraction() == 0 && !format->sign();
}

std::optional<std::string> refuseFormats(const Request& request) {
  for (const kiln::FloatingPoint& port : floatPorts(request)) {
    if (port.exp < 2 || port.exp > 15)
      return fmt::format("wE {} is out of range 2 to 15", port.exp);
    if (port.frac < 1 || port.frac > 112)
      return fmt::format("wF {} is out of range 1 to 112", port.frac);
  }
  return std::nullopt;
}

std::optional<std::string> refusePorts(const Request& request, std::size_t inputs,
                                       std::size_t controls, std::size_t outputs) {
  const auto& [in, out, variant] = request.signature;
  if (in.size() != inputs + controls || out.size() != outputs)
    return fmt::format("{} inputs and {} outputs are not the {} and {} of this unit", in.size(),
                       out.size(), inputs + controls, outputs);
  for (std::size_t i = 0; i < in.size(); ++i) {
    const bool fits = i < inputs ? in[i].as_floating_point() != nullptr
                                 : in[i].as_fixed_point() != nullptr && in[i].width() == 1;
    if (!fits)
      return fmt::format("input {} is not a {} port", i, i < inputs ? "floating-point" : "1-bit");
  }
  for (std::size_t i = 0; i < out.size(); ++i)
    if (!out[i].as_floating_point())
      return fmt::format("output {} is not a floating-point port", i);
  return refuseFormats(request);
}

std::optional<std::string> refuseMixedWidths(const Request& request) {
  const auto ports = floatPorts(request);
  for (const kiln::FloatingPoint& port : ports)
    if (port.exp != ports[0].exp || port.frac != ports[0].frac)
      return fmt::format("formats {} {} and {} {} differ; this unit has one for all ports",
                         ports[0].exp, ports[0].frac, port.exp, port.frac);
  return std::nullopt;
}

std::optional<std::string> refuseMixedForms(const Request& request) {
  if (auto reason = refuseMixedWidths(request)) return reason;
  const auto ports = floatPorts(request);
  for (const kiln::FloatingPoint& port : ports)
    if (port.is_fp_lib != ports[0].is_fp_lib)
      return "its floating-point ports are of different forms";
  return std::nullopt;
}

}  // namespace functions
