#include "operators/operator_row.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include <fstream>
#include <set>
#include <sstream>

#include "operators/build.h"
#include "util/strings.h"

namespace operators {
namespace {

using testing::ElementsAreArray;

std::vector<std::string> split(const std::string& line, const std::string& separator) {
  std::vector<std::string> parts;
  std::size_t from = 0, to;
  for (; (to = line.find(separator, from)) != std::string::npos; from = to + separator.size())
    parts.push_back(line.substr(from, to - from));
  parts.push_back(line.substr(from));
  return parts;
}

// The words of a line, which must outlive the result.
std::vector<const char*> wordsOf(const std::vector<std::string>& line) {
  std::vector<const char*> words;
  for (const std::string& word : line) words.push_back(word.c_str());
  return words;
}

std::string orDash(const std::string& text) { return text.empty() ? "-" : text; }

// "a:ieee(8,23) b:fixed(4,0,1)"
std::string text(const PortSpecList& ports) {
  std::vector<std::string> all;
  for (const PortSpec& port : ports) {
    if (const kiln::FixedPoint* fixed = port.type.as_fixed_point())
      all.push_back(fmt::format("{}:fixed({},{},{})", port.name, fixed->width(), fixed->fraction(),
                                static_cast<int>(fixed->sign())));
    else if (const kiln::FloatingPoint* lib = port.type.as_fp_lib())
      all.push_back(fmt::format("{}:lib({},{})", port.name, lib->exp, lib->frac));
    else if (const kiln::FloatingPoint* ieee = port.type.as_floating_point())
      all.push_back(fmt::format("{}:ieee({},{})", port.name, ieee->exp, ieee->frac));
  }
  return fmt::format("{}", fmt::join(all, " "));
}

// One case of a file of expectations, beneath the line of its word. See the file's first lines.
struct RowCase {
  std::string place;  // file and line
  std::string word, component, method, type, unit, unitName, testName, precision;
  std::string line, in, out, numbers, texts;
};

std::vector<RowCase> readCases() {
  std::vector<RowCase> cases;
  for (const char* name : {"float_operators.txt", "fixed_operators.txt"}) {
    std::ifstream file(fmt::format("{}/{}", OPERATOR_TABLES, name));
    RowCase row;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
      row.place = fmt::format("{}:{}", name, ++number);
      if (line.empty() || line[0] == '#') continue;
      const bool isCase = line[0] == ' ';
      const std::vector<std::string> fields = split(isCase ? line.substr(2) : line, " | ");
      if (fields.size() != (isCase ? 5U : 8U)) {
        ADD_FAILURE() << row.place << ": " << line;
        continue;
      }
      std::size_t field = 0;
      if (isCase) {
        for (std::string RowCase::*part :
             {&RowCase::line, &RowCase::in, &RowCase::out, &RowCase::numbers, &RowCase::texts})
          row.*part = fields[field++];
        cases.push_back(row);
      } else {
        for (std::string RowCase::*part :
             {&RowCase::word, &RowCase::component, &RowCase::method, &RowCase::type, &RowCase::unit,
              &RowCase::unitName, &RowCase::testName, &RowCase::precision})
          row.*part = fields[field++];
      }
    }
  }
  return cases;
}

std::string methodOf(const OperatorRow& row, const Parameters& parameters) {
  return std::string(row.methodOf ? row.methodOf(parameters) : row.method);
}

TEST(OperatorChain, DeclaresWhatTheTablesSay) {
  for (const RowCase& expected : readCases()) {
    SCOPED_TRACE(expected.place + ": " + expected.word + " " + expected.line);
    const OperatorRow* row = findOperator(expected.word);
    ASSERT_TRUE(row);
    // What stands behind the operator's words is not read.
    std::vector<std::string> line = split(expected.line, " ");
    const std::size_t words = line.size();
    line.insert(line.end(), {"-testbench", "10"});
    const auto parameters = readParameters(*row, wordsOf(line));
    ASSERT_TRUE(parameters) << parameters.failure().message;
    EXPECT_EQ(parameters->size(), words);
    EXPECT_EQ(row->refuses ? row->refuses(*parameters) : std::nullopt, std::nullopt);

    const Ports ports = row->ports(*parameters);
    EXPECT_EQ(text(ports.in), expected.in);
    EXPECT_EQ(text(ports.out), expected.out);
    const functions::Variant variant = row->variant(*parameters);
    EXPECT_EQ(orDash(fmt::format("{}", fmt::join(variant.numbers, " "))), expected.numbers);
    EXPECT_EQ(orDash(fmt::format("{}", fmt::join(variant.texts, " "))), expected.texts);

    EXPECT_EQ(row->component, expected.component);
    EXPECT_EQ(orDash(methodOf(*row, *parameters)),
              expected.method == "<unit>" ? "-" : expected.method);
    EXPECT_EQ(std::to_string(row->type), expected.type);
    EXPECT_EQ(row->unit, expected.unit);
    EXPECT_EQ(row->unitName, expected.unitName);
    EXPECT_EQ(testNameOf(*row), expected.testName);
    EXPECT_EQ(std::to_string(row->precision), expected.precision);
  }
}

TEST(OperatorChain, ComparesWordsInTheOrderOfTheTables) {
  std::vector<std::string> expected, words;
  for (const RowCase& row : readCases())
    if (expected.empty() || expected.back() != row.word) expected.push_back(row.word);
  for (const OperatorRow& row : operatorRows()) words.emplace_back(row.word);
  EXPECT_THAT(words, ElementsAreArray(expected));
  EXPECT_EQ(std::set(words.begin(), words.end()).size(), 236U);
}

TEST(OperatorChain, ComparesWithoutCaseButForFourWords) {
  for (const OperatorRow& row : operatorRows()) {
    std::string word(row.word);
    EXPECT_EQ(findOperator(word), &row);
    for (char& letter : word) letter = static_cast<char>(std::tolower(letter));
    const bool exact = row.word == "FPSqrtDynRnd" || row.word == "FPSqrtFlagsDynRnd" ||
                       row.word == "FPDivDynRnd" || row.word == "FPDivFlagsDynRnd";
    EXPECT_EQ(findOperator(word), exact ? nullptr : &row) << word;
  }
  EXPECT_EQ(findOperator("FPADD")->word, "FPAdd");
}

TEST(OperatorChain, HasNoOtherWord) {
  for (const char* word : {"LongAddMultiS", "LongAddMultiSBitGrowth", "FPConstMul",
                           "FXPTruncMultSignedUnsinged", "FPAddDualPath", "FPAdd ", ""})
    EXPECT_FALSE(findOperator(word)) << word;
}

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

struct LineCase {
  const char* line;
  const char* said;
};

// The failure of reading the line, or of what stands on it; empty when it has none.
std::string failureOf(const std::string& text) {
  const std::vector<std::string> line = split(text, " ");
  const std::vector<const char*> words = wordsOf(line);
  const OperatorRow& row = *findOperator(line[0]);
  const auto parameters = readParameters(row, util::Words(words).subspan(1));
  if (!parameters) return parameters.failure().message;
  const auto reason = row.refuses ? row.refuses(*parameters) : std::nullopt;
  return reason ? fmt::format("{}: {}", row.word, *reason) : "";
}

constexpr LineCase kBadWords[] = {
    {"FPAdd 1 23", "FPAdd: wE 1 is out of range 2 to 15"},
    {"FPAdd 16 23", "FPAdd: wE 16 is out of range 2 to 15"},
    {"FPMul 8 0", "FPMul: wF 0 is out of range 1 to 112"},
    {"FPSub 8 113", "FPSub: wF 113 is out of range 1 to 112"},
    {"FPAbs eight 23", "FPAbs: wE eight is out of range 2 to 15"},
    {"FPAdd 99999999999999999999 23", "FPAdd: wE 99999999999999999999 is out of range 2 to 15"},
    {"FPMulExpert 8 23 8 23 8 -1 1", "FPMulExpert: wFR -1 is out of range 1 to 112"},
    {"FPToFP 8 23 16 52", "FPToFP: wEOut 16 is out of range 2 to 15"},
    {"FPCompare 8 23 4", "FPCompare: type 4 is out of range -2 to 3"},
    {"FPAddN 8 23 1", "FPAddN: n 1 is out of range 2 to 256"},
    {"FPDotProductIEEE 8 23 0", "FPDotProductIEEE: n 0 is out of range 1 to 256"},
    {"FPToFPCIEEE 14 23", "FPToFPCIEEE: wE 14 is out of range 2 to 13"},
    {"FPCIEEEToFP 3 23", "FPCIEEEToFP: wE 3 is out of range 4 to 15"},
    {"FPRangeReduction 8 106", "FPRangeReduction: wF 106 is out of range 1 to 105"},
    {"FPLdExp 8 23 0", "FPLdExp: wI 0 is out of range 1 to 64"},
    {"FPConstMult 8 23 half", "FPConstMult: constant half is not a number"},
    {"FXPConstMult 8 inf 8", "FXPConstMult: constant inf is not finite"},
    {"FPProbit 8 23 1", "FPProbit: the line ends before variant 1 of 1"},
    {"FPFusedHorner 8 23 0 -1", "FPFusedHorner: d -1 is out of range 0 to 64"},
    {"FPFusedHorner 8 23 0 2 1 2", "FPFusedHorner: the line ends before coefficient 3 of 3"},
    {"FPFusedHorner 8 23 0 2 1 -x 2", "FPFusedHorner: coefficient -x is not a number"},
    {"FPFusedHornerMulti 8 23 0 2 3 1 2 3 4 5 6 7 8",
     "FPFusedHornerMulti: the line ends before coefficient 9 of 9"},
    {"FPFusedHornerExpert 8 23 0 1 2 3 4 5",
     "FPFusedHornerExpert: the line ends before d (usage: FPFusedHornerExpert wE wF r g pOut pIn "
     "maxInExp maxCS d)"},
    {"FXPSqrt 0 4 4", "FXPSqrt: w 0 is out of range 1 to 200"},
    {"FXPSqrt 8 4 2000", "FXPSqrt: fOut 2000 is out of range -1024 to 1024"},
    {"FXPFuncExpert 8 4 0 4 0 0 5", "FXPFuncExpert: function 5 is out of range 0 to 4"},
    {"FXPConstMultExpertCropped 8 1 0 5 0",
     "FXPConstMultExpertCropped: f 1 is out of range 0 to 0"},
    {"IntCstDivU 8 seven", "IntCstDivU: constant seven is not an integer"},
    {"IntCstDivS 8 0x0", "IntCstDivS: constant 0 divides nothing"},
    {"ModularMultBarrettConstModulus 8 1 5",
     "ModularMultBarrettConstModulus: base 1 is not 0 or 2 to 62"},
    {"ModularMultBarrettConstModulus 8 8 9",
     "ModularMultBarrettConstModulus: modulus 9 is not an integer in base 8"},
    {"ModularMultBarrettConstModulus 8 10 -9",
     "ModularMultBarrettConstModulus: modulus -9 is below 1"},
    {"LongAdd 0", "LongAdd: w 0 is out of range 1 to 4096"},
    {"LongAddMulti 8 1", "LongAddMulti: n 1 is out of range 2 to 256"},
    {"Squarer 1025", "Squarer: w 1025 is out of range 1 to 1024"},
    {"IntCtPop 4097 0", "IntCtPop: w 4097 is out of range 1 to 4096"},
    {"RightShiftNoSticky 8 -1 0", "RightShiftNoSticky: maxShift -1 is out of range 0 to 4096"},
    {"MultSchoolbookExpert 8 0 8",
     "MultSchoolbookExpert: the line ends before sY (usage: "
     "MultSchoolbookExpert wX sX wY sY)"},
};

TEST(OperatorWords, ThatNoCircuitCanHaveAreRefusedByName) {
  for (const LineCase& bad : kBadWords) EXPECT_EQ(failureOf(bad.line), bad.said);
}

void announce(const std::string& text) {
  const std::vector<std::string> line = split(text, " ");
  const std::vector<const char*> words = wordsOf(line);
  const OperatorRow& row = *findOperator(line[0]);
  if (row.announce) row.announce(*readParameters(row, util::Words(words).subspan(1)));
}

constexpr LineCase kAnnouncements[] = {
    {"FPAdd 8 23", ""},
    {"FPSigmoid 8 23", "\tSigmoid using generic version (assembly) : no \n"},
    {"FPSigmoidGeneric 8 23", "\tSigmoid using generic version (assembly) : yes \n"},
    {"FPConstMult 8 23 -12.5", "Read constant -1.250000e+01 \n"},
    {"FPProbit 8 23 2", ""},
    {"FPProbit 8 23 3", "Default Wichura, arch in {0 = Wichura, 1 = PPA, 2 = PPA_FXP}\n"},
    {"FPProbit 8 23 -1", "Default Wichura, arch in {0 = Wichura, 1 = PPA, 2 = PPA_FXP}\n"},
    {"IntCstDivU 8 0x1f", ""},
    {"IntCstDivS 8 seven", "Error: failed to parse the constant\n"},
    {"LongAddSMultiBitGrowth 8 3", "isSigned = 1 isMultiOperand=1 isExpert=0 hasBitGrowth=1\n"},
    {"LongAddExpert 8 3", "isSigned = 0 isMultiOperand=0 isExpert=1 hasBitGrowth=0\n"},
};

TEST(OperatorWords, AreAnnounced) {
  for (const LineCase& row : kAnnouncements) {
    testing::internal::CaptureStdout();
    announce(row.line);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.said) << row.line;
  }
}

