#include "catalogue/fetch_unit_operator.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <sstream>

namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;

struct Lookup {
  std::vector<std::string> parameters;
  PortSpecList inputs, outputs;
  TestingOptions testing;
  std::string printed;
};

// Looks an operator up on a line of words parted by blanks.
Lookup lookUp(const std::string& line) {
  std::istringstream text(line);
  std::vector<std::string> words;
  for (std::string word; text >> word;) words.push_back(word);
  std::vector<const char*> pointers;
  for (const std::string& word : words) pointers.push_back(word.c_str());
  const Options options{pointers.data(), pointers.data() + pointers.size()};
  Lookup found;
  testing::internal::CaptureStdout();
  found.parameters = fetchUnitOperator(options, found.inputs, found.outputs, found.testing);
  found.printed = testing::internal::GetCapturedStdout();
  return found;
}

// "a:fp(8,23)32": name, format and total width.
std::string describe(const PortSpecList& ports) {
  std::string text;
  for (const PortSpec& port : ports) {
    if (!text.empty()) text += ' ';
    if (const kiln::FixedPoint* fixed = port.type.as_fixed_point())
      text += fmt::format("{}:{}({},{})", port.name, fixed->sign() ? "s" : "u", fixed->width(),
                          fixed->fraction());
    else
      text += fmt::format("{}:fp({},{}){}", port.name, port.type.as_floating_point()->exp,
                          port.type.as_floating_point()->frac, port.type.width());
    if (port.type.as_fp_lib()) text += "lib";
  }
  return text;
}

struct BindCase {
  const char* line;
  componentType type;
  const char* inputs;
  const char* outputs;
};

const BindCase kBindCases[] = {
    {"-kiln FPAdd 8 23", 15, "a:fp(8,23)32 b:fp(8,23)32", "q:fp(8,23)32"},
    {"-frequency 300 FPSinCosPIX 5 10 -kiln", 62, "a:fp(5,10)16", "s:fp(5,10)16 c:fp(5,10)16"},
    {"-kiln FPMulExpert 8 23 5 10 11 52 1", 18, "a:fp(8,23)32 b:fp(5,10)16", "q:fp(11,52)64"},
    {"-kiln FPFusedMultifunction 4 7", 89,
     "a:fp(4,7)12 b:fp(4,7)12 c:fp(4,7)12 s:u(2,0) sOp:u(4,0)", "q:fp(4,7)12 qfxp:u(1,0)"},
    {"-kiln FPLdExp 8 23 6", 82, "a:fp(8,23)32 b:s(6,0)", "q:fp(8,23)32"},
    {"-kiln FXPToFP 16 -3 1 8 23", 10, "a:s(16,-3)", "q:fp(8,23)32"},
    {"-kiln FXPToFP 16 4 2 8 23", 10, "a:u(16,4)", "q:fp(8,23)32"},
    {"-kiln FPToFXP 8 23 32 16 1 0", 11, "a:fp(8,23)32", "q:s(32,16)"},
    {"-kiln FPToFXP 8 23 32 16 1 -1", 12, "a:fp(8,23)32 rndSel:u(1,0)", "q:s(32,16)"},
    {"-kiln FPCompare 8 23 -2", 50, "a:fp(8,23)32 b:fp(8,23)32", "q:u(1,0)"},
    {"-kiln FPCompare 8 23 3", 55, "a:fp(8,23)32 b:fp(8,23)32", "q:u(1,0)"},
    {"-kiln FPCompareFused 8 23", 56, "a:fp(8,23)32 b:fp(8,23)32 s:u(3,0)", "q:u(1,0)"},
    {"-kiln FPDiv 8 23 0", 20, "a:fp(8,23)32 b:fp(8,23)32", "q:fp(8,23)32"},
    {"-kiln FPDiv 8 23 1", 21, "a:fp(8,23)32 b:fp(8,23)32", "q:fp(8,23)32"},
    // Widths that no circuit has are not the lookup's business.
    {"-kiln FPAbs 8", 41, "a:fp(8,0)9", "q:fp(8,0)9"},
    {"-kiln FPAbs", 41, "a:fp(0,0)1", "q:fp(0,0)1"},
    {"FPAbs 8x -kiln", 41, "a:fp(8,0)9", "q:fp(8,0)9"},
    {"-kiln FPCompare 8 23", 52, "a:fp(8,23)32 b:fp(8,23)32", "q:u(1,0)"},
    // The row that stands first in the catalogue ends the search, with whatever came before.
    {"-kiln FPAdd 5 10 FPCompare 8 23 0", 52, "a:fp(8,23)32 b:fp(8,23)32", "q:u(1,0)"},
    {"-kiln FPAbs 5 10 FPDiv 8 23 1", 21, "a:fp(8,23)32 b:fp(8,23)32", "q:fp(8,23)32"},
};

