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
  std::string text = fmt::format("{} {}", row.paramCount, row.exception);
  for (const PortParamSpec& spec : row.inputs) text += fmt::format(" {}", describe(spec));
  text += " ->";
  for (const PortParamSpec& spec : row.outputs) text += fmt::format(" {}", describe(spec));
  return text;
}

// Names and numbers of all rows in their order.
constexpr char kOrder[] =
    "FPAbs=41 FPArccosPi=74 FPArccosX=73 FPArcsinPi=72 FPArcsinX=71 FPArctan2=76 FPArctanPi=77 "
    "FPArctanX=75 FPCbrt=32 FPSqrt=31 FPCeil=35 FPFloor=34 FPFrac=39 FPRound=36 FPRint=37 "
    "FPSinX=57 FPSinPiX=78 FPSinCosX=61 FPSinCosPIX=62 FPTanPiX=80 FPTanX=63 FPSinXNoRR=60 "
    "FPHypot=84 FPHypot3d=85 FPInverse=30 FPRecipSqrt=33 FPCosPiX=79 FPCosX=58 FPCosXNoRR=59 "
    "FPCotX=64 FPCotPiX=81 FPCompare=50 FPCompare=51 FPCompare=52 FPCompare=53 FPCompare=54 "
    "FPCompare=55 FPCompareFused=56 FPPow=101 FPPowr=99 FPDim=42 FPDiv=20 FPDiv=21 FPDivSqrt=22 "
    "FPExp=98 FPExpM1=95 FPExp10=97 FPExp2=96 FPLn=91 FPLn1px=92 FPLog10=93 FPLog2=94 "
    "FPFusedAddSub=25 FPMinMaxFused=47 FPMinMaxAbsFused=48 FPFusedMultifunction=89 FPLdExp=82 "
    "FPMin=43 FPMax=44 FPMinAbs=45 FPMaxAbs=46 FPMod=40 FXPToFP=10 FPToFXP=11 FPToFXP=12 "
    "FPAdd=15 FPAddExpert=16 FPMul=17 FPMulExpert=18 ";

const std::set<std::string> kOfTwoOperands = {"FPArctan2", "FPHypot", "FPPow", "FPPowr",
                                              "FPDim",     "FPMin",   "FPMax", "FPMinAbs",
                                              "FPMaxAbs",  "FPMod",   "FPAdd", "FPMul"};

// Parameters, exception and ports of every row that has not one or two operands and one result.
const std::map<std::string, std::string> kFurtherForms = {
    {"FPSinCosX", "2 false a:FP(0,1) -> s:FP(0,1) c:FP(0,1)"},
    {"FPSinCosPIX", "2 false a:FP(0,1) -> s:FP(0,1) c:FP(0,1)"},
    {"FPHypot3d", "2 false a:FP(0,1) b:FP(0,1) c:FP(0,1) -> q:FP(0,1)"},
    {"FPCompare", "3 true a:FP(0,1) b:FP(0,1) -> q:Bool()"},
    {"FPCompareFused", "2 false a:FP(0,1) b:FP(0,1) s:UVal(3) -> q:Bool()"},
    {"FPDiv", "3 true a:FP(0,1) b:FP(0,1) -> q:FP(0,1)"},
    {"FPDivSqrt", "2 false a:FP(0,1) b:FP(0,1) s:UVal(1) -> q:FP(0,1)"},
    {"FPFusedAddSub", "2 false a:FP(0,1) b:FP(0,1) -> s:FP(0,1) d:FP(0,1)"},
    {"FPMinMaxFused", "2 false a:FP(0,1) b:FP(0,1) s:UVal(1) -> q:FP(0,1)"},
    {"FPMinMaxAbsFused", "2 false a:FP(0,1) b:FP(0,1) s:UVal(1) -> q:FP(0,1)"},
    {"FPFusedMultifunction",
     "2 false a:FP(0,1) b:FP(0,1) c:FP(0,1) s:UVal(2) sOp:UVal(4) -> q:FP(0,1) qfxp:UVal(1)"},
    {"FPLdExp", "3 false a:FP(0,1) b:Signed(2) -> q:FP(0,1)"},
    {"FXPToFP", "5 false a:FXP(0,1,2) -> q:FP(3,4)"},
    {"FPAddExpert", "5 false a:FP(0,1) b:FP(0,1) -> q:FP(0,1)"},
    {"FPMulExpert", "7 false a:FP(0,1) b:FP(2,3) -> q:FP(4,5)"},
    {"FPToFXP=11", "6 true a:FP(0,1) -> q:FXP(2,3,4)"},
    {"FPToFXP=12", "6 true a:FP(0,1) rndSel:UVal(1) -> q:FXP(2,3,4)"},
};

TEST(Catalogue, HasEveryRowInItsOrderWithItsNumberAndPorts) {
  std::string order;
  for (const SupportedOperator& row : initializeSupportedOperators()) {
    const std::string word = fmt::format("{}={}", row.name, int{row.component});
    order += word + " ";
    auto form = kFurtherForms.find(word);
    if (form == kFurtherForms.end()) form = kFurtherForms.find(row.name);
    const std::string usual = kOfTwoOperands.contains(row.name)
                                  ? "2 false a:FP(0,1) b:FP(0,1) -> q:FP(0,1)"
                                  : "2 false a:FP(0,1) -> q:FP(0,1)";
    EXPECT_EQ(describe(row), form == kFurtherForms.end() ? usual : form->second) << word;
  }
  EXPECT_EQ(order, kOrder);
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
