#pragma once

#include <string>

namespace util {

// Equal but for the case of ASCII letters.
bool caseInsensitiveEquals(const std::string& a, const std::string& b);

// `name` followed by the decimal `index`: conc("a", 3) is "a3".
std::string conc(const std::string& name, unsigned index);

}  // namespace util
