#pragma once

#include <cstdint>
#include <vector>

#include "operators/operator_row.h"

// What the tables of rows are put together from.
namespace operators {

// Formats and widths for which circuits and vectors are built.
inline constexpr int kMinExponent = 2, kMaxExponent = 15;
inline constexpr int kMinFraction = 1, kMaxFraction = 112;
inline constexpr int kMaxWidth = 4096, kMaxFactorWidth = 1024;
inline constexpr int kMinOperands = 2, kMaxOperands = 256;

constexpr Parameter exponentWidth(std::string_view name) {
  return {name, kMinExponent, kMaxExponent};
}
constexpr Parameter fractionWidth(std::string_view name) {
  return {name, kMinFraction, kMaxFraction};
}
constexpr Parameter integerWidth(std::string_view name) { return {name, 1, kMaxWidth}; }
constexpr Parameter factorWidth(std::string_view name) { return {name, 1, kMaxFactorWidth}; }
// The weight of a bit, as a power of two.
constexpr Parameter weight(std::string_view name) { return {name}; }
constexpr Parameter choice(std::string_view name) { return {name}; }

inline kiln::FixedPoint integer(int width, bool isSigned) { return {width, 0, isSigned}; }
// A select line or a single bit.
inline kiln::FixedPoint bits(int width) { return {width, 0, false}; }

// A variant that no parameter enters.
template <int... Numbers>
std::vector<std::int64_t> always(const Parameters&) {
  return {Numbers...};
}

}  // namespace operators
