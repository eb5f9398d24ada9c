#pragma once

#include <string>
#include <vector>

#include "backend/hdl/emission.h"

namespace hdl {

struct BenchPort {
  std::string name;  // as the printed design has it
  int width = 0;
  int alternatives = 0;  // columns of an output in most rows; 0: unchecked
};

// One file of expected results and the ports that are compared with it.
struct ResponseFile {
  std::string name;  // <name>_xOut.stm, or <name>_xOut<i>.stm with split outputs
  std::string mark;  // behind the names that belong to this file: empty, or _<i>
  int latency = 0;
  std::size_t valid = 0, channel = 0;  // indices of ports, where there are such
  std::size_t firstData = 0, dataPorts = 0;
  int dataColumns = 0;  // of a usual row, behind the channel
  int mostColumns = 0;  // of any row that can be read, behind the channel
};

// What both languages print of a bench.
struct BenchPlan {
  explicit BenchPlan(const Design& design, const BenchSettings& settings);

  const Design& design;
  const BenchSettings& settings;
  std::string entity, bench;  // names of the unit and of its bench
  std::string clock, reset, enable;        // enable: empty without one
  std::vector<BenchPort> inputs, outputs;  // all ports; valid and channel first where present
  std::size_t controls = 0;                // 2 where rows have valid and channel columns, else 0
  std::vector<ResponseFile> files;
  int longestLatency = 0, mostColumns = 0;  // of all files

  bool hasEnable() const { return !enable.empty(); }
  // The names of all response files, for the bench's comment.
  std::string responseNames() const;
};

// Mismatches that are told one by one; all are counted.
inline constexpr int kToldMismatches = 20;
// Clock cycles of reset before the first row.
inline constexpr int kResetCycles = 4;

std::string vhdlBench(const BenchPlan& plan);
std::string verilogBench(const BenchPlan& plan);

}  // namespace hdl
