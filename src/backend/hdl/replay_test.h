#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "backend/device/families.h"
#include "backend/graph/evaluator.h"
#include "backend/graph/sample_graphs.h"
#include "backend/hdl/emission.h"

namespace hdl {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Tests of texts in both languages: a file has its own of these.
using LanguageTest = testing::TestWithParam<LANGUAGE>;
inline const auto kBothLanguages = testing::Values(LANGUAGE_VHDL, LANGUAGE_VERILOG);
inline std::string languageName(const testing::TestParamInfo<LANGUAGE>& info) {
  return info.param == LANGUAGE_VHDL ? "Vhdl" : "Verilog";
}

inline void flip(std::string& bits, std::size_t index) {
  bits[index] = bits[index] == '0' ? '1' : '0';
}

struct Outcome {
  int status = 0;
  std::string output, lastLine;
};

// What a command prints, on both streams, and its status.
inline Outcome runCommand(const std::string& command) {
  Outcome outcome;
  FILE* pipe = popen(fmt::format("({}) 2>&1", command).c_str(), "r");
  char buffer[4096];
  while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) {
    outcome.output += buffer;
    outcome.lastLine = buffer;
    while (outcome.lastLine.ends_with("\n")) outcome.lastLine.pop_back();
  }
  const int status = pclose(pipe);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

// A unit with a schedule by logic depth, its files in a folder of its own, and vectors from graph
// evaluation, which no printed text has a part in.
class ReplayedUnit {
 public:
  using Row = std::vector<std::string>;  // columns of a vector file

  explicit ReplayedUnit(const std::string& name) : builder(graph), name(name) {
    folder = std::filesystem::temp_directory_path() / fmt::format("hdl {} {}", getpid(), name);
    std::filesystem::create_directories(folder);
  }
  ~ReplayedUnit() { std::filesystem::remove_all(folder); }
  ReplayedUnit(const ReplayedUnit&) = delete;

  // Once on the outputs, or once for each of `parts` data outputs.
  void addChannelAndValid(std::size_t parts = 0) {
    valid = builder.input("xIn_v", 1, /*isControl=*/true);
    channel = builder.input("xIn_c", 8, /*isControl=*/true);
    for (std::size_t i = 0; i < std::max<std::size_t>(parts, 1); ++i) {
      const std::string number = parts > 0 ? std::to_string(i) : "";
      builder.output("xOut" + number + "_v", valid);
      builder.output("xOut" + number + "_c", channel);
    }
    controls = 2 * std::max<std::size_t>(parts, 1);
  }

  // Spreads the nodes over cycles 0 to `latency` by their depth.
  void scheduleBy(int latency) {
    std::vector<int> depth(graph.size(), 0);
    int deepest = 1;
    for (std::size_t i = 0; i < graph.size(); ++i) {
      const graph::Node& node = graph.nodes()[i];
      for (const graph::NodeId operand : graph.operands(node))
        depth[i] =
            std::max(depth[i], depth[operand.index] + (graph::traitsOf(node.op).wiring ? 0 : 1));
      deepest = std::max(deepest, depth[i]);
    }
    schedule.cycleByNode.clear();
    for (const int steps : depth) schedule.cycleByNode.push_back(steps * latency / deepest);
    schedule.cycleByOutput.assign(graph.outputs().size(), latency);
    chooseSettings();
  }

  // By the scheduler, for units with loops; split outputs each as early as they can.
  void scheduleFor(int period, bool isSplit = false, std::optional<int> latency = {}) {
    schedule::ScheduleOptions options{.period = {period}, .latency = latency};
    if (period == 0) options.strategy = schedule::Strategy::kCombinational;
    for (std::size_t i = 0; isSplit && i < graph.outputs().size(); ++i)
      options.outputGroups.push_back(static_cast<int>(i < controls ? i / 2 : i - controls));
    const device::Device& device = *device::deviceFactory.GetDevice("TarnV", "", "fast", "", "");
    schedule = schedule::scheduleGraph(graph, device, options)->schedule;
    chooseSettings();
    if (isSplit)
      settings.splitLatencies.assign(
          schedule.cycleByOutput.begin() + static_cast<std::ptrdiff_t>(controls),
          schedule.cycleByOutput.end());
  }

