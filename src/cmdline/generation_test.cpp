// From the records to files that simulate.

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "cmdline/test_system.h"
#include "vectors/population.h"

namespace cmdline {
namespace {

namespace fs = std::filesystem;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::Not;

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The generator writes into the working folder and prints; a test keeps both to itself.
class Generation : public ::testing::Test {
 protected:
  static std::string run(TestSystem& system) {
    ::testing::internal::CaptureStdout();
    system.generator.setupKILNBlockDic();
    system.tests.componentType = 34;
    system.generator.generate(system.tests);
    return ::testing::internal::GetCapturedStdout();
  }
  static bool simulates(const std::string& folder) {
    return std::system((folder + "/simulate.sh >simulation.log 2>&1").c_str()) == 0;
  }
  WorkingFolder folder;
};

void asksFor(TestSystem& system, std::initializer_list<const char*> inputs,
             std::initializer_list<const char*> outputs, int count = 50) {
  system.spec.inputs = TestSystem::ports(inputs);
  system.spec.outputs = TestSystem::ports(outputs);
  system.tests.randomTests = true;
  system.tests.testCount = count;
  system.tests.errorBounds.assign(outputs.size(), 1.0F);
}

TEST_F(Generation, LeavesRecordDesignBenchAndVectors) {
  TestSystem system;
  asksFor(system, {"a", "b"}, {"q"});
  system.options.commandLine = "words of the run";
  const std::string printed = run(system);
  EXPECT_THAT(printed,
              ::testing::ContainsRegex("^The pipeline depth of the block is [1-9] cycle\\(s\\)\n"));
  EXPECT_THAT(printed, ::testing::EndsWith("Should have generated 50 tests \n"));
  EXPECT_THAT(contentOf("topModel/topModel.vhd"), HasSubstr("words of the run"));
  EXPECT_THAT(contentOf("topModel/topModel.json"), HasSubstr("\"seed\": 50"));
  EXPECT_THAT(contentOf("somefile.xml"), HasSubstr("<block name=\"FPAdd\">"));
  // The bench's settings come behind the record.
  EXPECT_THAT(contentOf("somefile.xml"), Not(HasSubstr("SYNTH_ATB_UNIT")));
  EXPECT_TRUE(simulates("./topModel")) << contentOf("simulation.log");
}

TEST_F(Generation, ServesEveryInterfaceAndLanguage) {
  for (const int interfaceStyle : {0, 1})
    for (const int enableStyle : {0, 1})
      for (const int language : {0, 1}) {
        TestSystem system(25);
        asksFor(system, {"a", "b"}, {"s", "d"});
        system.options.interfaceStyle = interfaceStyle;
        system.spec.enableStyle = enableStyle;
        system.options.language = language;
        run(system);
        const std::string text =
            contentOf(language ? "topModel/topModel.v" : "topModel/topModel.vhd");
        EXPECT_EQ(text.find("xIn_v") != std::string::npos, interfaceStyle == 0);
        EXPECT_TRUE(simulates("./topModel"))
            << interfaceStyle << enableStyle << language << contentOf("simulation.log");
        const std::string bench =
            contentOf(language ? "topModel/topModel_atb.v" : "topModel/topModel_atb.vhd");
        EXPECT_EQ(
            bench.find("en =>") != std::string::npos || bench.find(".en(") != std::string::npos,
            enableStyle == 1)
            << bench;
        fs::remove_all("topModel");
      }
}

TEST_F(Generation, GoesOnWhereTheRecordCannotBeWritten) {
  fs::create_directory("somefile.xml");
  TestSystem system;
  asksFor(system, {"a", "b"}, {"q"}, 0);
  EXPECT_THAT(run(system), ::testing::EndsWith("Should have generated 0 tests \n"));
  EXPECT_TRUE(fs::exists("topModel/topModel.vhd"));
}

TEST_F(Generation, KeepsBoundsAndSubnormals) {
  TestSystem system(25);
  asksFor(system, {"a", "b"}, {"s", "d"});
  system.tests.subnormals = true;
  system.tests.errorBounds = {2.5F, 0.5F};
  run(system);
  const std::string record = contentOf("topModel/topModel.json");
  EXPECT_THAT(record, HasSubstr("\"error_bound_ulp\": [2.5, 0.5]"));
  EXPECT_THAT(record, HasSubstr("\"rounding\": [\"faithful\", \"nearest even\"]"));
  EXPECT_THAT(record, HasSubstr("\"subnormals\": true"));
  EXPECT_TRUE(simulates("./topModel")) << contentOf("simulation.log");
}

// A block of the dictionary has no view for the vectors; those are made here by the unit itself.
TEST_F(Generation, BuildsTheFunctionThatABlockStandsFor) {
  TestSystem system;
  asksFor(system, {"a"}, {"q"});
  system.options.designStyle = 0;
  EXPECT_THAT(run(system), HasSubstr("Run the system generation first\n"));
  EXPECT_THAT(contentOf("topModel/topModel.json"), HasSubstr("\"unit\": \"DMFloatFloor\""));

  TestSystem floor(34);
  asksFor(floor, {"a"}, {"q"});
  fs::rename("topModel", "byBlock");
  run(floor);
  EXPECT_EQ(contentOf("byBlock/topModel.vhd"), contentOf("topModel/topModel.vhd"));
  EXPECT_TRUE(simulates("./topModel")) << contentOf("simulation.log");
}

TEST_F(Generation, RefusesBlocksThatStandForNothing) {
  const auto generate = [](std::initializer_list<const char*> inputs, int type) {
    TestSystem system;
    asksFor(system, inputs, {"q"});
    system.options.designStyle = 0;
    system.generator.setupKILNBlockDic();
    system.tests.componentType = type;
    system.generator.generate(system.tests);
  };
  EXPECT_EXIT(generate({"a", "b"}, 34), ExitedWithCode(255),
              "^topModel: FLOOR_BLOCK has 1 inputs and 1 outputs, 2 and 1 are connected\n$");
  EXPECT_EXIT(generate({"a", "b"}, 15), ExitedWithCode(255), "^topModel: its block has no type\n$");
  EXPECT_EXIT(generate({"a"}, 10), ExitedWithCode(255), "^topModel: CAST_BLOCK stands for no unit");
  EXPECT_FALSE(fs::exists("topModel"));
}

TEST_F(Generation, OfTheSampleDesignSimulates) {
  const kiln::ContextMgr context;
  ::testing::internal::CaptureStdout();
  setupKILNSingleEntity();
  EXPECT_THAT(::testing::internal::GetCapturedStdout(), HasSubstr("The pipeline depth"));
  EXPECT_THAT(contentOf("somefile.xml"), HasSubstr("<block name=\"addBlock\">"));
  EXPECT_THAT(contentOf("someModel/SomeDesign.json"), HasSubstr("\"family\": \"TarnV\""));

  // Its answers are those of the rounding unit, with as many cycles as the record says.
  TestSystem floor(34);
  asksFor(floor, {"a"}, {"q"});
  floor.device = {.family = "Tarn V", .speedGrade = "-6", .part = "7TVQXH3D6G31N8"};
  floor.target.frequency = 200;
  run(floor);
  fs::copy("topModel/topModel_xIn.stm", "someModel/SomeDesign_xIn.stm");
  fs::copy("topModel/topModel_xOut.stm", "someModel/SomeDesign_xOut.stm");
  EXPECT_TRUE(simulates("./someModel")) << contentOf("simulation.log");
}

}  // namespace
}  // namespace cmdline
