// What a run leaves beside the design: record, error budgets, log, drawing, gallery.

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <regex>

#include "program.h"

namespace {

using program::Folder;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

// The status of a shell command, and what it prints.
struct Answer {
  int status = -1;
  std::string text;
};
Answer answerOf(const std::string& command) {
  Answer answer;
  std::FILE* pipe = popen(fmt::format("({}) 2>&1", command).c_str(), "r");
  char buffer[4096];
  while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) answer.text += buffer;
  answer.status = pclose(pipe);
  return answer;
}

Answer checked(const std::filesystem::path& record) {
  return answerOf(fmt::format("'{0}/tools/check_record.py' '{0}/docs/report.schema.json' '{1}'",
                              CMDGAUGE_SOURCE, record.string()));
}

std::string fieldOf(const std::string& record, const std::string& name) {
  std::smatch match;
  const std::regex field("\n  \"" + name + "\": (.*?),?\n");
  return std::regex_search(record, match, field) ? match[1].str() : "";
}

TEST(Record, FitsItsSchema) {
  for (const char* line :
       {"-frequency 300 FPAdd 8 23", "-correctRounding -roundType 2 -subnormals 1 FPMul 5 10",
        "-splitOutputPorts -errors 2 1 4 FPFusedAddSub 8 23", "-enableHardFP 1 FPMultAcc 8 23",
        "-noChanValid -lang Verilog -target TarnV MultSchoolbookExpert 8 0 5 1",
        "-pipelining 0 -debug -generateFathomProject FPAddInFPLibYOutFPLib 5 10",
        "-frequency 900 FPAcc 8 23 -20 20 15", "FPAbs 8 23"}) {
    const Folder folder;
    ASSERT_EQ(program::run(folder, line).status, 0) << line;
    const Answer answer = checked(folder.path() / "topModel/topModel.json");
    EXPECT_EQ(answer.status, 0) << line << "\n" << answer.text;
  }
}

TEST(Record, IsRefusedWhereItDoesNotFit) {
  const Folder folder;
  ASSERT_EQ(program::run(folder, "FPAdd 8 23").status, 0);
  const std::string record = folder.files().at("topModel/topModel.json");
  const std::pair<const char*, const char*> faults[] = {{"\"seed\": 0,", ""},
                                                        {"\"lut\": ", "\"lut\": true, \"x\": "},
                                                        {"\"calibrated\"", "\"guessed\""},
                                                        {"\"stated model\"", "\"guessed\""},
                                                        {"\"ulp\": ", "\"ulp\": -"},
                                                        {"\"latency\": [", "\"latency\": [0.5, "}};
  for (const auto& [from, to] : faults) {
    std::string broken = record;
    const std::size_t place = broken.find(from);
    if (place == std::string::npos) continue;  // one of the two kinds of device
    broken.replace(place, std::string(from).size(), to);
    std::ofstream(folder.path() / "broken.json") << broken;
    EXPECT_NE(checked(folder.path() / "broken.json").status, 0) << from;
  }
}

struct BudgetCase {
  const char* line;
  const char* bounds;
  const char* budgets;  // of the record
  std::vector<const char*> comments;
};

const BudgetCase kBudgetCases[] = {
    {"-correctRounding FPAdd 8 23",
     "[0.5]",
     R"([{"name": "error", "bound_ulp": 0.5, "sum_ulp": 0.5, "terms": [{"name": "rounding", "ulp": 0.5}]}])",
     {"Budget in ulp, error: rounding 0.5 = 0.5 of 0.5."}},
    // A directed result is up to one ulp away.
    {"-correctRounding -roundType 1 FPMul 8 23",
     "[1]",
     R"([{"name": "error", "bound_ulp": 1, "sum_ulp": 1, "terms": [{"name": "rounding", "ulp": 1}]}])",
     {"Budget in ulp, error: rounding 1 = 1 of 1."}},
    {"-error 4 FPMul 11 52",
     "[4]",
     R"([{"name": "below", "bound_ulp": 4, "sum_ulp": 3, "terms": [{"name": "corner left out", "ulp": 2}, {"name": "truncation", "ulp": 1}]}, {"name": "above", "bound_ulp": 4, "sum_ulp": 2, "terms": [{"name": "correction", "ulp": 2}]}])",
     {"Budget in ulp, below: corner left out 2 + truncation 1 = 3 of 4.",
      "Budget in ulp, above: correction 2 = 2 of 4."}},
    {"-error 4 FPAddExpert 8 23 1 1 1",
     "[4]",
     R"([{"name": "above", "bound_ulp": 4, "sum_ulp": 4, "terms": [{"name": "alignment", "ulp": 4}]}, {"name": "below", "bound_ulp": 4, "sum_ulp": 3, "terms": [{"name": "ones' complement", "ulp": 2}, {"name": "truncation", "ulp": 1}]}])",
     {}},
    {"-enableHardFP 1 FPMultAdd 8 23",
     "[0.5]",
     R"([{"name": "error", "bound_ulp": 0.5, "sum_ulp": 0.5, "terms": [{"name": "rounding", "ulp": 0.5}]}])",
     {}},
    {"LongAdd 8", "[1]", "[]", {}},
};

