#include "util/arguments.h"

#include <algorithm>
#include <stdexcept>

namespace {

const char* const* find(const Options& options, const std::string& name) {
  return std::find(options.begin, options.end, name);
}

}  // namespace

bool Options::has(const std::string& name) const { return find(*this, name) != end; }

int Options::wordsBehind(const std::string& name) const {
  const char* const* place = find(*this, name);
  return place == end ? 0 : static_cast<int>(end - place) - 1;
}

std::string Options::getArg(const std::string& name, const std::string& defaultValue) const {
  const char* const* place = find(*this, name);
  if (place == end || place + 1 == end) return defaultValue;
  return place[1];
}

std::vector<std::string> Options::getArgs(const std::string& name, int count,
                                          const std::string& defaultValue) const {
  std::vector<std::string> words;
  const char* const* place = find(*this, name);
  const bool found = place != end;
  for (int k = 0; k < count; ++k) {
    if (!found) {
      words.push_back(defaultValue);
    } else if (place == end || ++place == end) {
      throw std::logic_error("basic_string::_S_construct null not valid");
    } else {
      words.emplace_back(*place);
    }
  }
  return words;
}
