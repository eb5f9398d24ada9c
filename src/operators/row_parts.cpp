#include "operators/row_parts.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>

namespace operators {

std::optional<std::string> refuseNoNumber(std::string_view name, const std::string& word) {
  char* end = nullptr;
  std::strtod(word.c_str(), &end);
  if (end == word.c_str()) return fmt::format("{} {} is not a number", name, word);
  return std::nullopt;
}

std::optional<std::string> refuseNumber(std::string_view name, const std::string& word) {
  if (auto reason = refuseNoNumber(name, word)) return reason;
  if (!std::isfinite(std::strtod(word.c_str(), nullptr)))
    return fmt::format("{} {} is not finite", name, word);
  return std::nullopt;
}

}  // namespace operators
