#include "backend/model/compile_project.h"

#include <fmt/format.h>

#include <optional>

namespace {

std::string headerText(const CompileProject& project) {
  std::string text;
  for (const std::string& line : project.header) text += "# " + line + "\n";
  return text + "\n";
}

std::string nanoseconds(device::Picoseconds time) {
  return fmt::format("{}.{:03}", time.value / 1000, time.value % 1000);
}

// The commands up to word-level cells and those to look-up tables, carry chains, DSP and memory
// blocks of a family that the tool knows well. @top@ and @read@ are filled in.
constexpr const char* kWords = R"ys(read_verilog -sv -defer {name}.v
hierarchy -check -top {top}
proc
{hard}flatten
opt_expr
opt_clean
check
opt
wreduce
peepopt
opt_clean
synth_xilinx -family xc7 -top {top} -flatten -noiopad -noclkbuf
)ys";

}  // namespace

std::string constraintsText(const CompileProject& project) {
  std::string text = headerText(project);
  const int asked = project.device->period().value;
  if (asked < project.period.value)
    text += fmt::format("# {} ns were asked for; this is the shortest period that the unit has.\n",
                        nanoseconds({asked}));
  return text + fmt::format("create_clock -name {0} -period {1} [get_ports {{{0}}}]\n",
                            project.clock, nanoseconds(project.period));
}

std::string settingsText(const CompileProject& project) {
  const bool isVerilog = project.language == LANGUAGE_VERILOG;
  std::string text = headerText(project);
  text += "# A setting a line: a key, then its value.\n";
  const auto setting = [&](const char* key, const auto& value) {
    text += fmt::format("{} {}\n", key, value);
  };
  setting("family", project.device->familyName());
  setting("speed_grade", project.device->speedGradeName());
  setting("part", project.device->partName());
  setting("top", project.entity);
  setting("language", isVerilog ? "Verilog" : "VHDL");
  setting("source", project.name + (isVerilog ? ".v" : ".vhd"));
  setting("constraints", project.name + ".sdc");
  setting("clock", fmt::format("{} {}", project.clock, nanoseconds(project.period)));
  text += "# Ports that a compile of the unit by itself gives no pin: name, direction, bits.\n";
  for (const hdl::TopPort& pin : project.pins)
    setting("virtual_pin",
            fmt::format("{} {} {}", pin.name, pin.isInput ? "in" : "out", pin.width));
  return text;
}

std::string synthesisScript(const CompileProject& project) {
  using tessel_api::ResourceUsage;
  const auto report = [](const std::string& command) {
    return "tee -q -a synthesis.txt " + command + "\n";
  };
  std::string text = headerText(project);
  text += "# Run in this folder: yosys " + std::string("synthesize.ys") + "\n";
  text +=
      "# Leaves synthesis.txt: cells beside the estimate, and the longest path by cell delays\n";
  text += "# alone (in ps, wires count as 0).\n\n";
  const bool hasBlock = !project.hardBlock.empty();
  text += fmt::format(fmt::runtime(kWords), fmt::arg("name", project.name),
                      fmt::arg("top", project.entity),
                      fmt::arg("hard", hasBlock ? "blackbox " + project.hardBlock + "\n" : ""));
  text +=
      fmt::format("\ntee -q -o synthesis.txt log Cost of {}, estimated for {} and synthesised\n",
                  project.entity, project.device->familyName());
  const auto count = [&](const char* what, std::optional<long> estimate, const std::string& cells) {
    text += report(fmt::format("log -n {} {}yosys=", what,
                               estimate ? fmt::format("estimate={} ", *estimate) : ""));
    text += report("select -count " + cells);
  };
  const ResourceUsage& ours = project.resources;
  count("LUT", ours.get(ResourceUsage::kLut), "t:LUT[123456]");
  count("CARRY", {}, "t:CARRY4");
  count("FF", project.registerBits, "t:FD*");
  count("SRL", {}, "t:SRL*");
  count("DSP", ours.get(ResourceUsage::kDsp),
        "t:DSP48E1" + (hasBlock ? " t:" + project.hardBlock : ""));
  count("RAM", ours.get(ResourceUsage::kRamBlock), "t:RAMB36E1 t:RAMB18E1");
  text += "\nread_verilog -overwrite -lib -specify +/xilinx/cells_sim.v\n" + report("sta");
  return text;
}
