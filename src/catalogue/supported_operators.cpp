#include "catalogue/supported_operator.h"

namespace {

template <typename Rule, typename... Indices>
PortParamSpec port(const char* name, Indices... indices) {
  return {name, std::make_shared<const Rule>(indices...)};
}

// Most operators have one floating-point format, given by their first two parameters.
PortParamSpec fp(const char* name, int exponent = 0, int fraction = 1) {
  return port<TypeParamFP>(name, exponent, fraction);
}
PortParamSpec fxp(const char* name, int width, int fraction, int sign) {
  return port<TypeParamFXP>(name, width, fraction, sign);
}
PortParamSpec boolean(const char* name) { return port<TypeParamBool>(name); }
PortParamSpec integer(const char* name, int width) { return port<TypeParamSigned>(name, width); }
// A select line of `width` bits.
PortParamSpec select(const char* name, int width) {
  return port<TypeParamUnsignedVal>(name, width);
}

SupportedOperator unary(componentType component, const char* name) {
  return {component, name, 2, {fp("a")}, {fp("q")}, false};
}

SupportedOperator binary(componentType component, const char* name) {
  return {component, name, 2, {fp("a"), fp("b")}, {fp("q")}, false};
}

// The third parameter chooses the row.
SupportedOperator compare(componentType component) {
  return {component, "FPCompare", 3, {fp("a"), fp("b")}, {boolean("q")}, true};
}
SupportedOperator divide(componentType component) {
  return {component, "FPDiv", 3, {fp("a"), fp("b")}, {fp("q")}, true};
}

PortParamSpecList multifunctionInputs() {
  PortParamSpecList inputs(fp("a"), fp("b"), fp("c"));
  inputs.push_back(select("s", 2));
  inputs.push_back(select("sOp", 4));
  return inputs;
}

}  // namespace

std::vector<SupportedOperator> initializeSupportedOperators() {
  // clang-format off
  return {
      unary(FPABS, "FPAbs"),
      unary(FPARCCOSPI, "FPArccosPi"),
      unary(FPARCCOSX, "FPArccosX"),
      unary(FPARCSINPI, "FPArcsinPi"),
      unary(FPARCSINX, "FPArcsinX"),
      binary(FPARCTAN2, "FPArctan2"),
      unary(FPARCTANPI, "FPArctanPi"),
      unary(FPARCTANX, "FPArctanX"),
      unary(FPCBRT, "FPCbrt"),
      unary(FPSQRT, "FPSqrt"),
      unary(FPCEIL, "FPCeil"),
      unary(FPFLOOR, "FPFloor"),
      unary(FPFRAC, "FPFrac"),
      unary(FPROUND, "FPRound"),
      unary(FPRINT, "FPRint"),
      unary(FPSINX, "FPSinX"),
      unary(FPSINPIX, "FPSinPiX"),
      {FPSINCOSX, "FPSinCosX", 2, {fp("a")}, {fp("s"), fp("c")}, false},
      {FPSINCOSPIX, "FPSinCosPIX", 2, {fp("a")}, {fp("s"), fp("c")}, false},
      unary(FPTANPIX, "FPTanPiX"),
      unary(FPTANX, "FPTanX"),
      unary(FPSINXNORR, "FPSinXNoRR"),
      binary(FPHYPOT, "FPHypot"),
      {FPHYPOT3D, "FPHypot3d", 2, {fp("a"), fp("b"), fp("c")}, {fp("q")}, false},
      unary(FPINVERSE, "FPInverse"),
      unary(FPRECIPSQRT, "FPRecipSqrt"),
      unary(FPCOSPIX, "FPCosPiX"),
      unary(FPCOSX, "FPCosX"),
      unary(FPCOSXNORR, "FPCosXNoRR"),
      unary(FPCOTX, "FPCotX"),
      unary(FPCOTPIX, "FPCotPiX"),
      compare(FPCOMPARE_LT),
      compare(FPCOMPARE_LE),
      compare(FPCOMPARE_EQ),
      compare(FPCOMPARE_GE),
      compare(FPCOMPARE_GT),
      compare(FPCOMPARE_NE),
      {FPCOMPAREFUSED, "FPCompareFused", 2, {fp("a"), fp("b"), select("s", 3)}, {boolean("q")}, false},
      binary(FPPOW, "FPPow"),
      binary(FPPOWR, "FPPowr"),
      binary(FPDIM, "FPDim"),
      divide(FPDIV),
      divide(FPDIV_V1),
      {FPDIVSQRT, "FPDivSqrt", 2, {fp("a"), fp("b"), select("s", 1)}, {fp("q")}, false},
      unary(FPEXP, "FPExp"),
      unary(FPEXPM1, "FPExpM1"),
      unary(FPEXP10, "FPExp10"),
      unary(FPEXP2, "FPExp2"),
      unary(FPLN, "FPLn"),
      unary(FPLN1PX, "FPLn1px"),
      unary(FPLOG10, "FPLog10"),
      unary(FPLOG2, "FPLog2"),
      {FPFUSEDADDSUB, "FPFusedAddSub", 2, {fp("a"), fp("b")}, {fp("s"), fp("d")}, false},
      {FPMINMAXFUSED, "FPMinMaxFused", 2, {fp("a"), fp("b"), select("s", 1)}, {fp("q")}, false},
      {FPMINMAXABSFUSED, "FPMinMaxAbsFused", 2, {fp("a"), fp("b"), select("s", 1)}, {fp("q")}, false},
      {FPFUSEDMULTIFUNCTION, "FPFusedMultifunction", 2, multifunctionInputs(), {fp("q"), select("qfxp", 1)}, false},
      {FPLDEXP, "FPLdExp", 3, {fp("a"), integer("b", 2)}, {fp("q")}, false},
      binary(FPMIN, "FPMin"),
      binary(FPMAX, "FPMax"),
      binary(FPMINABS, "FPMinAbs"),
      binary(FPMAXABS, "FPMaxAbs"),
      binary(FPMOD, "FPMod"),
      // w f s wE wF
      {FXPTOFP, "FXPToFP", 5, {fxp("a", 0, 1, 2)}, {fp("q", 3, 4)}, false},
      // wE wF w f s r, where r chooses the row
      {FPTOFXP, "FPToFXP", 6, {fp("a")}, {fxp("q", 2, 3, 4)}, true},
      {FPTOFXP_RNDSEL, "FPToFXP", 6, {fp("a"), select("rndSel", 1)}, {fxp("q", 2, 3, 4)}, true},
      binary(FPADD, "FPAdd"),
      // wE wF tieBreaksToEven architecture degradeAccuracy
      {FPADDEXPERT, "FPAddExpert", 5, {fp("a"), fp("b")}, {fp("q")}, false},
      binary(FPMUL, "FPMul"),
      // wEA wFA wEB wFB wER wFR ieeeTieBreakRule
      {FPMULEXPERT, "FPMulExpert", 7, {fp("a"), fp("b", 2, 3)}, {fp("q", 4, 5)}, false},
  };
  // clang-format on
}
