#pragma once

#include <vector>

#include "backend/graph/graph.h"

// Inside covering: bits that vanish because nothing reads them.

namespace device {

// For each node which of its bits an output port or a state depends on. A sum needs no more of its
// addends than what is below its highest such bit; products, memories and tables need all.
std::vector<std::vector<bool>> readBits(const graph::Graph& graph);

}  // namespace device
