#include "util/words.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdlib>
#include <vector>

namespace util {

namespace {

std::vector<std::string_view> split(std::string_view names) {
  std::vector<std::string_view> parts;
  while (!names.empty()) {
    const std::size_t blank = names.find(' ');
    parts.push_back(names.substr(0, blank));
    names.remove_prefix(blank == std::string_view::npos ? names.size() : blank + 1);
  }
  return parts;
}

}  // namespace

int integerOf(const char* word) { return static_cast<int>(std::strtol(word, nullptr, 10)); }

int countNames(std::string_view names) { return static_cast<int>(split(names).size()); }

std::optional<Failure> missingWords(const std::string& word, std::string_view names, Words behind) {
  const std::vector<std::string_view> parts = split(names);
  if (behind.size() >= parts.size()) return std::nullopt;
  const std::string_view missing = names.substr(parts[behind.size()].data() - names.data());
  return Failure{
      fmt::format("{0}: the line ends before {2} (usage: {0} {1})", word, names, missing)};
}

std::string joined(Words words) {
  std::string text;
  for (const char* word : words) {
    if (!text.empty()) text += ' ';
    text += word;
  }
  std::ranges::replace_if(
      text, [](unsigned char letter) { return std::iscntrl(letter) != 0; }, '?');
  return text;
}

int bitsForValue(long value) {
  return std::max<int>(1, std::bit_width(static_cast<unsigned long>(value)));
}

}  // namespace util
