#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "backend/hdl/emission.h"

namespace hdl {

// One entity inside a structure, and the ports of the top that its own ports are wired to, in
// order.
struct Part {
  Design design;
  std::vector<std::size_t> inputs;   // places among the top's inputs
  std::vector<std::size_t> outputs;  // places among the top's outputs, each of one part only
};

// The text of a top entity that only wires parts together: the parts, each with its own logic and
// registers, then the top, whose graph gives its ports and nothing else.
std::string structureText(const Design& top, std::span<const Part> parts, LANGUAGE language);

}  // namespace hdl