TEST(OperatorWords, ThatChooseWhatDoesNotExistFailAnAssertion) {
  for (const char* line : {"FPProbit 8 23 1 4", "FPProbit 8 23 1 -1", "FXPToFPExpert 8 0 0 8 23 5",
                           "FXPToFPExpert 8 0 0 8 23 -1"})
    EXPECT_EXIT(announce(line), testing::ExitedWithCode(255), "Code should be unreachable") << line;
}

// The rows find their units by name, which a word that is not built yet does without.
TEST(OperatorBuild, NamesTheUnitOrSaysThatThereIsNone) {
  CModelOptions options(true);
  for (const OperatorRow& row : operatorRows()) {
    if (!row.refuses && !row.furtherWords.count && row.parameters.size() == 2 &&
        row.parameters[1].name == "wF") {
      const char* words[] = {"8", "23"};
      const Parameters parameters = *readParameters(row, words);
      const Ports ports = row.ports(parameters);
      auto built = build(row, parameters, options, {"m", "t"}, ports.in, ports.out);
      if (functions::findUnit(row.unit)) {
        ASSERT_TRUE(built) << row.word;
        EXPECT_EQ(built->unit->name(), row.unitName);
        EXPECT_EQ(built->testUnit->name(), testNameOf(row));
      } else {
        ASSERT_FALSE(built) << row.word;
        EXPECT_EQ(built.failure().message, std::string(row.word) + ": no unit yet");
      }
    }
  }
}

}  // namespace
}  // namespace operators
