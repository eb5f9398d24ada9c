#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "backend/graph/graph.h"

namespace software {

// `text` as the start of a C++ identifier: letters, digits and single underscores, a letter first.
std::string identifier(std::string_view text);

// The same as a whole identifier, no word that C++ keeps for itself.
std::string freeIdentifier(std::string_view text);

// The fields of a struct with one member for each port.
std::vector<std::string> fieldNames(const std::vector<graph::Port>& ports);

}  // namespace software