TEST(Budgets, StandInRecordAndComments) {
  for (const BudgetCase& row : kBudgetCases) {
    SCOPED_TRACE(row.line);
    const Folder folder;
    ASSERT_EQ(program::run(folder, std::string("-generateCSimulationModel ") + row.line).status, 0);
    auto files = folder.files();
    const std::string& record = files["topModel/topModel.json"];
    EXPECT_EQ(fieldOf(record, "error_bound_ulp"), row.bounds);
    EXPECT_EQ(fieldOf(record, "error_budget"), row.budgets);
    for (const char* comment : row.comments) {
      EXPECT_THAT(files["topModel/topModel.vhd"], HasSubstr(fmt::format("\n-- {}\n", comment)));
      EXPECT_THAT(files["topModel/topModel_model.cpp"],
                  HasSubstr(fmt::format("\n// {}\n", comment)));
    }
  }
}

TEST(Debug, LeavesALogAndADrawing) {
  const Folder folder;
  const auto outcome = program::run(
      folder,
      "-debug -verbose 1 -frequency 300 -target TarnV -part P1 -correctRounding FPMul 8 23");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  auto files = folder.files();
  const std::string& log = files["log.txt"];
  for (const char* part :
       {"device TarnV, speed grade fast, part P1, 300 MHz, period 3333 ps\n",
        "output 0: rounded correctly, mode 0\n",
        "circuit: ", "mapped: ", "schedule: fewest register bits, latency ",
        "cycle 1: ", "Budget in ulp, error: rounding 0.5 = 0.5 of 0.5.\n", "DSPs 2, "})
    EXPECT_THAT(log, HasSubstr(part));
  // The product of 24 by 24 bits is one node before and two behind the mapping.
  EXPECT_THAT(log, testing::ContainsRegex("circuit:[^\n]*\n[^\n]* multiply 1 heap 1\n"));
  EXPECT_THAT(log, testing::ContainsRegex("mapped:[^\n]*\n[^\n]* multiply 2\n"));

  // One time for the longest stage on the screen, in the log, which tells of both forms of the
  // unit, and in the record.
  std::smatch match;
  const std::regex longest("Longest stage ([0-9]+) ps of 3333 ps, ends with ([^\n]*)\n");
  ASSERT_TRUE(std::regex_search(outcome.out, match, longest));
  const std::size_t stage = log.find(match[0].str());
  ASSERT_NE(stage, std::string::npos);
  const std::string record = fieldOf(files["topModel/topModel.json"], "longest_stage");
  EXPECT_THAT(record, HasSubstr(fmt::format("{{\"delay_ps\": {}, \"step\": \"{}\", \"path\": [",
                                            match[1].str(), match[2].str())));
  // What the stage passes, in the order of the times.
  int last = 0, steps = 0;
  const std::regex step(" {2}([0-9]+) ps behind ([^\n]*)\n");
  const std::string path = log.substr(stage, log.find("Longest stage", stage + 1) - stage);
  for (std::sregex_iterator found(path.begin(), path.end(), step), end; found != end; ++found) {
    const int arrival = std::stoi((*found)[1].str());
    EXPECT_GE(arrival, last);
    last = arrival, ++steps;
    EXPECT_THAT(record, HasSubstr(fmt::format("{{\"step\": \"{}\", \"arrival_ps\": {}}}",
                                              (*found)[2].str(), arrival)));
  }
  EXPECT_GT(steps, 1);
  EXPECT_EQ(answerOf(fmt::format("dot -Tsvg -o /dev/null '{}/topModel/topModel.dot'",
                                 folder.path().string()))
                .text,
            "");
}

TEST(Debug, IsSilentUnlessAskedFor) {
  const Folder folder;
  const auto outcome = program::run(folder, "FPAdd 5 10");
  const auto files = folder.files();
  EXPECT_FALSE(files.contains("log.txt"));
  EXPECT_FALSE(files.contains("topModel/topModel.dot"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("Longest")));
  // Without files the log alone is left.
  const Folder none;
  program::run(none, "-debug -noFileGenerate FPAdd 5 10");
  ASSERT_EQ(none.files().size(), 1U);
  EXPECT_EQ(none.files().begin()->first, "log.txt");
}

TEST(Gallery, IsAPageOfDrawingsAndCosts) {
  const Folder folder;
  const std::string place = folder.path().string();
  std::ofstream(folder.path() / "lines") << "# Sums <of> integers\n-frequency 400 LongAdd 32\n";
  const Answer answer =
      answerOf(fmt::format("'{0}/tools/gallery.py' -synthesis -lines '{1}/lines' '{2}' '{1}/page'",
                           CMDGAUGE_SOURCE, place, CMDGAUGE_PROGRAM));
  ASSERT_EQ(answer.status, 0) << answer.text;
  EXPECT_THAT(answer.text, HasSubstr("1/1 -frequency 400 LongAdd 32\n"));
  const std::string page = folder.files().at("page/index.html");
  for (const char* part : {"<h2>Sums &lt;of&gt; integers</h2>", "LongAdd 32</code></h3>", "<svg ",
                           "<td>estimate</td>", "<td>synthesised</td>", "add 32"})
    EXPECT_THAT(page, HasSubstr(part));
  EXPECT_THAT(page, Not(testing::ContainsRegex("(src|href)=")));  // complete without a network
  const auto broken = answerOf(
      fmt::format("echo 'FPAdd 0 0' >'{1}/lines'; '{0}/tools/gallery.py' -lines '{1}/lines' '{2}' "
                  "'{1}/other'",
                  CMDGAUGE_SOURCE, place, CMDGAUGE_PROGRAM));
  EXPECT_NE(broken.status, 0);
  EXPECT_THAT(broken.text, HasSubstr("out of range"));
}

}  // namespace
