#pragma once

#include <string_view>

namespace driver {

// The usage, line by line as it is printed: the banner with every component, then every option.
// Scripts compare it byte for byte, so odd spellings and trailing blanks are part of it.
extern const std::string_view kUsageComponents;
extern const std::string_view kUsageOptions;

// Prints the whole usage on standard output.
void printHelp();

}  // namespace driver
