#pragma once

#include <string>
#include <vector>

#include "backend/device/device.h"
#include "backend/graph/graph.h"
#include "backend/schedule/schedule.h"

namespace hdl {

// Everything that the printed design depends on.
struct Design {
  const graph::Graph* graph = nullptr;
  const schedule::Schedule* schedule = nullptr;
  std::string folder;               // "./<name>"
  std::string name;                 // base name of all files
  std::string entity;               // top entity: `name`, or its shortened form
  std::vector<std::string> header;  // comment lines: command line, version, function, licence
  bool dontCareOnReset = false;     // data registers have no reset
  bool hasEnable = false;  // a port `en` behind `reset`; while it is 0 every register holds
};

// What the self-checking bench must know beside the design.
struct BenchSettings {
  bool hasChannelValid = true;
  bool mismatchIsError = true;  // else a warning, as -vsimToFile asks
  bool resultsToFile = false;   // write <name>_xOut.stm.sim
  int latency = 0;
  std::vector<int> alternatives;  // columns of each output port in the response file; 0: unchecked
  // With split outputs: the latency of each, its own valid and channel port (xOut0_v, xOut0_c, ...)
  // and its own response file <name>_xOut<i>.stm. Empty: one file, one latency.
  std::vector<int> splitLatencies;
  bool oneResponseFile = false;  // <name>_xOut.stm for a single output, though it is split
};

// A port of the top entity, as both languages call it.
struct TopPort {
  std::string name;
  int width = 1;
  bool isInput = true;
};
// All ports in the order of the entity: the clock, the reset, the enable, inputs, outputs.
std::vector<TopPort> topPorts(const Design& design);

// The text of the design in one language, deterministic.
std::string designText(const Design& design, LANGUAGE language);
std::string benchText(const Design& design, const BenchSettings& bench, LANGUAGE language);
// A script that runs the bench in GHDL (VHDL) or Icarus (Verilog); its status is the verdict.
std::string simulationScript(const Design& design, LANGUAGE language);

}  // namespace hdl