  Design design() {
    return {.graph = &graph,
            .schedule = &schedule,
            .folder = folder.string(),
            .name = name,
            .entity = name,
            .header = {"a test"},
            .dontCareOnReset = dontCareOnReset,
            .hasEnable = hasEnable};
  }

  void drawVectors(int count, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    graph::Evaluator evaluator(graph);
    std::vector<util::MPZ> patterns;
    for (int i = 0; i < settings.latency; ++i)
      responses.push_back(rowOf(graph.outputs(), std::vector<util::MPZ>(graph.outputs().size())));
    for (int i = 0; i < count; ++i) {
      patterns.clear();
      for (const graph::Port& port : graph.inputs())
        patterns.push_back(graph::drawPattern(random, port.signal.width));
      if (valid) patterns[0] = util::MPZ(1), patterns[1] = util::MPZ(i % 256);
      stimuli.push_back(rowOf(graph.inputs(), patterns));
      responses.push_back(rowOf(graph.outputs(), evaluator(patterns)));
    }
    patterns.assign(graph.inputs().size(), util::MPZ());
    if (valid) patterns[1] = util::MPZ(1);
    for (int i = 0; i < settings.latency; ++i) stimuli.push_back(rowOf(graph.inputs(), patterns));
  }

  // Rows as the unit's delay gives them: what a row puts in comes out of each port after as many
  // rows with enable as the port has cycles, and the head stays while the enable is low. `count`
  // valid rows, as many more as the longest output takes; stalls are drawn from the first row on.
  void drawDelayedVectors(int count, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    graph::Evaluator evaluator(graph);
    const std::size_t ports = graph.outputs().size();
    const bool isSplit = !settings.splitLatencies.empty();
    std::vector<std::deque<std::string>> delays(ports);
    const Row zeros = rowOf(graph.outputs(), std::vector<util::MPZ>(ports));
    for (std::size_t port = 0; port < ports; ++port)
      delays[port].assign(static_cast<std::size_t>(schedule.cycleByOutput[port]), zeros[port]);
    splitResponses.assign(settings.splitLatencies.size(), {});
    for (int advanced = 0; advanced < count + schedule.latency();) {
      const bool advances = !hasEnable || random() % 4 != 0;
      std::vector<util::MPZ> patterns;
      for (const graph::Port& port : graph.inputs())
        patterns.push_back(graph::drawPattern(random, port.signal.width));
      if (valid) patterns[0] = util::MPZ(advanced < count && random() % 8 != 0);
      if (valid) patterns[1] = util::MPZ(static_cast<int>(stimuli.size() % 256));
      const Row results = rowOf(graph.outputs(), evaluator(patterns));
      if (advances) evaluator.clock();
      Row shown;
      for (std::size_t port = 0; port < ports; ++port) {
        delays[port].push_back(results[port]);
        shown.push_back(delays[port].front());
        advances ? delays[port].pop_front() : delays[port].pop_back();
      }
      stimuli.push_back(rowOf(graph.inputs(), patterns));
      if (hasEnable) stimuli.back().push_back(advances ? "1" : "0");
      for (std::size_t i = 0; i < splitResponses.size(); ++i) {
        Row row;
        if (valid) row = {shown[2 * i], shown[2 * i + 1]};
        row.push_back(shown[controls + i]);
        splitResponses[i].push_back(row);
      }
      if (!isSplit) responses.push_back(shown);
      advanced += advances;
    }
  }
  // Rows of a response file that a bench compares.
  long comparedRows() const {
    const std::vector<Row>& rows = splitResponses.empty() ? responses : splitResponses[0];
    if (valid) return std::ranges::count_if(rows, [](const Row& row) { return row[0] == "1"; });
    const int skipped =
        settings.splitLatencies.empty() ? settings.latency : settings.splitLatencies[0];
    int advanced = 0;
    return std::ranges::count_if(stimuli, [&](const Row& row) {
      const bool isCompared = advanced >= skipped;
      advanced += !hasEnable || row.back() == "1";
      return isCompared;
    });
  }

