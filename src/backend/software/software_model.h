#pragma once

#include <string>
#include <vector>

#include "backend/graph/graph.h"

namespace software {

// The generated C++ model: plain C++17 without dependencies, callable, bit-exact, without latency
// (a call answers what the unit answers `latency` cycles later). Of a graph with states a call
// takes them, too, and advances them by one iteration; a fresh <name>_state is what the unit has
// after a reset.
struct SoftwareModel {
  std::string header;  // <name>_model.h
  std::string source;  // <name>_model.cpp
};
SoftwareModel softwareModel(const graph::Graph& graph, const std::string& name, int latency,
                            const std::vector<std::string>& headerComment);

}  // namespace software
