#include "backend/software/software_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "backend/graph/evaluator.h"
#include "backend/graph/sample_graphs.h"
#include "backend/graph/sample_states.h"

namespace software {
namespace {

// Compiles the model of a graph with a main that reads all input words and prints all output words,
// in hexadecimal, and compares what it prints with graph evaluation.
class CompiledModel : public testing::Test {
 protected:
  void SetUp() override {
    folder = std::filesystem::temp_directory_path() / fmt::format("model_{}", getpid());
    std::filesystem::create_directories(folder);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  void write(const std::string& file, const std::string& text) {
    std::ofstream(folder / file) << text;
  }
  int run(const std::string& command) {
    return std::system(fmt::format("cd {} && {}", folder.string(), command).c_str());
  }

  // `inputs` and `outputs`: the fields of the two structs, in order.
  void compile(const graph::Graph& graph, const std::string& name,
               const std::vector<std::string>& inputs, const std::vector<std::string>& outputs) {
    const bool hasStates = !graph.states().empty();
    const SoftwareModel model = softwareModel(graph, name, 5, {"a test\nin two lines \\", ""});
    write(name + "_model.h", model.header);
    write(name + "_model.cpp", model.source);
    std::string main = fmt::format(
        "#include <iostream>\n#include \"{0}_model.h\"\n"
        "bool read(std::uint64_t& x) {{ return bool(std::cin >> x); }}\n"
        "template <typename T> bool read(T& x) {{ for (auto& w : x) std::cin >> w; return true; "
        "}}\n"
        "void show(const std::uint64_t& x) {{ std::cout << x << ' '; }}\n"
        "template <typename T> void show(const T& x) {{ for (auto& w : x) show(w); }}\n"
        "static_assert({0}_latency == 5, \"\");\n"
        "int main() {{\n  std::cin >> std::hex; std::cout << std::hex;\n  {0}_inputs in;\n{1}"
        "  for (;;) {{\n",
        name, hasStates ? fmt::format("  {}_state state;\n", name) : "");
    for (const std::string& field : inputs)
      main += fmt::format("    if (!read(in.{}) || !std::cin) return 0;\n", field);
    main +=
        fmt::format("    const {0}_outputs out = {0}(in{1});\n", name, hasStates ? ", state" : "");
    for (const std::string& field : outputs) main += fmt::format("    show(out.{});\n", field);
    write("main.cpp", main + "    std::cout << '\\n';\n  }\n}\n");
    ASSERT_EQ(run(fmt::format("g++ -std=c++17 -pedantic -Wall -Wextra -Werror -fsanitize=undefined "
                              "-fno-sanitize-recover=all main.cpp {}_model.cpp -o model",
                              name)),
              0);
  }

  void compare(const graph::Graph& graph, int rows) {
    std::mt19937_64 random(rows);
    graph::Evaluator evaluator(graph);
    const auto wordsOf = [](const util::MPZ& value, int width) {
      std::string text;
      for (int low = 0; low < width; low += 64)
        text += (value >> static_cast<unsigned long>(low)).lowBits(64).toText(16) + " ";
      return text;
    };
    std::string stimuli, expected;
    for (int row = 0; row < rows; ++row) {
      std::vector<util::MPZ> patterns;
      for (const graph::Port& port : graph.inputs()) {
        patterns.push_back(graph::drawPattern(random, port.signal.width));
        // Bits above the port are not the model's concern.
        const auto noise = static_cast<unsigned long>(random()) << (port.signal.width % 64);
        const bool hasRoom = port.signal.width % 64 != 0;
        const util::MPZ above = util::MPZ(noise) << (port.signal.width / 64 * 64u);
        stimuli += wordsOf(hasRoom ? patterns.back() | above : patterns.back(), port.signal.width);
      }
      const std::vector<util::MPZ> results = evaluator(patterns);
      evaluator.clock();
      for (std::size_t i = 0; i < results.size(); ++i)
        expected += wordsOf(results[i], graph.outputs()[i].signal.width);
      stimuli += "\n", expected += "\n";
    }
    write("in.txt", stimuli);
    ASSERT_EQ(run("./model < in.txt > out.txt"), 0);
    std::ostringstream shown;
    shown << std::ifstream(folder / "out.txt").rdbuf();
    EXPECT_TRUE(shown.str() == expected) << firstDifference(graph, shown.str(), expected);
  }

  static std::string firstDifference(const graph::Graph& graph, const std::string& shown,
                                     const std::string& expected) {
    std::istringstream left(shown), right(expected);
    std::string a, b;
    for (int row = 0;; ++row)
      for (const graph::Port& port : graph.outputs())
        for (int low = 0; low < port.signal.width; low += 64)
          if (!(left >> a) || !(right >> b) || a != b)
            return fmt::format("row {}, {}: {}, expected {}", row, port.name, a, b);
  }

  static std::vector<std::string> namesOf(const std::vector<graph::Port>& ports) {
    std::vector<std::string> names;
    for (const graph::Port& port : ports) names.push_back(port.name);
    return names;
  }

  std::filesystem::path folder;
};

TEST_F(CompiledModel, ComputesEveryOperation) {
  graph::Graph graph;
  graph::Builder builder(graph);
  graph::buildEveryOperation(builder, {1, 2, 31, 32, 33, 63, 64, 65, 128, 200});
  compile(graph, "operations", namesOf(graph.inputs()), namesOf(graph.outputs()));
  compare(graph, 500);
}

TEST_F(CompiledModel, ComputesDrawnGraphs) {
  for (const int widest : {20, 90}) {
    std::mt19937_64 random(widest);
    graph::Graph graph;
    graph::Builder builder(graph);
    graph::buildDrawn(builder, random, 250, widest);
    compile(graph, "drawn", namesOf(graph.inputs()), namesOf(graph.outputs()));
    compare(graph, 300);
  }
}

TEST_F(CompiledModel, AdvancesStates) {
  graph::Graph graph;
  graph::Builder builder(graph);
  const graph::Signal go = builder.input("go", 1);
  graph::buildStates(builder, go);
  // Two of one name, one that goes to a constant, one that nothing reads.
  const graph::Signal a = builder.name(builder.state(100, -2), "state");
  const graph::Signal b = builder.name(builder.state(100, 77), "state");
  const graph::Signal once = builder.state(64, -1), unread = builder.state(3, 5);
  builder.setNext(a, b);
  builder.setNext(b, a);
  builder.setNext(once, builder.literal(12345, 64));
  builder.setNext(unread, builder.literal(1, 3));
  builder.output("a", a);
  builder.output("once", once);
  compile(graph, "states", namesOf(graph.inputs()), namesOf(graph.outputs()));
  compare(graph, 2000);
}

TEST_F(CompiledModel, TakesTablesAndNamesAsTheyCome) {
  graph::Graph graph;
  graph::Builder b(graph);
  const graph::Signal x = b.input("class", 3), y = b.input("2__x", 70), z = b.input("unused", 4);
  std::vector<graph::Signal> narrow, wide;
  for (int i = 0; i < 7; ++i) narrow.push_back(b.literal(i * 37, 9));
  for (int i = 0; i < 5; ++i) wide.push_back(b.literal(util::MPZ::powerOfTwo(20u * i), 90));
  b.output("A", b.name(b.pick(x, narrow), "operator"));
  b.output("a", b.pick(y, wide));
  b.output("a_", b.lut(x, util::MPZ::allOnes(777), 100));
  b.output("constant", b.literal(-1, 66));
  b.input("in", z.width);
  compile(graph, "topModel", {"class_2", "n2_x", "unused", "in"}, {"A", "a", "a_2", "constant"});
  compare(graph, 100);
}

}  // namespace
}  // namespace software
