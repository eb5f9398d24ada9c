#pragma once

#include <optional>

namespace arithmetic {

enum class RoundMode { kNearestEven, kDown, kUp, kTowardZero, kNearestAway };

// A rounding fixed when the unit is built, or chosen at run time by the input port `port` (2 bits:
// 0 nearest even, 1 down, 2 up, 3 toward zero).
struct Rounding {
  RoundMode fixed = RoundMode::kNearestEven;
  std::optional<int> port;
};

}  // namespace arithmetic
