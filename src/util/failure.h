#pragma once

#include <string>
#include <utility>
#include <variant>

namespace util {

// A user's mistake: one line that names the word, the value and what is possible.
struct Failure {
  std::string message;
};

// A value, or the reason why there is none.
template <typename T>
class Result {
 public:
  Result(T value) : state(std::move(value)) {}
  Result(Failure failure) : state(std::move(failure)) {}

  explicit operator bool() const { return std::holds_alternative<T>(state); }
  T& operator*() { return std::get<T>(state); }
  const T& operator*() const { return std::get<T>(state); }
  T* operator->() { return &std::get<T>(state); }
  const T* operator->() const { return &std::get<T>(state); }
  const Failure& failure() const { return std::get<Failure>(state); }

 private:
  std::variant<T, Failure> state;
};

// The exit status of every run that failed.
inline constexpr int kFailureStatus = 255;

// Ends the run with `failure` as one line on standard error and status 255.
[[noreturn]] void exitWith(const Failure& failure);

}  // namespace util

// Reports a broken precondition on standard error (expression, file, line, function, message),
// flushes every open file and ends the run with status 255.
[[noreturn]] void loam_assert_handler(const char* expression, const char* file, int line,
                                      const char* function, const std::string& message);

// Reports an error after which the run goes on.
void loam_error_printf(const std::string& message);

// Asserts one of our own preconditions.
#define LOAM_ASSERT(condition, message)                                                  \
  do {                                                                                   \
    if (!(condition))                                                                    \
      loam_assert_handler(#condition, "cmdGauge", __LINE__, __PRETTY_FUNCTION__, message); \
  } while (false)
