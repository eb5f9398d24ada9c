#include "util/failure.h"

#include <cstdio>
#include <cstdlib>

namespace util {

void exitWith(const Failure& failure) {
  std::fflush(nullptr);
  std::fprintf(stderr, "%s\n", failure.message.c_str());
  std::exit(kFailureStatus);
}

}  // namespace util

void loam_assert_handler(const char* expression, const char* file, int line, const char* function,
                         const std::string& message) {
  std::fflush(nullptr);
  std::fprintf(stderr, "Assertion \"%s\" failed: %s:%d, %s: %s\n", expression, file, line, function,
               message.c_str());
  std::exit(util::kFailureStatus);
}

void loam_error_printf(const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s\n", message.c_str());
}
