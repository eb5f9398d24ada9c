#pragma once

#include <chrono>
#include <string>

namespace util {

// Says on a terminal how far work is, from a second after the first such work began, on one line of
// standard error that vanishes at the end. Elsewhere it says nothing, so that logs stay as they
// are.
class LongRun {
 public:
  // `what` is being done: "segments of log(1 + z)/z".
  explicit LongRun(std::string what);
  LongRun(const LongRun&) = delete;
  ~LongRun();

  // Shows "what: done of total" a few times a second at the most.
  void show(std::size_t done, std::size_t total);

 private:
  using Clock = std::chrono::steady_clock;

  static Clock::time_point first();

  const std::string what;
  Clock::time_point shown{};
  std::size_t columns = 0;  // of the line that stands there
};

}  // namespace util
