#include "operators/operator_row.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cstring>
#include <set>

#include "util/strings.h"

namespace operators {
namespace {

using testing::ElementsAreArray;

std::vector<const char*> split(std::string& line) {
  std::vector<const char*> words;
  for (char* word = std::strtok(line.data(), " "); word; word = std::strtok(nullptr, " "))
    words.push_back(word);
  return words;
}

// "a:ieee(8,23) b:fixed(4,0,1)"
std::string text(const PortSpecList& ports) {
  std::string all;
  for (const PortSpec& port : ports) {
    if (!all.empty()) all += ' ';
    if (const kiln::FixedPoint* fixed = port.type.as_fixed_point())
      all += fmt::format("{}:fixed({},{},{})", port.name, fixed->width(), fixed->fraction(),
                         static_cast<int>(fixed->sign()));
    else if (const kiln::FloatingPoint* lib = port.type.as_fp_lib())
      all += fmt::format("{}:lib({},{})", port.name, lib->exp, lib->frac);
    else if (const kiln::FloatingPoint* ieee = port.type.as_floating_point())
      all += fmt::format("{}:ieee({},{})", port.name, ieee->exp, ieee->frac);
  }
  return all;
}

struct RowCase {
  const char* name;
  const char* line;  // the operator and its words
  const char* in;
  const char* out;
  std::vector<std::int64_t> variant;
  const char* component;
  const char* method;
  componentType type;
  const char* unit;
};

const RowCase kCases[] = {
    {"Sum",
     "FPAdd 8 23",
     "a:ieee(8,23) b:ieee(8,23)",
     "q:ieee(8,23)",
     {0, 0},
     "FPAdd",
     "single path",
     15,
     "CFloatAdd"},
    {"SumInAnyCase",
     "fpADD 5 10",
     "a:ieee(5,10) b:ieee(5,10)",
     "q:ieee(5,10)",
     {0, 0},
     "FPAdd",
     "single path",
     15,
     "CFloatAdd"},
    {"SumOfLibX",
     "FPAddInFPLibX 8 23",
     "a:lib(8,23) b:ieee(8,23)",
     "q:ieee(8,23)",
     {0, 0},
     "FPAdd",
     "single path",
     15,
     "CFloatAdd"},
    {"DualSumLibYOut",
     "FPAddDualPathInFPLibYOutFPLib 8 23",
     "a:ieee(8,23) b:lib(8,23)",
     "q:lib(8,23)",
     {0, 1},
     "FPAdd",
     "dual path",
     15,
     "CFloatAdd"},
    {"DifferenceLibOut",
     "FPSubInFPLibOutFPLib 11 52",
     "a:lib(11,52) b:lib(11,52)",
     "q:lib(11,52)",
     {1, 0},
     "FPSub",
     "single path",
     15,
     "CFloatAdd"},
    {"DualDifference",
     "FPSubDualPathInFPLib 8 23",
     "a:lib(8,23) b:lib(8,23)",
     "q:ieee(8,23)",
     {1, 1},
     "FPSub",
     "dual path",
     15,
     "CFloatAdd"},
    {"ExpertSumTiesAway",
     "FPAddExpert 8 23 0 1 0",
     "a:ieee(8,23) b:ieee(8,23)",
     "q:ieee(8,23)",
     {0, 1, 1, 0},
     "FPAdd",
     "single path",
     15,
     "CFloatAdd"},
    {"ExpertDifferenceDegraded",
     "FPSubExpert 8 23 1 0 1",
     "a:ieee(8,23) b:ieee(8,23)",
     "q:ieee(8,23)",
     {1, 0, 0, 1},
     "FPSub",
     "single path",
     15,
     "CFloatAdd"},
    {"SumOrDifference",
     "FPAddSub 8 23",
     "a:ieee(8,23) b:ieee(8,23) opSel:fixed(1,0,0)",
     "q:ieee(8,23)",
     {0, 0},
     "FPAddSub",
     "single path",
     24,
     "CFloatAddSub"},
    {"ExpertSumOrDifference",
     "FPAddSubExpert 8 23 1 1 0",
     "a:ieee(8,23) b:ieee(8,23) s:fixed(1,0,0)",
     "q:ieee(8,23)",
     {0, 1, 0, 0},
     "FPAddSub",
     "single path",
     24,
     "CFloatAddSub"},
    {"SumAndDifference",
     "FPFusedAddSub 8 23",
     "a:ieee(8,23) b:ieee(8,23)",
     "q:ieee(8,23) s:ieee(8,23)",
     {},
     "FPFusedAddSub",
     "single path",
     25,
     "DMFloatFusedAddSub"},
    {"Magnitude", "FPAbs 2 1", "a:ieee(2,1)", "q:ieee(2,1)", {}, "FPAbs", "", 41, "CFloatAbs"},
    {"Product",
     "FPMul 8 23",
     "a:ieee(8,23) b:ieee(8,23)",
     "q:ieee(8,23)",
     {},
     "FPMul",
     "",
     17,
     "CFloatMult"},
    {"MixedProduct",
     "FPMulExpert 5 10 8 23 11 52 0",
     "a:ieee(5,10) b:ieee(8,23)",
     "q:ieee(11,52)",
     {0, 0, 1, 0},
     "FPMul",
     "",
     18,
     "CFloatMult"},
    {"ProductLibOut",
     "FPMulOutFPLib 8 23",
     "a:ieee(8,23) b:ieee(8,23)",
     "q:lib(8,23)",
     {},
     "FPMul",
     "",
     17,
     "CFloatMult"},
    {"SignedShift",
     "RightShiftNoSticky 33 20 1",
     "a:fixed(33,0,1) s:fixed(6,0,0)",
     "q:fixed(33,0,1)",
     {20},
     "RightShiftNoSticky",
     "na",
     1,
     "CBarrelShift"},
    {"ShiftOfAPowerOfTwo",
     "RightShiftNoSticky 64 64 0",
     "a:fixed(64,0,0) s:fixed(7,0,0)",
     "q:fixed(64,0,0)",
     {64},
     "RightShiftNoSticky",
     "na",
     1,
     "CBarrelShift"},
    {"Ones",
     "IntCtPop 8 1",
     "a:fixed(8,0,0)",
     "q:fixed(8,0,0)",
     {},
     "IntCtPop",
     "AUTO",
     103,
     "CCtpop"},
    {"ModularProduct",
     "ModularMultBarrett 8",
     "x:fixed(8,0,0) y:fixed(8,0,0) z:fixed(8,0,0) v:fixed(9,0,0)",
     "r:fixed(8,0,0)",
     {14},
     "ModularMult",
     "polynomial approximation",
     112,
     "DMFxPModularMult"},
    {"UnsignedProduct",
     "MultSchoolbook 8",
     "x:fixed(8,0,0) y:fixed(8,0,0)",
     "r:fixed(16,0,0)",
     {2},
     "SchoolbookMult",
     "classical schoolbook multiplication",
     102,
     "DMFxPModularMult"},
    {"SignedProduct",
     "MultSchoolbookS 8",
     "x:fixed(8,0,1) y:fixed(8,0,1)",
     "r:fixed(16,0,1)",
     {2},
     "SchoolbookMult",
     "classical schoolbook multiplication",
     102,
     "DMFxPModularMult"},
    {"MixedSignProduct",
     "MultSchoolbookExpert 8 0 5 1",
     "x:fixed(8,0,0) y:fixed(5,0,1)",
     "r:fixed(13,0,1)",
     {2},
     "SchoolbookMult",
     "classical schoolbook multiplication",
     102,
     "DMFxPModularMult"},
    {"LongAdd",
     "LongAdd 64",
     "x:fixed(64,0,0) y:fixed(64,0,0)",
     "r:fixed(64,0,0)",
     {0, 0, 2},
     "LongAdd",
     "long adder",
     102,
     "CLongAdd"},
    {"LongAddGrown",
     "LongAddSBitGrowthExpert 64 7",
     "x:fixed(64,0,1) y:fixed(64,0,1)",
     "r:fixed(65,0,1)",
     {1, 7, 2},
     "LongAdd",
     "long adder",
     102,
     "CLongAdd"},
    {"LongAddOfThree",
     "LongAddMulti 8 3",
     "a0:fixed(8,0,0) a1:fixed(8,0,0) a2:fixed(8,0,0)",
     "r:fixed(8,0,0)",
     {0, 0, 3},
     "LongAdd",
     "long adder",
     102,
     "CLongAdd"},
    {"LongAddOfThreeGrown",
     "LongAddSMultiBitGrowthExpert 8 3 -1",
     "a0:fixed(8,0,1) a1:fixed(8,0,1) a2:fixed(8,0,1)",
     "r:fixed(10,0,1)",
     {1, -1, 3},
     "LongAdd",
     "long adder",
     102,
     "CLongAdd"},
    {"Square",
     "Squarer 8",
     "x:fixed(8,0,0)",
     "r:fixed(16,0,0)",
     {19},
     "ModularMult",
     "polynomial approximation",
     102,
     "DMFxPModularMult"},
};

class OperatorRows : public testing::TestWithParam<RowCase> {};

TEST_P(OperatorRows, DeclareTheirPortsAndNameTheirUnit) {
  const RowCase& expected = GetParam();
  std::string line = expected.line;
  const std::vector<const char*> words = split(line);
  const OperatorRow* row = findOperator(words[0]);
  ASSERT_TRUE(row);
  EXPECT_EQ(row->parameters.size(), words.size() - 1);
  const auto parameters = readParameters(*row, util::Words(words).subspan(1));
  ASSERT_TRUE(parameters);
  const Ports ports = row->ports(*parameters);
  EXPECT_EQ(text(ports.in), expected.in);
  EXPECT_EQ(text(ports.out), expected.out);
  EXPECT_THAT(row->variant(*parameters).numbers, ElementsAreArray(expected.variant));
  EXPECT_EQ(row->component, expected.component);
  EXPECT_EQ(row->method, expected.method);
  EXPECT_EQ(row->type, expected.type);
  EXPECT_EQ(row->unit, expected.unit);
}

INSTANTIATE_TEST_SUITE_P(All, OperatorRows, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(LongAdders, AGrownSumHoldsItsLargestValue) {
  for (int operands : {2, 3, 4, 5, 128, 129, 256}) {
    const std::string count = std::to_string(operands);
    const char* words[] = {"8", count.c_str()};
    const OperatorRow* row = findOperator("LongAddMultiBitGrowth");
    const Ports ports = row->ports(*readParameters(*row, words));
    EXPECT_EQ(ports.in.size(), static_cast<std::size_t>(operands));
    EXPECT_EQ(ports.out[0].type.width(), static_cast<int>(util::MPZ(operands * 255).bitLength()))
        << operands;
  }
}

TEST(OperatorChain, ComparesWordsInItsFixedOrder) {
  std::vector<std::string> expected;
  for (const std::string operation : {"FPAdd", "FPSub"}) {
    expected.push_back(operation);
    for (const char* path : {"", "DualPath"})
      for (const char* out : {"", "OutFPLib"})
        for (const char* side : {"InFPLib", "InFPLibX", "InFPLibY"})
          expected.push_back(operation + path + side + out);
  }
  for (const char* word : {"FPAddExpert",
                           "FPMultAcc",
                           "FPMultAdd",
                           "FPMultSub",
                           "FPAccHard",
                           "FPAddSub",
                           "FPAddSubExpert",
                           "FPSubExpert",
                           "FPFusedAddSub",
                           "FPAbs",
                           "FPMul",
                           "FPMulExpert",
                           "FPMulOutFPLib",
                           "FPAcc",
                           "RightShiftNoSticky",
                           "IntCtPop",
                           "ModularMultBarrett",
                           "MultSchoolbook",
                           "MultSchoolbookS",
                           "MultSchoolbookExpert"})
    expected.push_back(word);
  for (const char* ending : {"", "Expert", "BitGrowth", "BitGrowthExpert"}) {
    // The words of one ending: LongAdd, LongAddS, LongAddMulti, LongAddSMulti.
    for (const char* head : {"", "S", "Multi", "SMulti"})
      expected.push_back(std::string("LongAdd") + head + ending);
  }
  expected.push_back("Squarer");
  std::vector<std::string> words;
  for (const OperatorRow& row : operatorRows()) words.emplace_back(row.word);
  EXPECT_THAT(words, ElementsAreArray(expected));
  EXPECT_EQ(std::set(words.begin(), words.end()).size(), words.size());
}

TEST(OperatorChain, HasNoWordThatOnlyTheUsageSpells) {
  EXPECT_FALSE(findOperator("LongAddMultiS"));
  EXPECT_FALSE(findOperator("FPAddDualPath"));
  EXPECT_FALSE(findOperator(""));
}

struct RangeCase {
  const char* line;
  const char* message;
};
constexpr RangeCase kBadWords[] = {
    {"FPAdd 1 23", "FPAdd: wE 1 is out of range 2 to 15"},
    {"FPAdd 16 23", "FPAdd: wE 16 is out of range 2 to 15"},
    {"FPMul 8 0", "FPMul: wF 0 is out of range 1 to 112"},
    {"FPSub 8 113", "FPSub: wF 113 is out of range 1 to 112"},
    {"FPAbs eight 23", "FPAbs: wE eight is out of range 2 to 15"},
    {"FPAdd 99999999999999999999 23", "FPAdd: wE 99999999999999999999 is out of range 2 to 15"},
    {"FPMulExpert 8 23 8 23 8 -1 1", "FPMulExpert: wFR -1 is out of range 1 to 112"},
    {"LongAdd 0", "LongAdd: w 0 is out of range 1 to 4096"},
    {"LongAddMulti 8 1", "LongAddMulti: n 1 is out of range 2 to 256"},
    {"Squarer 1025", "Squarer: w 1025 is out of range 1 to 1024"},
    {"IntCtPop 4097 0", "IntCtPop: w 4097 is out of range 1 to 4096"},
    {"RightShiftNoSticky 8 -1 0", "RightShiftNoSticky: maxShift -1 is out of range 0 to 4096"},
    {"MultSchoolbookExpert 8 0 8",
     "MultSchoolbookExpert: the line ends before sY (usage: "
     "MultSchoolbookExpert wX sX wY sY)"},
};

TEST(OperatorWords, OutOfRangeOrMissingAreRefusedByName) {
  for (const RangeCase& bad : kBadWords) {
    std::string line = bad.line;
    const std::vector<const char*> words = split(line);
    const auto parameters = readParameters(*findOperator(words[0]), util::Words(words).subspan(1));
    ASSERT_FALSE(parameters) << bad.line;
    EXPECT_EQ(parameters.failure().message, bad.message);
  }
}

TEST(OperatorWords, AnnounceTheKindOfALongAdder) {
  const char* words[] = {"8", "3"};
  const OperatorRow& row = *findOperator("LongAddSMultiBitGrowth");
  testing::internal::CaptureStdout();
  row.announce(*readParameters(row, words));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "isSigned = 1 isMultiOperand=1 isExpert=0 hasBitGrowth=1\n");
}

}  // namespace
}  // namespace operators
