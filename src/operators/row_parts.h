#pragma once

#include <initializer_list>

#include "operators/operator_row.h"

// What the tables of rows are put together from.
namespace operators {

// Formats and widths for which circuits and vectors are built.
inline constexpr int kMinExponent = 2, kMaxExponent = 15;
inline constexpr int kMinFraction = 1, kMaxFraction = 112;
inline constexpr int kMaxWidth = 4096, kMaxFactorWidth = 1024;
// What the working precision of fixed-point vectors holds.
inline constexpr int kMaxFixedWidth = 200;
inline constexpr int kMaxFractionLength = 1024;
inline constexpr int kMinOperands = 2, kMaxOperands = 256;

constexpr Parameter exponentWidth(std::string_view name, int low = kMinExponent,
                                  int high = kMaxExponent) {
  return {name, low, high};
}
constexpr Parameter fractionWidth(std::string_view name, int high = kMaxFraction) {
  return {name, kMinFraction, high};
}
constexpr Parameter integerWidth(std::string_view name) { return {name, 1, kMaxWidth}; }
constexpr Parameter factorWidth(std::string_view name) { return {name, 1, kMaxFactorWidth}; }
constexpr Parameter fixedWidth(std::string_view name, int high = kMaxFixedWidth) {
  return {name, 1, high};
}
// The number of bits behind the point, which may stand outside the bits that there are.
constexpr Parameter fractionLength(std::string_view name) {
  return {name, -kMaxFractionLength, kMaxFractionLength};
}
constexpr Parameter operandCount(std::string_view name, int low = kMinOperands) {
  return {name, low, kMaxOperands};
}
// The weight of a bit, as a power of two.
constexpr Parameter weight(std::string_view name) { return {name}; }
constexpr Parameter choice(std::string_view name) { return {name}; }
// A number that no int holds. Its unit reads the word.
constexpr Parameter number(std::string_view name) { return {name}; }

inline Ports makePorts(std::initializer_list<PortSpec> in, std::initializer_list<PortSpec> out) {
  Ports ports;
  for (const PortSpec& port : in) ports.in.push_back(port.name, port.type);
  for (const PortSpec& port : out) ports.out.push_back(port.name, port.type);
  return ports;
}

inline kiln::FixedPoint integer(int width, bool isSigned) { return {width, 0, isSigned}; }
// A select line or a single bit.
inline kiln::FixedPoint bits(int width) { return {width, 0, false}; }

// The ports of a shape and one more.
template <Ports (*Shape)(const Parameters&), int Bits>
Ports selected(const Parameters& p) {
  Ports ports = Shape(p);
  ports.in.push_back("s", bits(Bits));
  return ports;
}
// With a rounding mode that may change from cycle to cycle.
template <Ports (*Shape)(const Parameters&)>
Ports dynamicallyRounded(const Parameters& p) {
  Ports ports = Shape(p);
  ports.in.push_back("r", bits(2));
  return ports;
}
template <Ports (*Shape)(const Parameters&)>
Ports flagged(const Parameters& p) {
  Ports ports = Shape(p);
  ports.out.push_back("flags", bits(5));
  return ports;
}

// A variant that no parameter enters.
template <int... Numbers>
functions::Variant always(const Parameters&) {
  return {{Numbers...}};
}
// The first words, then constants.
template <int Words, int... Numbers>
functions::Variant firstWords(const Parameters& p) {
  functions::Variant variant;
  for (int number = 1; number <= Words; ++number) variant.numbers.push_back(p[number]);
  (variant.numbers.push_back(Numbers), ...);
  return variant;
}

// Why `word` is no number, read like a constant in C, infinities and NaN included; or nothing.
std::optional<std::string> refuseNoNumber(std::string_view name, const std::string& word);
// Why it is no finite number; or nothing.
std::optional<std::string> refuseNumber(std::string_view name, const std::string& word);

inline constexpr std::string_view kPolynomial = "polynomial approximation";

}  // namespace operators
