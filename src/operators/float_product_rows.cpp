#include "operators/float_parts.h"
#include "operators/row_tables.h"
#include "util/words.h"

namespace operators {

namespace {

constexpr Parameter kProductFormats[] = {
    exponentWidth("wEA"), fractionWidth("wFA"), exponentWidth("wEB"),      fractionWidth("wFB"),
    exponentWidth("wER"), fractionWidth("wFR"), choice("ieeeTieBreakRule")};
constexpr Parameter kComparison[] = {exponentWidth("wE"), fractionWidth("wF"), {"type", -2, 3}};
constexpr Parameter kScale[] = {exponentWidth("wE"), fractionWidth("wF"), {"wI", 1, 64}};
constexpr Parameter kLongAccumulator[] = {exponentWidth("wE"), fractionWidth("wF"), weight("lsbA"),
                                          weight("msbA"), weight("maxMSBX")};

constexpr Parameter kDegree{"d", 0, 64};
constexpr Parameter kPolynomialOf[] = {exponentWidth("wE"), fractionWidth("wF"), choice("r"),
                                       kDegree};
constexpr Parameter kExpertPolynomial[] = {exponentWidth("wE"), fractionWidth("wF"), choice("r"),
                                           choice("g"),         choice("pOut"),      choice("pIn"),
                                           choice("maxInExp"),  choice("maxCS"),     kDegree};
constexpr Parameter kPolynomials[] = {
    exponentWidth("wE"), fractionWidth("wF"), choice("r"), kDegree, {"m", 1, 64}};

Ports mixedProduct(const Parameters& p) {
  return makePorts({{"a", format(p)}, {"b", kiln::ieee(p[3], p[4])}},
                   {{"q", kiln::ieee(p[5], p[6])}});
}

Ports resizedProduct(const Parameters& p) {
  return makePorts({{"a", format(p)}, {"b", format(p)}}, {{"q", kiln::ieee(p[3], p[4])}});
}

Ports complexProduct(const Parameters& p) {
  return makePorts({{"a", format(p)}, {"b", format(p)}, {"c", format(p)}, {"d", format(p)}},
                   {{"q", format(p)}, {"r", format(p)}});
}

Ports toInteger(const Parameters& p) {
  return makePorts({{"a", format(p)}}, {{"q", integer(32, true)}});
}

Ports comparison(const Parameters& p) {
  return makePorts({{"a", format(p)}, {"b", format(p)}}, {{"q", bits(1)}});
}

Ports chosenPolynomial(const Parameters& p) {
  Ports ports = unary(p);
  ports.in.push_back("s", bits(util::bitsForValue(p[5])));
  return ports;
}

template <bool IsSigned>
Ports withInteger(const Parameters& p) {
  return makePorts({{"a", format(p)}, {"b", integer(p[3], IsSigned)}}, {{"q", format(p)}});
}

Ports longAccumulation(const Parameters& p) {
  return makePorts({{"x", format(p)}, {"n", bits(1)}},
                   {{"r", format(p)}, {"xo", bits(1)}, {"xu", bits(1)}, {"ao", bits(1)}});
}

Ports multiFunction(const Parameters& p) {
  return makePorts(
      {{"x", format(p)}, {"y", format(p)}, {"z", format(p)}, {"s", bits(2)}, {"sOp", bits(4)}},
      {{"r", format(p)}, {"c", bits(1)}});
}

// CFloatMult: 0, 0, tiesAway, 0.
functions::Variant expertProduct(const Parameters& p) { return {{0, 0, p[7] <= 0, 0}}; }

// DMFloatLdExp: wE, wF, 1, wI, 0.
functions::Variant scaled(const Parameters& p) { return {{p[1], p[2], 1, p[3], 0}}; }

// CFloatAcc: lsbA, msbA, maxMSBX.
functions::Variant accumulatorBits(const Parameters& p) { return {{p[3], p[4], p[5]}}; }

// DMFloatFusedHorner: wE, wF, restricted, five numbers of the circuit, polynomials; texts: the
// coefficients of each polynomial from the constant one up.
functions::Variant polynomial(const Parameters& p, std::vector<std::int64_t> circuit, int count) {
  functions::Variant variant{{p[1], p[2], p[3] > 0}, {p.further().begin(), p.further().end()}};
  variant.numbers.insert(variant.numbers.end(), circuit.begin(), circuit.end());
  variant.numbers.push_back(count);
  return variant;
}
functions::Variant onePolynomial(const Parameters& p) {
  return polynomial(p, {32, 0, 0, 0, -8}, 1);
}
functions::Variant expertPolynomial(const Parameters& p) {
  return polynomial(p, {p[5], p[4], p[6] > 0, p[7] > 0, p[8]}, 1);
}
functions::Variant severalPolynomials(const Parameters& p) {
  return polynomial(p, {32, 0, 0, 0, -8}, p[5]);
}

template <int Degree>
std::size_t coefficients(const Parameters& p) {
  return p[Degree] + 1;
}
std::size_t coefficientsOfAll(const Parameters& p) { return coefficients<4>(p) * p[5]; }

std::optional<std::string> refuseCoefficients(const Parameters& p) {
  for (const std::string& word : p.further())
    if (auto reason = refuseNumber("coefficient", word)) return reason;
  return std::nullopt;
}

constexpr std::string_view kFused = "fused datapath";
constexpr auto kFormatZero = firstWords<2, 0>;

// clang-format off
constexpr OperatorRow kRows[] = {
    // word, parameters, ports, component, method, type, unit, variant, unit's name
    {"FPMul", kFormat, binary, "FPMul", "", 17, "CFloatMult", always, "fpMulTest"},
    {"FPMulExpert", kProductFormats, mixedProduct, "FPMul", "", 18, "CFloatMult", expertProduct, "fpMulTest"},
    {"FPMultFlags", kFormat, flagged<binary>, "FPMultFlags", "", 17, "DMFPMult", firstWords<2, 1, 0, 0>, "fpMultFlagsTest"},
    {"FPMultFlagsDynRnd", kFormat, flagged<selected<binary, 2>>, "FPMultFlagsDynRnd", "", 17, "DMFPMult", firstWords<2, 1, 1, 0>, "fpMultFlagsDynRndTest"},
    {"FPMulOutFPLib", kFormat, binary<kIeee, kIeee, kLib>, "FPMul", "", 17, "CFloatMult", always, "fpMulTest"},
    {"FPALUFlags", kFormat, flagged<selected<binary, 1>>, "FPAluFlags", "", 15, "DMFPALU", firstWords<2, 1, 0, 0>, "fpALUFlagsTest"},
    {"FPALUFlagsDynRnd", kFormat, flagged<dynamicallyRounded<selected<binary, 1>>>, "FPAluFlagsDynRnd", "", 15, "DMFPALU", firstWords<2, 1, 1, 0>, "fpALUFlagsTest"},
    {"FPMultFMDSP", kInOutFormats, resizedProduct, "FPMultFMDSP", "", 17, "DMFPMultFMDSP", firstWords<4, 1, 0>, "fpMultFMDSPTest"},
    // DMFPAddFMDSP: wE, wF, subtract.
    {"FPAddFMDSP", kFormat, binary, "FPAddFMDSP", "", 17, "DMFPAddFMDSP", firstWords<2, 0>, "fpAddFMDSPTest"},
    {"FPSubFMDSP", kFormat, binary, "FPSubFMDSP", "", 17, "DMFPAddFMDSP", firstWords<2, 1>, "fpSubFMDSPTest"},
    // DMFloatComplexMultiply: wE, wF, 0, extended.
    {"FPComplexMul", kFormat, complexProduct, "FPComplexMul", "", 19, "DMFloatComplexMultiply", firstWords<2, 0, 0>, "fpComplexMulTest"},
    {"FPComplexMulExtended", kFormat, complexProduct, "FPComplexMul", "", 19, "DMFloatComplexMultiply", firstWords<2, 0, 1>, "fpComplexMulTest"},
    {"FPMod", kFormat, binary, "FPMod", "operator assembly", 40, "DMFloatMod", kFormatZero, "fpModTest"},
    {"FPDim", kFormat, binary, "FPDim", "", 42, "DMFloatDim", kFormatZero, "fpDimTest"},
    // DMFloatMinMax: wE, wF, maximum, magnitudes, 0. DMFloatFusedMinMax: wE, wF, magnitudes.
    {"FPMin", kFormat, binary, "FPMin", "", 43, "DMFloatMinMax", firstWords<2, 0, 0, 0>, "fpMinTest"},
    {"FPMax", kFormat, binary, "FPMax", "", 44, "DMFloatMinMax", firstWords<2, 1, 0, 0>, "fpMaxTest"},
    {"FPMinAbs", kFormat, binary, "FPMinAbs", "", 45, "DMFloatMinMax", firstWords<2, 0, 1, 0>, "fpMinTest"},
    {"FPMaxAbs", kFormat, binary, "FPMaxAbs", "", 46, "DMFloatMinMax", firstWords<2, 1, 1, 0>, "fpMaxTest"},
    {"FPMinMaxFused", kFormat, selected<binary, 1>, "FPMinMaxFused", "", 47, "DMFloatFusedMinMax", firstWords<2, 0>, "fpMinMaxFusedTest"},
    {"FPMinMaxAbsFused", kFormat, selected<binary, 1>, "FPMinMaxAbsFused", "", 47, "DMFloatFusedMinMax", firstWords<2, 1>, "fpMinMaxAbsFusedTest"},
    {"FPILogB", kFormat, toInteger, "FPILogB", "", 83, "DMFloatILogB", kFormatZero, "fpILogBTest"},
    // DMFloatCompare: wE, wF, type, subnormals, ordered.
    {"FPCompare", kComparison, comparison, "FPCompare", "", 49, "DMFloatCompare", firstWords<3, 0, 1>, "fpCompareTest"},
    {"FPCompareU", kComparison, comparison, "FPCompare", "", 49, "DMFloatCompare", firstWords<3, 0, 0>, "fpCompareTest"},
    {"FPCompareFused", kFormat, selected<comparison, 3>, "FPCompareFused", "", 56, "DMFloatCompareFused", kFormatZero, "fpCompareFusedTest"},
    {.word = "FPFusedHorner", .parameters = kPolynomialOf, .ports = unary, .component = "FPFusedHorner", .method = kFused, .type = 88, .unit = "DMFloatFusedHorner", .variant = onePolynomial, .unitName = "fpFusedHornerTest", .furtherWords = {"coefficient", coefficients<4>}, .refuses = refuseCoefficients},
    {.word = "FPFusedHornerExpert", .parameters = kExpertPolynomial, .ports = unary, .component = "FPFusedHorner", .method = kFused, .type = 88, .unit = "DMFloatFusedHorner", .variant = expertPolynomial, .unitName = "fpFusedHornerTest", .furtherWords = {"coefficient", coefficients<9>}, .refuses = refuseCoefficients},
    {.word = "FPFusedHornerMulti", .parameters = kPolynomials, .ports = chosenPolynomial, .component = "FPFusedHorner", .method = kFused, .type = 88, .unit = "DMFloatFusedHorner", .variant = severalPolynomials, .unitName = "fpFusedHornerTest", .furtherWords = {"coefficient", coefficientsOfAll}, .refuses = refuseCoefficients},
    // DMFloatLoge, DMFloatExpE: wE, wF, subnormals, 0.
    {"FPLn", kFormat, unary, "FPLn", kPolynomial, 91, "DMFloatLoge", firstWords<2, 0, 0>, "fpLogETest"},
    {"FPLog10", kFormat, unary, "FPLog10", kPolynomial, 93, "DMFloatLog10", kFormatZero, "fpLog10Test"},
    {"FPLog2", kFormat, unary, "FPLog2", kPolynomial, 94, "DMFloatLog2", kFormatZero, "fpLog2Test"},
    {"FPLn1px", kFormat, unary, "FPLn1px", kPolynomial, 92, "DMFloatLoge1px", kFormatZero, "fpLogE1pxTest"},
    {"FPExp2", kFormat, unary, "FPExp2", kPolynomial, 96, "DMFloatExp2", kFormatZero, "fpExp2Test"},
    {"FPExp10", kFormat, unary, "FPExp10", kPolynomial, 97, "DMFloatExp10", kFormatZero, "fpExp10Test"},
    {"FPExp", kFormat, unary, "FPExp", kPolynomial, 98, "DMFloatExpE", firstWords<2, 0, 0>, "fpExpETest"},
    {"FPExpM1", kFormat, unary, "FPExpM1", kPolynomial, 95, "DMFloatExpEM1", kFormatZero, "fpExpEM1Test"},
    {"FPLdExp", kScale, withInteger<true>, "FPLdExp", kPolynomial, 82, "DMFloatLdExp", scaled, "fpLdexpTest"},
    {"FPPowr", kFormat, binary, "FPPowr", kPolynomial, 99, "DMFloatPowr", kFormatZero, "fpPowrTest"},
    {"FPPow", kFormat, binary, "FPPow", kPolynomial, 101, "DMFloatPow", kFormatZero, "fpPowTest"},
    {"FPPown", kScale, withInteger<true>, "FPPow", kPolynomial, 100, "DMFloatPown", kFormatZero, "fpPownTest"},
    {"FPPownU", kScale, withInteger<false>, "FPPowU", kPolynomial, 100, "DMFloatPown", kFormatZero, "fpPownTest"},
    {"FPPowM0p75", kFormat, unary, "FPPow", kPolynomial, 100, "DMFloatPowCustom_M0p75", firstWords<2, 1, 0>, "fpPowM0p75Test"},
    {"FPAcc", kLongAccumulator, longAccumulation, "FPAcc", "", 14, "CFloatAcc", accumulatorBits, "fpAccTest"},
    {"FPFusedMultiFunction", kFormat, multiFunction, "FPFusedMultiFunction", "", 89, "DMFloatFusedMultiFunction", kFormatZero, "fpMultiFunctionFusedTest"},
};
// clang-format on

}  // namespace

std::span<const OperatorRow> floatProductRows() { return kRows; }

}  // namespace operators
