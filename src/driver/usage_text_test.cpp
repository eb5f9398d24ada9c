#include "driver/usage_text.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <vector>

#include "driver/option_table.h"
#include "operators/operator_row.h"

namespace driver {
namespace {

struct Entry {
  std::string word, rest;
};

// The lines of the usage that stand at an entry's place and begin with a word; the others explain.
std::vector<Entry> entriesOf(std::string_view text, const std::set<std::size_t>& indents,
                             bool (*isWord)(char)) {
  std::vector<Entry> entries;
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    const std::size_t indent = line.find_first_not_of(' ');
    if (indent == std::string::npos || !indents.contains(indent) || !isWord(line[indent])) continue;
    const std::size_t end = std::min(line.find(' ', indent), line.size());
    const std::size_t rest = line.find_first_not_of(' ', end);
    entries.push_back(
        {line.substr(indent, end - indent), rest == std::string::npos ? "" : line.substr(rest)});
  }
  return entries;
}

std::vector<Entry> operatorEntries() {
  // A line before an entry ends with a blank too many.
  return entriesOf(kUsageComponents, {8, 12, 13},
                   [](char first) { return std::isupper(first) != 0; });
}
std::vector<Entry> optionEntries() {
  return entriesOf(kUsageOptions, {4, 8}, [](char first) { return first == '-'; });
}

// Headings, and sentences that stand where an entry would.
const std::set<std::string_view> kProse = {"Basic:", "Basic",          "Exp,",  "Trigonometrics",
                                           "Fused",  "Hyperbolics:",   "Macro", "Activation",
                                           "The",    "Trigonometrics:"};
// Words that the usage spells and the program does not know.
const std::set<std::string_view> kMisspelt = {"FPConstMul", "FXPTruncMultSignedUnsinged",
                                              "LongAddMultiS", "LongAddMultiSBitGrowth"};

TEST(Usage, NamesOnlyWordsThatAreOperators) {
  std::set<std::string_view> misspelt;
  for (const Entry& entry : operatorEntries()) {
    if (kProse.contains(entry.word) || operators::findOperator(entry.word)) continue;
    EXPECT_TRUE(kMisspelt.contains(entry.word)) << entry.word;
    misspelt.insert(*kMisspelt.find(entry.word));
  }
  EXPECT_EQ(misspelt, kMisspelt);
}

// Operators that are there without being shown.
constexpr char kUnlisted[] =
    "FPALUFlagsDynRnd FPAddFMDSP FPAddMultSubnorm FPCIEEEALU FPCIEEEToFP FPCompareU FPConstMult "
    "FPDotProductFPIEEE FPILogB FPMultFMDSP FPMultSub FPPowM0p75 FPSigmoidTanhRecipBypass "
    "FPSqrtDynRnd FPSqrtFlagsDynRnd FPSqrtLogic FPSubFMDSP FPTanXNoRR FPToFPCIEEE FPToFXP "
    "FXPAtan2Expert FXPFuncExpert FXPInvSqrtSigned FXPSigmoid FXPSinCosCordic FXPSqrtSigned "
    "FXPToFPFlagsDynRnd FXPVecRotate FXPVecTranslate IntDivExpert IntDivS IntDivU "
    "KaratsubaMultRec LongAddBitGrowthExpert LongAddExpert LongAddMultiBitGrowthExpert "
    "LongAddMultiExpert LongAddSBitGrowthExpert LongAddSExpert LongAddSMulti "
    "LongAddSMultiBitGrowth LongAddSMultiBitGrowthExpert LongAddSMultiExpert "
    "ModularMultBarrettConstModulus ";

TEST(Usage, NamesEveryOperatorButTheUnlisted) {
  std::set<std::string> unlisted;
  for (const operators::OperatorRow& row : operators::operatorRows()) unlisted.emplace(row.word);
  for (const Entry& entry : operatorEntries()) unlisted.erase(entry.word);
  EXPECT_EQ(fmt::format("{} ", fmt::join(unlisted, " ")), kUnlisted);
}

// Where the usage stops earlier, the row goes on; where it goes on, further words follow or a
// sentence.
TEST(Usage, NamesTheWordsBehindAnOperatorAsItsRow) {
  for (const Entry& entry : operatorEntries()) {
    const operators::OperatorRow* row = operators::findOperator(entry.word);
    if (!row || entry.rest.starts_with("(reciprocal)") || entry.rest == "trigonometric functions:")
      continue;  // prose about inverses
    if (entry.word == "IntCtPop") {
      EXPECT_EQ(entry.rest, "w (>=1) sign (0 = unsigned, 1 = signed)");
      continue;
    }
    std::string names;
    for (const operators::Parameter& parameter : row->parameters)
      names.append(parameter.name).append(" ");
    EXPECT_TRUE((entry.rest + " ").starts_with(names) || names.starts_with(entry.rest + " "))
        << entry.word << ": " << entry.rest << " / " << names;
  }
}

// The usage leaves some options out on purpose.
constexpr char kUnlistedOptions[] =
    "-base2stimuli -debug -hardFPAddLatency -hardFPMultAddLatency -hardFPMultLatency -intStimuli "
    "-label -lang -part -setIntegerTESSELFeature -setLUTMULTRatio -setStringTESSELFeature "
    "-subnormals -verbose";

TEST(Usage, NamesEveryOptionButTheUnlistedAndNoOther) {
  std::set<std::string> unlisted;
  for (const OptionRow& row : optionRows()) unlisted.emplace(row.name);
  const std::vector<Entry> entries = optionEntries();
  EXPECT_EQ(entries.size(), 55U);
  for (const Entry& entry : entries) {
    const OptionRow* row = findOption(entry.word);
    EXPECT_EQ(row == nullptr, entry.word == "-submormals") << entry.word;
    if (row) unlisted.erase(std::string(row->name));
  }
  EXPECT_EQ(fmt::format("{}", fmt::join(unlisted, " ")), kUnlistedOptions);
}

}  // namespace
}  // namespace driver
