#include "backend/schedule/drawing.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>

#include "backend/graph/sample_graphs.h"
#include "backend/graph/sample_loops.h"
#include "backend/schedule/round_device_test.h"
#include "backend/schedule/stage_model.h"

namespace schedule {
namespace {

// What graphviz makes of a drawing: the place of each node, or its complaint.
struct Layout {
  std::string fault;
  std::map<std::string, double> left, right;  // of visible nodes
};

Layout laidOut(const std::string& drawing) {
  const auto file = std::filesystem::temp_directory_path() / fmt::format("drawing_{}", getpid());
  std::ofstream(file) << drawing;
  std::FILE* pipe = popen(fmt::format("dot -Tplain '{}' 2>&1", file.string()).c_str(), "r");
  std::string output;
  char buffer[4096];
  while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) output += buffer;
  const int status = pclose(pipe);
  std::filesystem::remove(file);
  Layout layout;
  if (status != 0 || !output.starts_with("graph ")) layout.fault = "dot: " + output;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string kind, name;
    double x = 0, y = 0, width = 0;
    words >> kind >> name >> x >> y >> width;
    if (kind != "node" || name.starts_with("start")) continue;
    layout.left[name] = x - width / 2;
    layout.right[name] = x + width / 2;
  }
  return layout;
}

// Every cycle stands to the right of the one before; the nodes that belong there are there.
void expectColumns(const Graph& graph, const Schedule& schedule, bool isShort) {
  const Layout layout = laidOut(drawingText(graph, schedule, "a \"unit\"", isShort));
  ASSERT_EQ(layout.fault, "");
  std::map<int, double> leftOf, rightOf;
  const auto add = [&](const std::string& name, int cycle) {
    ASSERT_TRUE(layout.left.contains(name)) << name;
    leftOf.try_emplace(cycle, std::numeric_limits<double>::max());
    leftOf[cycle] = std::min(leftOf[cycle], layout.left.at(name));
    rightOf[cycle] = std::max(rightOf[cycle], layout.right.at(name));
  };
  std::size_t drawn = graph.outputs().size();
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const graph::Node& node = graph.nodes()[i];
    const bool passesOn = isWiring(node) && node.op != Op::kInput && node.op != Op::kState;
    const std::string name = fmt::format("n{}", i);
    EXPECT_EQ(layout.left.contains(name), !isShort || !passesOn) << name;
    if (isShort && passesOn) continue;
    ++drawn;
    add(name, schedule.cycleByNode[i]);
  }
  for (std::size_t k = 0; k < graph.outputs().size(); ++k)
    add(fmt::format("out{}", k), schedule.cycleByOutput[k]);
  EXPECT_EQ(layout.left.size(), drawn);
  double before = 0;
  for (const auto& [cycle, left] : leftOf) {
    EXPECT_GT(left, before) << "cycle " << cycle;
    before = rightOf[cycle];
  }
}

TEST(Drawing, HasAColumnForEachCycleOfAnyGraph) {
  for (int seed = 0; seed < 5; ++seed) {
    std::mt19937_64 random(seed);
    Graph graph;
    Builder b(graph);
    graph::buildDrawn(b, random, 30 + 15 * seed, 20);
    const Schedule cycles = scheduled(graph, {.period = {1200}}).schedule;
    for (const bool isShort : {false, true}) expectColumns(graph, cycles, isShort);
  }
  Graph loop;
  Builder b(loop);
  graph::buildCoupledStates(b, 9);
  const Schedule cycles = scheduled(loop, {.period = {2000}}).schedule;
  for (const bool isShort : {false, true}) expectColumns(loop, cycles, isShort);
}

TEST(Drawing, ShowsOperationsWidthsAndScopes) {
  Graph graph;
  Builder b(graph);
  const Signal x = b.input("x", 8), y = b.input("y", 8);
  Signal sum;
  {
    const auto scope = b.scope("outer");
    const auto inner = b.scope("inner box");
    sum = b.name(b.add(x, b.concat({b.slice(y, 0, 4), b.slice(y, 4, 4)})), "total");
  }
  b.output("r", b.bitXor(sum, b.literal(0x5a, 8)));
  ScheduleOptions options{.period = {400}};
  options.latency = 2;
  const Schedule cycles = scheduled(graph, options).schedule;
  const std::string brief = drawingText(graph, cycles, "t", true);
  for (const char* part : {"\"cycle 2\"", "label=\"outer\"", "label=\"inner box\"", "\"add 8\"",
                           "\"x 8\"", "\"r 8\"", "\"xor 8\""})
    EXPECT_THAT(brief, HasSubstr(part));
  EXPECT_THAT(brief, Not(HasSubstr("slice")));
  // Through the wiring: an edge from y to the sum.
  EXPECT_THAT(brief, HasSubstr(fmt::format("n{} -> n{}", y.node.index, sum.node.index)));
  const std::string full = drawingText(graph, cycles, "t", false);
  for (const char* part : {"slice 4", "concat 8", "add 8 total", "8'h5a"})
    EXPECT_THAT(full, HasSubstr(part));
}

}  // namespace
}  // namespace schedule
