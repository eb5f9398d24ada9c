#pragma once

#include <string>
#include <vector>

#include "numbers/component_type.h"
#include "numbers/ports.h"

// What the model flow hands from the command line to its generator.
namespace cmdline {

struct DeviceSpec {
  std::string family, speedGrade, part;
};

struct TargetSpec {
  const DeviceSpec* device;
  float frequency;  // MHz
};

// What is to be built. Does not change once the generator has it.
struct SystemSpec {
  ::componentType component;
  std::string name;
  PortSpecList inputs, outputs;
  int enableStyle;  // 1 and 2: with an enable signal; any other: without
  const TargetSpec* target;
  std::vector<std::string> parameters;  // the words behind the operator
};

// How it is to be built.
struct SystemOptions {
  int language;  // 0 VHDL, 1 Verilog
  const TargetSpec* target;
  int interfaceStyle;  // 0: channel and valid signals around the data; any other: the data alone
  int designStyle;     // 0: a block of the dictionary stands for the unit; 1: the unit itself
  bool combinatorial;
  bool hardFP;
  std::string commandLine = {};  // words of the run, for headers and record
};

}  // namespace cmdline
