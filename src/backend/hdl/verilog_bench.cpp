#include "backend/hdl/bench.h"
namespace hdl {
std::string verilogBench(const BenchPlan&) { return ""; }
}  // namespace hdl
