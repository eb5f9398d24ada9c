// The classic and the model flow make the same circuit of the same request, and it simulates.

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cstdlib>

#include "program.h"

namespace {

using program::Folder;

// The files of a unit but for the word that chose the flow.
std::map<std::string, std::string> unitFiles(const Folder& folder) {
  std::map<std::string, std::string> files;
  for (const auto& [name, text] : folder.files()) {
    if (!name.ends_with(".vhd") && !name.ends_with(".json")) continue;
    std::string same = text;
    for (std::size_t at; (at = same.find("-kiln ")) != std::string::npos;) same.erase(at, 6);
    files[name] = same;
  }
  return files;
}

class TwoFlows : public testing::TestWithParam<std::tuple<const char*, const char*>> {};

TEST_P(TwoFlows, MakeOneCircuit) {
  const auto& [word, options] = GetParam();
  for (const auto& [wE, wF] : {std::pair{8, 23}, std::pair{5, 10}, std::pair{11, 52}}) {
    const std::string format = fmt::format("{} {}", wE, wF);
    std::string parameters = format;
    // Every choice of the expert forms that changes the circuit.
    if (word == std::string("FPAddExpert")) parameters += wE == 5 ? " 0 1 1" : " 1 1 0";
    if (word == std::string("FPMulExpert"))
      parameters += " " + format + (wE == 8 ? " 11 52 1" : wE == 5 ? " 8 23 0" : " 11 52 0");
    const std::string line = fmt::format("-frequency 300 -testbench 60 -randomTests {} {} {}",
                                         options, word, parameters);
    const Folder classic, model;
    const program::Outcome expected = program::run(classic, line);
    const program::Outcome seen = program::run(model, "-kiln " + line);
    ASSERT_EQ(expected.status, 0) << line << expected.err;
    ASSERT_EQ(seen.status, 0) << line << seen.err;
    EXPECT_EQ(seen.err, expected.err) << line;
    EXPECT_EQ(unitFiles(model), unitFiles(classic)) << line;
    const std::string script =
        fmt::format("{}/topModel/simulate.sh >/dev/null 2>&1", model.path().string());
    EXPECT_EQ(std::system(script.c_str()), 0) << line;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Units, TwoFlows,
    testing::Combine(testing::Values("FPAdd", "FPMul", "FPAddExpert", "FPMulExpert"),
                     testing::Values("-correctRounding", "-error 2", "-subnormals 1",
                                     "-pipelining 0", "-enableHardFP 1",
                                     "-correctRounding -subnormals 1 -target Halvard10")));

}  // namespace
