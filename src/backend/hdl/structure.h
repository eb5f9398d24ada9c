#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "backend/hdl/emission.h"

namespace hdl {

// A signal of the top that is no port: one part drives it.
struct Net {
  std::string name;  // legal, and unlike those of ports, parts and other nets
  int width = 0;
};

// What a port of a part is wired to: a port of the top, or a net; by its place among them.
struct Wire {
  std::size_t place = 0;
  bool isNet = false;
};

// One entity inside a structure, and the wires of its own ports, in order.
struct Part {
  Design design;
  std::vector<Wire> inputs;   // from inputs of the top or nets
  std::vector<Wire> outputs;  // to outputs of the top or nets, each driven by one part only
};

// The text of a top entity that only wires parts together: the parts, each with its own logic and
// registers, then the top, whose graph gives its ports and nothing else.
std::string structureText(const Design& top, std::span<const Part> parts, std::span<const Net> nets,
                          LANGUAGE language);

}  // namespace hdl
