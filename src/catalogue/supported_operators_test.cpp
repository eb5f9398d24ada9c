#include <fmt/format.h>
#include <gmock/gmock.h>

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <typeinfo>

#include "catalogue/supported_operator.h"

namespace {

// "a:FP(0,1)".
std::string describe(const PortParamSpec& spec) {
  static const std::map<std::string, std::string> kNames = {
      {typeid(TypeParamFP).name(), "FP"},         {typeid(TypeParamFXP).name(), "FXP"},
      {typeid(TypeParamBool).name(), "Bool"},     {typeid(TypeParamUnsigned).name(), "Unsigned"},
      {typeid(TypeParamSigned).name(), "Signed"}, {typeid(TypeParamUnsignedVal).name(), "UVal"},
      {typeid(TypeParamSignedVal).name(), "SVal"}};
  const TypeParam& rule = *spec.second;
  return fmt::format("{}:{}({})", spec.first, kNames.at(typeid(rule).name()),
                     fmt::join(rule.indices, ","));
}

std::string describe(const SupportedOperator& row) {
  std::string text = fmt::format("{} {} {}", row.component, row.paramCount, row.exception);
  for (const PortParamSpec& spec : row.inputs) text += fmt::format(" {}", describe(spec));
  text += " ->";
  for (const PortParamSpec& spec : row.outputs) text += fmt::format(" {}", describe(spec));
  return text;
}

// Every row that is neither of the two shapes below.
const std::multimap<std::string, std::string> kOtherRows = {
    {"FPSinCosX", "61 2 false a:FP(0,1) -> s:FP(0,1) c:FP(0,1)"},
    {"FPSinCosPIX", "62 2 false a:FP(0,1) -> s:FP(0,1) c:FP(0,1)"},
    {"FPHypot3d", "85 2 false a:FP(0,1) b:FP(0,1) c:FP(0,1) -> q:FP(0,1)"},
    {"FPCompare", "50 3 true a:FP(0,1) b:FP(0,1) -> q:Bool()"},
    {"FPCompare", "51 3 true a:FP(0,1) b:FP(0,1) -> q:Bool()"},
    {"FPCompare", "52 3 true a:FP(0,1) b:FP(0,1) -> q:Bool()"},
    {"FPCompare", "53 3 true a:FP(0,1) b:FP(0,1) -> q:Bool()"},
    {"FPCompare", "54 3 true a:FP(0,1) b:FP(0,1) -> q:Bool()"},
    {"FPCompare", "55 3 true a:FP(0,1) b:FP(0,1) -> q:Bool()"},
    {"FPCompareFused", "56 2 false a:FP(0,1) b:FP(0,1) s:UVal(3) -> q:Bool()"},
    {"FPDiv", "20 3 true a:FP(0,1) b:FP(0,1) -> q:FP(0,1)"},
    {"FPDiv", "21 3 true a:FP(0,1) b:FP(0,1) -> q:FP(0,1)"},
    {"FPDivSqrt", "22 2 false a:FP(0,1) b:FP(0,1) s:UVal(1) -> q:FP(0,1)"},
    {"FPFusedAddSub", "25 2 false a:FP(0,1) b:FP(0,1) -> s:FP(0,1) d:FP(0,1)"},
    {"FPMinMaxFused", "47 2 false a:FP(0,1) b:FP(0,1) s:UVal(1) -> q:FP(0,1)"},
    {"FPMinMaxAbsFused", "48 2 false a:FP(0,1) b:FP(0,1) s:UVal(1) -> q:FP(0,1)"},
    {"FPFusedMultifunction",
     "89 2 false a:FP(0,1) b:FP(0,1) c:FP(0,1) s:UVal(2) sOp:UVal(4) -> q:FP(0,1) qfxp:UVal(1)"},
    {"FPLdExp", "82 3 false a:FP(0,1) b:Signed(2) -> q:FP(0,1)"},
    {"FXPToFP", "10 5 false a:FXP(0,1,2) -> q:FP(3,4)"},
    {"FPToFXP", "11 6 true a:FP(0,1) -> q:FXP(2,3,4)"},
    {"FPToFXP", "12 6 true a:FP(0,1) rndSel:UVal(1) -> q:FXP(2,3,4)"},
    {"FPAddExpert", "16 5 false a:FP(0,1) b:FP(0,1) -> q:FP(0,1)"},
    {"FPMulExpert", "18 7 false a:FP(0,1) b:FP(2,3) -> q:FP(4,5)"}};

const std::map<std::string, int> kUnaryRows = {
    {"FPAbs", 41},       {"FPArccosPi", 74}, {"FPArccosX", 73},  {"FPArcsinPi", 72},
    {"FPArcsinX", 71},   {"FPArctanPi", 77}, {"FPArctanX", 75},  {"FPCbrt", 32},
    {"FPSqrt", 31},      {"FPCeil", 35},     {"FPFloor", 34},    {"FPFrac", 39},
    {"FPRound", 36},     {"FPRint", 37},     {"FPSinX", 57},     {"FPSinPiX", 78},
    {"FPTanPiX", 80},    {"FPTanX", 63},     {"FPSinXNoRR", 60}, {"FPInverse", 30},
    {"FPRecipSqrt", 33}, {"FPCosPiX", 79},   {"FPCosX", 58},     {"FPCosXNoRR", 59},
    {"FPCotX", 64},      {"FPCotPiX", 81},   {"FPExp", 98},      {"FPExpM1", 95},
    {"FPExp10", 97},     {"FPExp2", 96},     {"FPLn", 91},       {"FPLn1px", 92},
    {"FPLog10", 93},     {"FPLog2", 94}};

const std::map<std::string, int> kBinaryRows = {
    {"FPArctan2", 76}, {"FPHypot", 84}, {"FPPow", 101}, {"FPPowr", 99},
    {"FPDim", 42},     {"FPMin", 43},   {"FPMax", 44},  {"FPMinAbs", 45},
    {"FPMaxAbs", 46},  {"FPMod", 40},   {"FPAdd", 15},  {"FPMul", 17}};

constexpr char kOrder[] =
    "FPAbs FPArccosPi FPArccosX FPArcsinPi FPArcsinX FPArctan2 FPArctanPi FPArctanX FPCbrt FPSqrt "
    "FPCeil FPFloor FPFrac FPRound FPRint FPSinX FPSinPiX FPSinCosX FPSinCosPIX FPTanPiX FPTanX "
    "FPSinXNoRR FPHypot FPHypot3d FPInverse FPRecipSqrt FPCosPiX FPCosX FPCosXNoRR FPCotX FPCotPiX "
    "FPCompare FPCompare FPCompare FPCompare FPCompare FPCompare FPCompareFused FPPow FPPowr FPDim "
    "FPDiv FPDiv FPDivSqrt FPExp FPExpM1 FPExp10 FPExp2 FPLn FPLn1px FPLog10 FPLog2 FPFusedAddSub "
    "FPMinMaxFused FPMinMaxAbsFused FPFusedMultifunction FPLdExp FPMin FPMax FPMinAbs FPMaxAbs "
    "FPMod FXPToFP FPToFXP FPToFXP FPAdd FPAddExpert FPMul FPMulExpert ";

TEST(Catalogue, HasEveryRowInItsOrder) {
  std::string order;
  for (const SupportedOperator& row : initializeSupportedOperators()) order += row.name + " ";
  EXPECT_EQ(order, kOrder);
}

TEST(Catalogue, GivesEveryRowItsNumberAndPorts) {
  std::multimap<std::string, std::string> expected = kOtherRows;
  for (const auto& [name, number] : kUnaryRows)
    expected.emplace(name, fmt::format("{} 2 false a:FP(0,1) -> q:FP(0,1)", number));
  for (const auto& [name, number] : kBinaryRows)
    expected.emplace(name, fmt::format("{} 2 false a:FP(0,1) b:FP(0,1) -> q:FP(0,1)", number));
  std::multimap<std::string, std::string> rows;
  for (const SupportedOperator& row : initializeSupportedOperators())
    rows.emplace(row.name, describe(row));
  EXPECT_EQ(rows.size(), 69U);
  EXPECT_EQ(rows, expected);
}

TEST(Catalogue, KeepsItsRulesThroughCopiesOfARow) {
  std::vector<SupportedOperator> rows = initializeSupportedOperators();
  const TypeParam* rule = rows[0].inputs[0].second.get();
  { const SupportedOperator copy = rows[0]; }
  EXPECT_EQ(rows[0].inputs[0].second.get(), rule);
  EXPECT_THAT(rule->indices, testing::ElementsAre(0, 1));
  std::set<const TypeParam*> rules;
  std::size_t ports = 0;
  for (const SupportedOperator& row : rows)
    for (const auto& side : {row.inputs, row.outputs})
      for (const PortParamSpec& spec : side) rules.insert(spec.second.get()), ++ports;
  EXPECT_EQ(rules.size(), ports);
}

}  // namespace