TEST(FetchUnitOperator, GivesPortsAndType) {
  for (const BindCase& row : kBindCases) {
    const Lookup found = lookUp(row.line);
    EXPECT_EQ(found.testing.componentType, row.type) << row.line;
    EXPECT_EQ(describe(found.inputs), row.inputs) << row.line;
    EXPECT_EQ(describe(found.outputs), row.outputs) << row.line;
  }
}

TEST(FetchUnitOperator, ReturnsAndPrintsTheParameters) {
  const Lookup conversion = lookUp("FPToFXP 8 23 32 16x y -1 -kiln 7");
  EXPECT_THAT(conversion.parameters, ElementsAre("8", "23", "32", "16x", "y", "-1"));
  EXPECT_EQ(conversion.printed, "Detected component FPToFXP with param list: 8 23 32 16 0 -1 \n");
  const Lookup cut = lookUp("-kiln FPAbs 8");
  EXPECT_THAT(cut.parameters, ElementsAre("8", "0"));
  EXPECT_EQ(cut.printed, "Detected component FPAbs with param list: 8 0 \n");
  EXPECT_EQ(lookUp("FPAbs 2147483647 2147483647").inputs[0].type.as_floating_point()->frac,
            2147483647);
}

TEST(FetchUnitOperator, AsksForOneNameInItsSpelling) {
  const char* kMessage = "Assertion \"opCount==1 \\|\\| exception\" failed: cmdGauge:";
  for (const char* line :
       {"-kiln", "-kiln FPSinCos 8 23", "-kiln FPSinCosPiX 8 23", "-kiln FPFusedMultiFunction 8 23",
        "-kiln fpadd 8 23", "-kiln FXPSqrt 8 0 8 0", "-kiln FPMultAcc 8 23 1 1",
        "-kiln FPAdd 8 23 FPMul", "-kiln FPMul -name FPAdd 8 23"})
    EXPECT_EXIT(lookUp(line), ExitedWithCode(255), kMessage) << line;
}

TEST(FetchUnitOperator, RefusesAChoiceThatDoesNotExist) {
  for (const char* type : {"-3", "4", "99999"})
    EXPECT_EXIT(lookUp(fmt::format("-kiln FPCompare 8 23 {}", type)), ExitedWithCode(255),
                "Assertion \"compareType>=-2 && compareType<=3\" failed: cmdGauge:.*: "
                "Compare type unsupported. check help for details");
  for (const char* version : {"-1", "2"})
    EXPECT_EXIT(lookUp(fmt::format("-kiln FPDiv 8 23 {}", version)), ExitedWithCode(255),
                "Assertion \"architectureType>=0 && architectureType<=1\" failed: cmdGauge:.*: "
                "Architecture type for div is one of 0 or 1. check help for details");
}

TEST(ExceptionHandler, ReadsTheLastParameter) {
  for (int type = -2; type <= 3; ++type)
    EXPECT_EQ(exceptionHandler("FPCompare", {"8", "23", std::to_string(type)}), 52 + type);
  EXPECT_EQ(exceptionHandler("FPDiv", {"8", "23", "x"}), 20);
  EXPECT_EQ(exceptionHandler("FPToFXP", {"8", "23", "32", "16", "1", "-2"}), 11);
  EXPECT_EQ(exceptionHandler("FPToFXP", {"8", "23", "32", "16", "1", "-1"}), 12);
  EXPECT_EQ(exceptionHandler("FPAdd", {"8", "23"}), 0);
  EXPECT_EQ(exceptionHandler("FPDivSqrt", {"8", "23"}), 0);
}

TEST(ExceptionHandler, CountsTheParameters) {
  const std::vector<std::string> two = {"8", "23"};
  EXPECT_EXIT(exceptionHandler("FPCompare", two), ExitedWithCode(255), "\"v.size\\(\\)==3\"");
  EXPECT_EXIT(exceptionHandler("FPDiv", two), ExitedWithCode(255), "\"v.size\\(\\)==3\"");
  EXPECT_EXIT(exceptionHandler("FPToFXP", two), ExitedWithCode(255), "\"v.size\\(\\)==6\"");
}

}  // namespace
