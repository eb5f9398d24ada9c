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

// What both languages print of a bench.
struct BenchPlan {
  explicit BenchPlan(const Design& design, const BenchSettings& settings);

  const Design& design;
  const BenchSettings& settings;
  std::string entity, bench;  // names of the unit and of its bench
  std::string clock, reset;
  std::vector<BenchPort> inputs, outputs;  // all ports; valid and channel first where present
  std::size_t firstData = 0;               // index of the first data output
  int dataColumns = 0;                     // columns of a usual response row behind the channel
  int mostColumns = 0;                     // of any response row that can be read

  std::size_t dataPorts() const { return outputs.size() - firstData; }
};

// Mismatches that are told one by one; all are counted.
inline constexpr int kToldMismatches = 20;
// Clock cycles of reset before the first row.
inline constexpr int kResetCycles = 4;

std::string vhdlBench(const BenchPlan& plan);
std::string verilogBench(const BenchPlan& plan);

}  // namespace hdl
