#include "backend/hdl/structure.h"

#include <fmt/format.h>

#include "backend/hdl/plan.h"
#include "backend/hdl/printers.h"
#include "backend/hdl/text.h"

namespace hdl {

namespace {

struct Direction {
  const char* word;
  const std::vector<graph::Port>& ports;
  const std::vector<std::string>& names;
};

// Each port of the part with the top's name for what it is wired to.
std::vector<std::pair<std::string, std::string>> wiresOf(const Part& part, const Plan& inner,
                                                         const Plan& top,
                                                         std::span<const Net> nets) {
  const auto nameOf = [&](const Wire& wire, const std::vector<std::string>& ports) {
    return wire.isNet ? nets[wire.place].name : ports[wire.place];
  };
  std::vector<std::pair<std::string, std::string>> wires = {{inner.clock, top.clock},
                                                            {inner.reset, top.reset}};
  if (!top.enable.empty()) wires.emplace_back(inner.enable, top.enable);
  for (std::size_t k = 0; k < part.inputs.size(); ++k)
    wires.emplace_back(inner.inputNames[k], nameOf(part.inputs[k], top.inputNames));
  for (std::size_t k = 0; k < part.outputs.size(); ++k)
    wires.emplace_back(inner.outputNames[k], nameOf(part.outputs[k], top.outputNames));
  return wires;
}

std::string vhdlTop(const Plan& top, std::span<const Net> nets,
                    const std::vector<std::string>& instances) {
  std::string ports =
      fmt::format("    {} : in std_logic;\n    {} : in std_logic", top.clock, top.reset);
  if (!top.enable.empty()) ports += fmt::format(";\n    {} : in std_logic", top.enable);
  for (const auto& [word, list, names] : {Direction{"in", top.graph.inputs(), top.inputNames},
                                          Direction{"out", top.graph.outputs(), top.outputNames}})
    for (std::size_t k = 0; k < list.size(); ++k)
      ports += fmt::format(";\n    {} : {} std_logic_vector({} downto 0)", names[k], word,
                           list[k].signal.width - 1);
  std::string signals;
  for (const Net& net : nets)
    signals +=
        fmt::format("  signal {} : std_logic_vector({} downto 0);\n", net.name, net.width - 1);
  return fmt::format(
      "library ieee;\nuse ieee.std_logic_1164.all;\n\nentity {0} is\n  port (\n{1}\n  );\n"
      "end entity;\n\narchitecture structure of {0} is\n{2}begin\n\n{3}\nend architecture;\n",
      top.entity, ports, signals, fmt::join(instances, "\n"));
}

std::string verilogTop(const Plan& top, std::span<const Net> nets,
                       const std::vector<std::string>& instances) {
  std::string ports = fmt::format("  input wire {},\n  input wire {}", top.clock, top.reset);
  if (!top.enable.empty()) ports += fmt::format(",\n  input wire {}", top.enable);
  for (const auto& [word, list, names] :
       {Direction{"input", top.graph.inputs(), top.inputNames},
        Direction{"output", top.graph.outputs(), top.outputNames}})
    for (std::size_t k = 0; k < list.size(); ++k)
      ports += fmt::format(",\n  {} wire [{}:0] {}", word, list[k].signal.width - 1, names[k]);
  std::string wires;
  for (const Net& net : nets) wires += fmt::format("  wire [{}:0] {};\n", net.width - 1, net.name);
  if (!wires.empty()) wires += "\n";
  return fmt::format("module {} (\n{}\n);\n\n{}{}\nendmodule\n", top.entity, ports, wires,
                     fmt::join(instances, "\n"));
}

}  // namespace

std::string structureText(const Design& top, std::span<const Part> parts, std::span<const Net> nets,
                          LANGUAGE language) {
  const bool isVerilog = language == LANGUAGE_VERILOG;
  const Plan topPlan(top);
  std::string text = headerLines(top.header, isVerilog ? "//" : "--");
  if (isVerilog) text += "// verilator lint_off DECLFILENAME\n\n";
  std::vector<std::string> instances;
  for (const Part& part : parts) {
    const Plan plan(part.design);
    text += (isVerilog ? verilogText(plan) : vhdlText(plan)) + "\n";
    std::vector<std::string> wires;
    for (const auto& [inner, outer] : wiresOf(part, plan, topPlan, nets))
      wires.push_back(isVerilog ? fmt::format("    .{}({})", inner, outer)
                                : fmt::format("      {} => {}", inner, outer));
    const std::string label = fmt::format("part_{}", instances.size());
    instances.push_back(
        isVerilog
            ? fmt::format("  {} {} (\n{}\n  );\n", plan.entity, label, fmt::join(wires, ",\n"))
            : fmt::format("  {} : entity work.{}\n    port map (\n{}\n    );\n", label, plan.entity,
                          fmt::join(wires, ",\n")));
  }
  return text +
         (isVerilog ? verilogTop(topPlan, nets, instances) : vhdlTop(topPlan, nets, instances));
}

}  // namespace hdl
