#include "backend/hdl/emission.h"

#include <map>
#include <string>

#include "backend/hdl/bench.h"
#include "backend/hdl/names.h"
#include "backend/hdl/plan.h"
#include "backend/hdl/printers.h"
#include "backend/hdl/text.h"

namespace hdl {

namespace {

// Runs from any folder, works in a temporary one. What the tools say is kept back until the end, so
// that the bench's own count is the last line.
constexpr std::string_view kScript = R"sh(#!/bin/sh
# Replays the test vectors of @name@ in @tool@; the status is the verdict.
set -u
cd "$(dirname "$0")" || exit 1
for tool in @tools@; do
  command -v "$tool" >/dev/null || {
    echo "@name@: $tool is not installed"
    exit 127
  }
done
here=$(pwd)
build=$(mktemp -d) || exit 1
trap 'rm -rf "$build"' EXIT
trap 'exit 1' HUP INT TERM
run() {
@commands@}
run >"$build/log" 2>&1
status=$?
awk -v status="$status" '
  !/^simulation finished / {print; last = $0}
  END {exit status ? status : last !~ /^[0-9]+ rows compared, [0-9]+ mismatches$/}' "$build/log"
)sh";

}  // namespace

std::vector<TopPort> topPorts(const Design& design) {
  const Plan plan(design);
  std::vector<TopPort> ports = {{plan.clock}, {plan.reset}};
  if (!plan.enable.empty()) ports.push_back({plan.enable});
  for (std::size_t k = 0; k < plan.inputNames.size(); ++k)
    ports.push_back({plan.inputNames[k], plan.graph.inputs()[k].signal.width, true});
  for (std::size_t k = 0; k < plan.outputNames.size(); ++k)
    ports.push_back({plan.outputNames[k], plan.graph.outputs()[k].signal.width, false});
  return ports;
}

std::string designText(const Design& design, LANGUAGE language) {
  const Plan plan(design);
  return language == LANGUAGE_VERILOG ? verilogText(plan) : vhdlText(plan);
}

std::string benchText(const Design& design, const BenchSettings& bench, LANGUAGE language) {
  const BenchPlan plan(design, bench);
  return language == LANGUAGE_VERILOG ? verilogBench(plan) : vhdlBench(plan);
}

std::string simulationScript(const Design& design, LANGUAGE language) {
  const bool isVerilog = language == LANGUAGE_VERILOG;
  const std::string bench = Names().claim(design.name + "_atb");
  const std::string commands =
      isVerilog
          ? "  iverilog -g2005 -o \"$build/bench\" @name@.v @name@_atb.v &&\n"
            "    vvp -n \"$build/bench\"\n"
          : "  cd \"$build\" &&\n"
            "    ghdl -a --std=08 \"$here/@name@.vhd\" \"$here/@name@_atb.vhd\" &&\n"
            "    ghdl --elab-run --std=08 @bench@ \"-gfolder=$here/\" --ieee-asserts=disable\n";
  const std::map<std::string, std::string> names{{"name", design.name}, {"bench", bench}};
  return filled(kScript, {{"name", design.name},
                          {"tool", isVerilog ? "Icarus" : "GHDL"},
                          {"tools", isVerilog ? "iverilog vvp" : "ghdl"},
                          {"commands", filled(commands, names)}});
}

}  // namespace hdl