  std::string verdict(long mismatches = 0) const {
    return fmt::format("{} rows compared, {} mismatches", comparedRows(), mismatches);
  }

  void write(const std::string& file, const std::string& text) {
    std::ofstream(folder / file) << text;
  }
  std::string read(const std::string& file) {
    std::ostringstream text;
    text << std::ifstream(folder / file).rdbuf();
    return text.str();
  }
  void writeVectors() {
    writeRows("In", stimuli);
    if (settings.splitLatencies.empty()) writeRows("Out", responses);
    for (std::size_t i = 0; i < splitResponses.size(); ++i)
      writeRows("Out" + std::to_string(i), splitResponses[i]);
  }
  void writeTexts(LANGUAGE language) {
    const char* end = language == LANGUAGE_VHDL ? "vhd" : "v";
    write(fmt::format("{}.{}", name, end), designText(design(), language));
    write(fmt::format("{}_atb.{}", name, end), benchText(design(), settings, language));
    write("simulate.sh", simulationScript(design(), language));
  }
  // Of a shell command in the unit's folder.
  Outcome inFolder(const std::string& command) const {
    return runCommand(fmt::format("cd '{}' && {}", folder.string(), command));
  }
  // Warnings of the strictest lint.
  std::string lint() {
    writeTexts(LANGUAGE_VERILOG);
    return inFolder(fmt::format("verilator --lint-only -Wall {}.v", name)).output;
  }
  // The unit in Verilog, read and given to further commands of yosys.
  Outcome yosys(const std::string& commands) {
    writeTexts(LANGUAGE_VERILOG);
    return inFolder(fmt::format("yosys -q -p 'read_verilog {}.v; {}'", name, commands));
  }
  // What analysis and synthesis of the unit in VHDL complain of.
  std::string vhdlComplaints() {
    writeTexts(LANGUAGE_VHDL);
    const Outcome made =
        inFolder(fmt::format("ghdl -a --std=08 {0}.vhd && ghdl --synth --std=08 {0}", name));
    const bool isClean = made.status == 0 && made.output.find("warning") == std::string::npos &&
                         made.output.find("latch") == std::string::npos;
    return isClean ? "" : made.output;
  }
  Outcome simulate() { return runCommand(fmt::format("sh '{}/simulate.sh'", folder.string())); }
  // Everything written anew, then simulated.
  Outcome replay(LANGUAGE language) {
    writeVectors();
    writeTexts(language);
    return simulate();
  }
  void expectReplay(LANGUAGE language) {
    const Outcome outcome = replay(language);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, verdict() + "\n");
  }

  graph::Graph graph;
  graph::Builder builder;
  schedule::Schedule schedule;
  BenchSettings settings;
  std::string name;
  std::filesystem::path folder;
  bool dontCareOnReset = false;
  bool hasEnable = false;
  std::vector<Row> stimuli, responses;
  std::vector<std::vector<Row>> splitResponses;  // of each data output, in place of `responses`
  graph::Signal valid, channel;

 private:
  void chooseSettings() {
    settings.latency = schedule.latency();
    settings.hasChannelValid = static_cast<bool>(valid);
    settings.alternatives.assign(graph.outputs().size() - controls, 1);
  }
  void writeRows(const std::string& end, const std::vector<Row>& rows) {
    std::string text;
    for (const Row& row : rows) {
      for (const std::string& column : row) text += fmt::format(" {} ", column);
      text += "\n";
    }
    write(fmt::format("{}_x{}.stm", name, end), text);
  }
  static Row rowOf(const std::vector<graph::Port>& ports, const std::vector<util::MPZ>& patterns) {
    Row row;
    for (std::size_t i = 0; i < ports.size(); ++i) {
      const std::string digits = patterns[i].toText(2);
      row.push_back(
          std::string(static_cast<std::size_t>(ports[i].signal.width) - digits.size(), '0')
              .append(digits));
    }
    return row;
  }

  std::size_t controls = 0;  // output ports of valid and channel
};

}  // namespace hdl
