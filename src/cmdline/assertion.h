#pragma once

#include <source_location>
#include <string>

#include "util/failure.h"

namespace cmdline {

// Asserts a precondition whose text must be told as it is written.
inline void require(bool holds, const char* expression, const std::string& message,
                    const std::source_location& place = std::source_location::current()) {
  if (!holds)
    loam_assert_handler(expression, "cmdGauge", static_cast<int>(place.line()),
                        place.function_name(), message);
}

}  // namespace cmdline
