#pragma once

#include <string>
#include <vector>

#include "backend/device/device.h"
#include "backend/hdl/emission.h"
#include "backend/model/resource_usage.h"

// What the compile project of one unit says: constraints, settings and an open synthesis script.
struct CompileProject {
  std::vector<std::string> header;  // comment lines of each file
  std::string name;                 // base name of the files
  std::string entity;               // top entity
  LANGUAGE language = LANGUAGE_VHDL;
  const device::Device* device = nullptr;
  device::Picoseconds period;           // that the unit was built for
  std::vector<hdl::TopPort> pins;       // without the clock
  std::string clock;                    // port of the clock
  tessel_api::ResourceUsage resources;  // our estimate
  long registerBits = 0;
  std::string hardBlock;  // module that stands for a hard block of the device; empty without one
};

// <name>.sdc: the clock and nothing else; no path is excepted.
std::string constraintsText(const CompileProject& project);

// <name>.fathom: one setting a line, a key and its value (docs/compile_project.md).
std::string settingsText(const CompileProject& project);

// synthesize.ys: run by yosys in the unit's folder, leaves synthesis.txt there: the cells beside
// our estimate, and the longest path by cell delays. Reads <name>.v in either language.
std::string synthesisScript(const CompileProject& project);
