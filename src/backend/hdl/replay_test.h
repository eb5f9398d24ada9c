#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "backend/graph/evaluator.h"
#include "backend/graph/sample_graphs.h"
#include "backend/hdl/emission.h"

namespace hdl {

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

  void addChannelAndValid() {
    valid = builder.input("xIn_v", 1, /*isControl=*/true);
    channel = builder.input("xIn_c", 8, /*isControl=*/true);
    builder.output("xOut_v", valid);
    builder.output("xOut_c", channel);
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
    settings.latency = latency;
    settings.hasChannelValid = static_cast<bool>(valid);
    settings.alternatives.assign(graph.outputs().size() - (valid ? 2 : 0), 1);
  }

  Design design() {
    return {.graph = &graph,
            .schedule = &schedule,
            .folder = folder.string(),
            .name = name,
            .entity = name,
            .header = {"a test"},
            .dontCareOnReset = dontCareOnReset};
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

  void write(const std::string& file, const std::string& text) {
    std::ofstream(folder / file) << text;
  }
  std::string read(const std::string& file) {
    std::ostringstream text;
    text << std::ifstream(folder / file).rdbuf();
    return text.str();
  }
  void writeVectors() {
    for (const auto& [rows, end] : {std::pair(&stimuli, "In"), std::pair(&responses, "Out")}) {
      std::string text;
      for (const Row& row : *rows) {
        for (const std::string& column : row) text += fmt::format(" {} ", column);
        text += "\n";
      }
      write(fmt::format("{}_x{}.stm", name, end), text);
    }
  }
  void writeTexts(LANGUAGE language) {
    const char* end = language == LANGUAGE_VHDL ? "vhd" : "v";
    write(fmt::format("{}.{}", name, end), designText(design(), language));
    write(fmt::format("{}_atb.{}", name, end), benchText(design(), settings, language));
    write("simulate.sh", simulationScript(design(), language));
  }
  Outcome simulate() { return runCommand(fmt::format("sh '{}/simulate.sh'", folder.string())); }
  // Everything written anew, then simulated.
  Outcome replay(LANGUAGE language) {
    writeVectors();
    writeTexts(language);
    return simulate();
  }

  graph::Graph graph;
  graph::Builder builder;
  schedule::Schedule schedule;
  BenchSettings settings;
  std::string name;
  std::filesystem::path folder;
  bool dontCareOnReset = false;
  std::vector<Row> stimuli, responses;

 private:
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

  graph::Signal valid, channel;
};

}  // namespace hdl
