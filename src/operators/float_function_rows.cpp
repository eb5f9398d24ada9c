#include <cstdio>
#include <cstdlib>

#include "operators/float_parts.h"
#include "operators/row_tables.h"
#include "util/failure.h"

namespace operators {

namespace {

constexpr Parameter kToFixed[] = {exponentWidth("wE"), fractionWidth("wF"), integerWidth("w"),
                                  fractionLength("f"), choice("s")};
constexpr Parameter kToFixedExpert[] = {exponentWidth("wE"), fractionWidth("wF"), integerWidth("w"),
                                        fractionLength("f"), choice("s"),         choice("r")};
constexpr Parameter kResizeExpert[] = {exponentWidth("wEIn"), fractionWidth("wFIn"),
                                       exponentWidth("wEOut"), fractionWidth("wFOut"), choice("r")};
constexpr Parameter kConstant[] = {exponentWidth("wE"), fractionWidth("wF"), number("constant")};
constexpr Parameter kProbit[] = {exponentWidth("wE"), fractionWidth("wF"), choice("ARCH")};
constexpr Parameter kSplitPorts[] = {exponentWidth("wE"), fractionWidth("wF"), choice("Fr"),
                                     choice("Sp")};
constexpr Parameter kMemory[] = {exponentWidth("wE"), fractionWidth("wF"),
                                 choice("useMemoryBlocks")};
constexpr Parameter kVersion[] = {exponentWidth("wE"), fractionWidth("wF"), choice("version")};

Ports toFixed(const Parameters& p) {
  return makePorts({{"a", format(p)}}, {{"q", kiln::FixedPoint(p[3], p[4], p[5] > 0)}});
}

Ports toBit(const Parameters& p) { return makePorts({{"a", format(p)}}, {{"q", bits(1)}}); }

Ports resized(const Parameters& p) {
  return makePorts({{"a", format(p)}}, {{"q", kiln::ieee(p[3], p[4])}});
}

Ports unaryToB(const Parameters& p) { return makePorts({{"a", format(p)}}, {{"b", format(p)}}); }

Ports sineAndCosine(const Parameters& p) {
  return makePorts({{"a", format(p)}}, {{"s", format(p)}, {"c", format(p)}});
}

Ports threeResults(const Parameters& p) {
  return makePorts({{"a", format(p)}, {"b", format(p)}},
                   {{"q0", format(p)}, {"q1", format(p)}, {"q2", format(p)}});
}

Ports foldedAlu(const Parameters& p) {
  return makePorts({{"x", format(p)}, {"y", format(p)}, {"op", bits(3)}, {"n", bits(1)}},
                   {{"r", format(p)}});
}

// DMFPToFxP: wE, wF, w, f, sign, roundingType, roundingMode, flags, subnormals.
template <bool Flags>
functions::Variant toFixedExpert(const Parameters& p) {
  constexpr int kModeOf[] = {6, 3, 0, 1, 5, 4, 2};  // of r from -2 up
  constexpr int kHighest = Flags ? 1 : 4;
  const int mode = -2 <= p[6] && p[6] <= kHighest ? kModeOf[p[6] + 2] : 1;
  return {{p[1], p[2], p[3], p[4], p[5], p[6] == -1, mode, Flags, 0}};
}

// CFPConstMult: wE, wF, correct; text: the constant.
functions::Variant constantProduct(const Parameters& p) { return {{p[1], p[2], 0}, {p.text(3)}}; }

std::optional<std::string> refuseConstant(const Parameters& p) {
  return refuseNoNumber("constant", p.text(3));
}

void announceConstant(const Parameters& p) {
  std::printf("Read constant %e \n", std::strtod(p.text(3).c_str(), nullptr));
}

enum ProbitArchitecture { kWichura, kPiecewise, kFixedPiecewise };

bool isPiecewise(const Parameters& p) { return p[3] == kPiecewise; }

std::size_t probitVariants(const Parameters& p) { return isPiecewise(p) ? 1 : 0; }

int probitVariant(const Parameters& p) {
  return isPiecewise(p) ? util::integerOf(p.further()[0].c_str()) : 0;
}

void announceProbit(const Parameters& p) {
  if (p[3] < kWichura || p[3] > kFixedPiecewise)
    std::printf("Default Wichura, arch in {0 = Wichura, 1 = PPA, 2 = PPA_FXP}\n");
  const int variant = probitVariant(p);
  LOAM_ASSERT(0 <= variant && variant <= 3, "Code should be unreachable");
}

// DMFloatProbit: wE, wF, 0, architecture, variant.
functions::Variant probit(const Parameters& p) {
  const bool known = kWichura <= p[3] && p[3] <= kFixedPiecewise;
  return {{p[1], p[2], 0, known ? p[3] : kWichura, probitVariant(p)}};
}

// DMFloatSinX, DMFloatCosX: wE, wF, subnormals, no range reduction, memory blocks.
functions::Variant memoryBlocks(const Parameters& p) { return {{p[1], p[2], 0, 1, p[3] > 0}}; }

// DMFloatDiv: wE, wF, correct, version, subnormals.
functions::Variant quotient(const Parameters& p) { return {{p[1], p[2], 0, p[3], 0}}; }

std::string_view quotientMethod(const Parameters& p) {
  const bool newton = p[3] == 1 && p[1] == 11 && p[2] == 52;
  return newton ? "polynomial approximation + newton-raphson" : kPolynomial;
}

template <bool Generic>
void announceSigmoid(const Parameters&) {
  std::printf("\tSigmoid using generic version (assembly) : %s \n", Generic ? "yes" : "no");
}

// Formats so small that all of the function stands in a table.
std::string_view sigmoidMethod(const Parameters& p) {
  return 1 + p[1] + p[2] <= 11 ? "LOOKUP" : "FP PA";
}

constexpr auto kFormatZero = firstWords<2, 0>;
constexpr auto kFormatZeros = firstWords<2, 0, 0>;
constexpr auto kFormatZeroOne = firstWords<2, 0, 1>;

// clang-format off
constexpr OperatorRow kRows[] = {
    // word, parameters, ports, component, method, type, unit, variant, unit's name, twin's name
    {"FPToFXP", kToFixed, toFixed, "FPToFXP", "", 11, "DMFPToFxP", firstWords<5, 0, 1, 0, 0>, "fpToFxPTest"},
    {"FPToFXPExpert", kToFixedExpert, toFixed, "FPToFXP", "", 11, "DMFPToFxP", toFixedExpert<false>, "fpToFxPTest"},
    {"FPToFXPExpertFlags", kToFixedExpert, flagged<toFixed>, "FPToFXP", "", 11, "DMFPToFxP", toFixedExpert<true>, "fpToFxPTest"},
    {"FPToFXPFlagsDynRnd", kToFixed, flagged<dynamicallyRounded<toFixed>>, "FPToFXP", "", 11, "DMFPToFXPExpert", firstWords<5, 1>, "fpToFxPTest"},
    {"FPToFXPFused", kToFixed, selected<toFixed, 1>, "FPToFXP", "", 11, "DMFPToFxP", firstWords<5, 1, 3, 0, 0>, "fpToFxPTest"},
    {"FPToBool", kFormat, toBit, "FPToBool", "", 11, "DMFPToFxP", firstWords<2, 1, 0, 0, 0, 6, 0, 0>, "fpToBoolTest"},
    // DMFPIEEEToFPIEEE: the formats, r.
    {"FPToFP", kInOutFormats, resized, "FPToFP", "", 13, "DMFPIEEEToFPIEEE", firstWords<4, 0>, "fpToFPTest"},
    {"FPToFPExpert", kResizeExpert, resized, "FPToFP", "", 13, "DMFPIEEEToFPIEEE", firstWords<5>, "fpToFPTest"},
    {.word = "FPConstMult", .parameters = kConstant, .ports = unary, .component = "FPConstMult", .method = "AUTO", .type = 9, .unit = "CFPConstMult", .variant = constantProduct, .unitName = "constMult", .announce = announceConstant, .refuses = refuseConstant},
    // DMFloatSqrt: wE, wF, subnormals, correct, digit recurrence.
    {"FPSqrt", kFormat, unary, "FPSqrt", kPolynomial, 31, "DMFloatSqrt", firstWords<2, 0, 0, 0>, "fpSqrtTest"},
    {"FPSqrtLogic", kFormat, unary, "FPSqrt", "digit recurrence", 31, "DMFloatSqrt", firstWords<2, 0, 0, 1>, "fpSqrtTest"},
    {.word = "FPSqrtDynRnd", .parameters = kFormat, .ports = selected<unary, 2>, .component = "FPSqrtDynRnd", .type = 31, .unit = "DMFloatSqrtFlagsDynRnd", .variant = kFormatZeros, .unitName = "fpSqrtDynRndTest", .spelling = Spelling::kExact},
    {.word = "FPSqrtFlagsDynRnd", .parameters = kFormat, .ports = flagged<selected<unary, 2>>, .component = "FPSqrtFlagsDynRnd", .type = 31, .unit = "DMFloatSqrtFlagsDynRnd", .variant = kFormatZeros, .unitName = "fpSqrtFlagsDynRndTest", .spelling = Spelling::kExact},
    {.word = "FPProbit", .parameters = kProbit, .ports = unary, .component = "FPProbit", .method = "3-branch rational approximation", .type = 86, .unit = "DMFloatProbit", .variant = probit, .unitName = "fpProbitTest", .announce = announceProbit, .furtherWords = {"variant", probitVariants}},
    {"FPDivSqrt", kFormat, selected<binary, 1>, "FPDivSqrt", kPolynomial, 22, "DMFloatDivSqrt", firstWords<2>, "fpDivSqrtTest"},
    {"FPDivExpLn", kSplitPorts, selected<threeResults, 2>, "FPDivExpLn", kPolynomial, 23, "DMFloatDivExpLn", firstWords<4>, "fpDivExpLnTest"},
    {"FPFoldedALUNR", kFormat, foldedAlu, "FPFoldedALUNR", "NewtonRaphson", FPFOLDEDALU, "CFPFoldedALUNR", always, "fpFoldedALUTest"},
    {"FPCbrt", kFormat, unary, "FPCbrt", kPolynomial, 32, "DMFloatCbrt", kFormatZero, "fpCbrtTest"},
    {"FPSinX", kFormat, unary, "FPSinX", kPolynomial, 57, "DMFloatSinX", firstWords<2, 0, 0, 0>, "fpSinPiTest", "fpSinXTestBench"},
    {"FPSinXNoRR", kFormat, unary, "FPSinXNoRR", kPolynomial, 57, "DMFloatSinX", firstWords<2, 0, 1, 0>, "fpSinPiTest"},
    {"FPSinXNoRRExpert", kMemory, unary, "FPSinXNoRR", kPolynomial, 57, "DMFloatSinX", memoryBlocks, "fpSinPiTest"},
    {"FPCosX", kFormat, unary, "FPCosX", kPolynomial, 58, "DMFloatCosX", firstWords<2, 0, 0, 0>, "fpCosPiTest", "fpCosXTestBench"},
    {"FPCosXNoRR", kFormat, unary, "FPCosXNoRR", kPolynomial, 58, "DMFloatCosX", firstWords<2, 0, 1, 0>, "fpCosPiTest"},
    {"FPCosXNoRRExpert", kMemory, unary, "FPCosXNoRR", kPolynomial, 58, "DMFloatCosX", memoryBlocks, "fpCosPiTest"},
    {"FPSinCosX", kFormat, sineAndCosine, "FPSinCosX", kPolynomial, 61, "DMFloatSinCosX", kFormatZero, "fpSinCosXTest"},
    {"FPSinCosPiX", kFormat, sineAndCosine, "FPSinCosPiX", kPolynomial, 62, "DMFloatSinCosPiX", kFormatZero, "fpSinCosPiXTest"},
    {"FPSinPiX", kFormat, unary, "FPSinPiX", kPolynomial, 78, "DMFloatSinPiX", kFormatZero, "fpSinPiTest"},
    {"FPCosPiX", kFormat, unary, "FPCosPiX", kPolynomial, 79, "DMFloatCosPiX", kFormatZero, "fpCosPiTest"},
    {"FPTanPiX", kFormat, unary, "FPTanPiX", kPolynomial, 80, "DMFloatTanPiX", kFormatZero, "fpTanPiTest"},
    // DMFloatTanX: wE, wF, 0, no range reduction.
    {"FPTanX", kFormat, unary, "FPTanX", kPolynomial, 63, "DMFloatTanX", kFormatZeros, "fpTanTest"},
    {"FPTanXNoRR", kFormat, unary, "FPTanX", kPolynomial, 63, "DMFloatTanX", kFormatZeroOne, "fpTanNoRRTest"},
    {"FPTanhX", kFormat, unary, "FPTanhX", "FP PA", 65, "DMFloatTanhX", kFormatZero, "fpTanhTest"},
    // DMFloatSigmoid: wE, wF, 0, generic.
    {.word = "FPSigmoid", .parameters = kFormat, .ports = unary, .component = "FPSIGMOID", .type = 68, .unit = "DMFloatSigmoid", .variant = kFormatZeros, .unitName = "fpSigmoid", .announce = announceSigmoid<false>, .methodOf = sigmoidMethod},
    {.word = "FPSigmoidGeneric", .parameters = kFormat, .ports = unary, .component = "FPSIGMOID", .method = "Operator Assembly", .type = 68, .unit = "DMFloatSigmoid", .variant = kFormatZeroOne, .unitName = "fpSigmoid", .announce = announceSigmoid<true>},
    {"FPGELU", kFormat, unary, "FPGELUX", "LOOKUP", 66, "DMFloatGELUX", kFormatZero, "fpGELUTest"},
    {"FPSoftplus", kFormat, unary, "FPSOFTPLUSX", "LOOKUP", 67, "DMFloatSoftplusX", kFormatZero, "fpSoftplusTest"},
    // DMFloatSigmoidTanh, DMFloatSigmoidTanhRecip: wE, wF, 0, bypass.
    {"FPSigmoidTanh", kFormat, selected<unary, 1>, "FPSIGMOIDTANH", "FP PA", 69, "DMFloatSigmoidTanh", kFormatZeros, "fpSigmoidTanh"},
    {"FPSigmoidTanhBypass", kFormat, selected<unary, 2>, "FPSIGMOIDTANHBYPASS", "FP PA", 70, "DMFloatSigmoidTanh", kFormatZeroOne, "fpSigmoidTanhBypass"},
    {"FPSigmoidTanhRecip", kFormat, selected<unary, 2>, "FPSIGMOIDTANH", "FP PA", 69, "DMFloatSigmoidTanhRecip", kFormatZeros, "fpSigmoidTanhRecip"},
    {"FPSigmoidTanhRecipBypass", kFormat, selected<unary, 2>, "FPSIGMOIDTANH", "FP PA", 69, "DMFloatSigmoidTanhRecip", kFormatZeroOne, "fpSigmoidTanhRecip"},
    {"FPCotPiX", kFormat, unary, "FPCotPiX", kPolynomial, 81, "DMFloatCotPiX", kFormatZero, "fpCotPiTest"},
    {"FPCotX", kFormat, unary, "FPCotX", kPolynomial, 64, "DMFloatCotX", kFormatZero, "fpCotTest"},
    {"FPArcsinX", kFormat, unary, "FPArcsinX", kPolynomial, 71, "DMFloatArcSinX", kFormatZero, "fpArcsinXTest"},
    {"FPArcsinPi", kFormat, unary, "FPArcsinPi", kPolynomial, 72, "DMFloatArcSinPi", kFormatZero, "fpArcsinPiTest"},
    {"FPArccosX", kFormat, unary, "FPArccosX", kPolynomial, 73, "DMFloatArcCosX", kFormatZero, "fpArccosXTest"},
    {"FPArccosPi", kFormat, unary, "FPArccosPi", kPolynomial, 74, "DMFloatArcCosPi", kFormatZero, "fpArccosPiTest"},
    {"FPArctanX", kFormat, unary, "FPArctanX", kPolynomial, 75, "DMFloatArcTanX", kFormatZero, "fpArctanXTest"},
    {"FPArctanPi", kFormat, unary, "FPArctanPi", kPolynomial, 77, "DMFloatArcTanPi", kFormatZero, "fpArctanPiTest"},
    {"FPArctan2", kFormat, binary, "FPArctan2", kPolynomial, 76, "DMFloatArcTan2", kFormatZero, "fpArctan2Test"},
    {.word = "FPDiv", .parameters = kVersion, .ports = binary, .component = "FPDiv", .type = 20, .unit = "DMFloatDiv", .variant = quotient, .unitName = "fpDivTest", .methodOf = quotientMethod},
    // DMFloatDivFlagsDynRnd: wE, wF, correct, 0, subnormals.
    {.word = "FPDivDynRnd", .parameters = kFormat, .ports = selected<binary, 2>, .component = "FPDivDynRnd", .method = kPolynomial, .type = 20, .unit = "DMFloatDivFlagsDynRnd", .variant = firstWords<2, 0, 0, 0>, .unitName = "fpDivTest", .spelling = Spelling::kExact},
    {.word = "FPDivFlagsDynRnd", .parameters = kFormat, .ports = flagged<selected<binary, 2>>, .component = "FPDivFlagsDynRnd", .method = kPolynomial, .type = 20, .unit = "DMFloatDivFlagsDynRnd", .variant = firstWords<2, 0, 0, 0>, .unitName = "fpDivTest", .spelling = Spelling::kExact},
    {"FPInverse", kFormat, unary, "FPInverse", kPolynomial, 30, "DMFloatInverse", kFormatZeros, "fpInverseTest"},
    {"FPInverseOutFPLib", kFormat, unary<kLib>, "FPInverse", kPolynomial, 30, "DMFloatInverse", kFormatZeros, "fpInverseTest"},
    {"FPRecipSqrt", kFormat, unary, "FPRecipSqrt", kPolynomial, 33, "DMFloatInverseSqrt", kFormatZero, "fpInvSqrtTest"},
    {"FPFloor", kFormat, unary, "FPFloor", "", 34, "DMFloatFloor", kFormatZero, "fpFloorTest"},
    {"FPCeil", kFormat, unary, "FPCeil", "", 35, "DMFloatCeil", kFormatZero, "fpCeilTest"},
    {"FPRound", kFormat, unary, "FPRound", "", 36, "DMFloatRound", kFormatZero, "fpRoundTest"},
    {"FPRint", kFormat, unaryToB, "FPRint", "", 37, "DMFloatRint", kFormatZero, "fpRintTest"},
    {"FPTrunc", kFormat, unary, "FPTrunc", "", 38, "DMFloatTrunc", kFormatZero, "fpTruncTest"},
    {"FPFrac", kFormat, unaryToB, "FPFrac", "", 39, "DMFloatFrac", kFormatZero, "fpFracTest"},
};
// clang-format on

}  // namespace

std::span<const OperatorRow> floatFunctionRows() { return kRows; }

}  // namespace operators
