#include "util/strings.h"

#include <algorithm>

namespace util {

namespace {

char lower(char letter) {
  return 'A' <= letter && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace

bool caseInsensitiveEquals(const std::string& a, const std::string& b) {
  return std::ranges::equal(a, b, {}, lower, lower);
}

std::string conc(const std::string& name, unsigned index) { return name + std::to_string(index); }

}  // namespace util
