#include "util/long_run.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace util {

LongRun::LongRun(std::string what) : what(std::move(what)) { first(); }

LongRun::~LongRun() {
  if (columns > 0) std::fputs(fmt::format("\r{:{}}\r", "", columns).c_str(), stderr);
}

LongRun::Clock::time_point LongRun::first() {
  static const Clock::time_point begun = Clock::now();
  return begun;
}

void LongRun::show(std::size_t done, std::size_t total) {
  using namespace std::chrono_literals;
  const Clock::time_point now = Clock::now();
  if (now - first() < 1s || now - shown < 200ms || isatty(STDERR_FILENO) == 0) return;
  const std::string line = fmt::format("{}: {} of {}", what, done, total);
  std::fputs(fmt::format("\r{:<{}}", line, columns).c_str(), stderr);
  shown = now;
  columns = std::max(columns, line.size());
}

}  // namespace util
