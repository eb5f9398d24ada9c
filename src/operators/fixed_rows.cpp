#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "operators/row_parts.h"
#include "operators/row_tables.h"
#include "util/constant_product.h"
#include "util/failure.h"
#include "util/mpz.h"
#include "util/words.h"

namespace operators {

namespace {

constexpr Parameter kShift[] = {integerWidth("wIn"), {"maxShift", 0, kMaxWidth}, choice("sign")};
constexpr Parameter kCount[] = {integerWidth("w"), choice("sign")};
constexpr Parameter kPrecisions[] = {fixedWidth("precIn"), fixedWidth("precOut")};
constexpr Parameter kSine[] = {fixedWidth("wIn"),
                               fractionLength("fIn"),
                               choice("sIn"),
                               {"fOut", 0, kMaxFixedWidth - 2},
                               choice("wA")};
constexpr Parameter kRoot[] = {fixedWidth("w"), fractionLength("fIn"), fractionLength("fOut"),
                               choice("inputInOneTwo"), choice("method")};
constexpr Parameter kSignedRoot[] = {fixedWidth("w"), fractionLength("fIn"), fractionLength("fOut"),
                                     choice("sIn"), choice("sOut")};
constexpr Parameter kReciprocal[] = {
    fixedWidth("w"),         fractionLength("fIn"), choice("sIn"),     fractionLength("fOut"),
    choice("inputInOneTwo"), choice("method"),      choice("function")};
constexpr Parameter kAngle[] = {fixedWidth("w"),  fractionLength("fIn"),
                                choice("sIn"),    {"fOut", 0, kMaxFixedWidth - 3},
                                choice("method"), choice("wA")};
constexpr int kVectorPrecision = 100;
constexpr Parameter kTranslation[] = {fixedWidth("w", kVectorPrecision),
                                      fractionLength("fIn"),
                                      choice("sIn"),
                                      {"fOut", 0, kVectorPrecision - 3},
                                      choice("compensated")};
constexpr Parameter kRotation[] = {fixedWidth("w", kMaxFixedWidth - 1),
                                   fractionLength("fIn"),
                                   choice("sIn"),
                                   {"fOut", 0, kMaxFixedWidth - 3},
                                   choice("compensated")};
// Conversions keep every bit of the fixed-point side, whatever the working precision.
constexpr Parameter kToFloat[] = {integerWidth("w"),   fractionLength("f"), choice("s"),
                                  exponentWidth("wE"), fractionWidth("wF"), choice("r")};
constexpr Parameter kIntegerToFloat[] = {integerWidth("w"), exponentWidth("wE"),
                                         fractionWidth("wF")};
constexpr Parameter kTruncated[] = {fixedWidth("precInX"), fixedWidth("precInY"),
                                    fixedWidth("precOut")};
constexpr Parameter kTruncatedExpert[] = {fixedWidth("wA"),     fractionLength("fA"), choice("sA"),
                                          fixedWidth("wB"),     fractionLength("fB"), choice("sB"),
                                          fixedWidth("precOut")};
constexpr Parameter kConstant[] = {fixedWidth("precInX"), number("constant"),
                                   fixedWidth("precOut")};
constexpr Parameter kConstantExpert[] = {
    fixedWidth("w"),       fractionLength("f"), choice("s"),   number("constant"),
    fixedWidth("precOut"), choice("constPrec"), choice("arch")};
constexpr Parameter kCropped[] = {
    fixedWidth("w"), {"f", 0, 0}, choice("s"), number("constant"), choice("precOut")};
constexpr Parameter kSigmoid[] = {{"fOut", 1, kMaxFixedWidth - 4}};
constexpr Parameter kMultiFunction[] = {fixedWidth("w")};
// Integer quotients are exact in this many bits.
constexpr int kQuotientPrecision = 530, kMaxQuotientWidth = 512;
constexpr Parameter kIntegerQuotient[] = {fixedWidth("w", kMaxQuotientWidth), choice("sign"),
                                          choice("arch")};
constexpr Parameter kWholeQuotient[] = {fixedWidth("w", kMaxFixedWidth / 2)};
constexpr Parameter kQuotient[] = {fixedWidth("wX"), fractionLength("fX"),
                                   fixedWidth("wY"), fractionLength("fY"),
                                   fixedWidth("wR"), fractionLength("fR")};
constexpr Parameter kDivisor[] = {fixedWidth("w", kMaxQuotientWidth), number("constant")};

using kiln::FixedPoint;

Ports sine(const Parameters& p) {
  return makePorts({{"a", FixedPoint(p[1], p[1], false)}}, {{"q", FixedPoint(p[2], p[2], false)}});
}

Ports rightShift(const Parameters& p) {
  const FixedPoint shifted = integer(p[1], p[3] > 0);
  return makePorts({{"a", shifted}, {"s", bits(util::bitsForValue(p[1]))}}, {{"q", shifted}});
}

// CBarrelShift: maxShift.
functions::Variant shiftLimit(const Parameters& p) { return {{p[2]}}; }

enum Outputs { kBoth, kSineOnly, kCosineOnly };

template <Outputs Which>
Ports sineOfPi(const Parameters& p) {
  Ports ports;
  ports.in.push_back("a", FixedPoint(p[1], p[2], p[3] > 0));
  const FixedPoint result(p[4] + 2, p[4], true);
  if (Which != kCosineOnly) ports.out.push_back("qs", result);
  if (Which != kSineOnly) ports.out.push_back("qc", result);
  return ports;
}

// DMFxPSinCosPiX: table address width, outputs.
template <Outputs Which>
functions::Variant sineTable(const Parameters& p) {
  return {{p[5], Which}};
}

Ports root(const Parameters& p) {
  return makePorts({{"a", FixedPoint(p[1], p[2], false)}}, {{"q", FixedPoint(p[1], p[3], false)}});
}

Ports signedRoot(const Parameters& p) {
  return makePorts({{"a", FixedPoint(p[1], p[2], p[4] > 0)}},
                   {{"q", FixedPoint(p[1], p[3], p[5] > 0)}});
}

// DMFxPSQRT, DMFxPInvSQRT: inputInOneTwo, method.
functions::Variant rootMethod(const Parameters& p) { return {{p[4] > 0, p[5]}}; }

Ports reciprocal(const Parameters& p) {
  return makePorts({{"a", FixedPoint(p[1], p[2], p[3] > 0)}},
                   {{"q", FixedPoint(p[1], p[4], p[3] > 0)}});
}

// DMFxPReciprocal: inputInOneTwo, method, function.
template <bool AnyFunction>
functions::Variant reciprocalMethod(const Parameters& p) {
  return {{p[5] > 0, p[6], AnyFunction ? p[7] : 0}};
}

std::optional<std::string> refuseFunction(const Parameters& p) {
  if (0 <= p[7] && p[7] <= 4) return std::nullopt;
  return "function " + p.text(7) + " is out of range 0 to 4";
}

// The point (x, y).
FixedPoint coordinate(const Parameters& p) { return {p[1], p[2], p[3] > 0}; }
FixedPoint angle(const Parameters& p) { return {(p[3] > 0) + p[4] + 2, p[4], true}; }

Ports angleOfPoint(const Parameters& p) {
  return makePorts({{"x", coordinate(p)}, {"y", coordinate(p)}}, {{"q", angle(p)}});
}

Ports translation(const Parameters& p) {
  const int fraction = p[4] + 1 + p[2] + (p[3] > 0) - p[1];
  return makePorts({{"x", coordinate(p)}, {"y", coordinate(p)}},
                   {{"q", angle(p)}, {"r", FixedPoint(p[4] + 2 + (p[5] <= 0), fraction, false)}});
}

Ports sineAndCosine(const Parameters& p) {
  const FixedPoint result((p[3] > 0) + p[4] + 1, p[4], p[3] > 0);
  return makePorts({{"a", coordinate(p)}}, {{"c", result}, {"s", result}});
}

Ports rotation(const Parameters& p) {
  const FixedPoint result(p[4] + 3 - (p[5] > 0), p[4], p[3] > 0);
  return makePorts(
      {{"x", coordinate(p)}, {"y", coordinate(p)}, {"a", FixedPoint(p[1] + 1, p[2], p[3] > 0)}},
      {{"xo", result}, {"yo", result}});
}

// DMFxPAtan2: 7, then method and table address width of an angle, or whether the gain of a vector
// is compensated. The ports tell the function.
functions::Variant angleMethod(const Parameters& p) { return {{7, p[5], p[6]}}; }
functions::Variant compensated(const Parameters& p) { return {{7, p[5] > 0}}; }

Ports toFloat(const Parameters& p) {
  return makePorts({{"a", FixedPoint(p[1], p[2], p[3] > 0)}}, {{"q", kiln::ieee(p[4], p[5])}});
}

Ports integerToFloat(const Parameters& p) {
  return makePorts({{"a", integer(p[1], true)}}, {{"q", kiln::ieee(p[2], p[3])}});
}

// DMFxPToFP: wE, wF, rounding, flags, rounding port, subnormals.
template <int... Numbers>
functions::Variant toFloatAs(const Parameters& p) {
  return {{p[4], p[5], Numbers...}};
}
functions::Variant toFloatExpert(const Parameters& p) { return {{p[4], p[5], p[6], 0, 0, 0}}; }
functions::Variant integerToFloatAs(const Parameters& p) { return {{p[2], p[3], 1, 1, 1, 0}}; }

void assertRounding(const Parameters& p) {
  LOAM_ASSERT(0 <= p[6] && p[6] <= 4, "Code should be unreachable");
}

Ports truncated(const Parameters& p) {
  return makePorts({{"a", FixedPoint(p[1], p[1], false)}, {"b", FixedPoint(p[2], p[2], false)}},
                   {{"q", FixedPoint(p[3], p[3], false)}});
}

Ports truncatedSigned(const Parameters& p) {
  return makePorts(
      {{"a", FixedPoint(p[1], p[1] - 1, true)}, {"b", FixedPoint(p[2], p[2] - 1, true)}},
      {{"q", FixedPoint(p[3], p[3] - 1, true)}});
}

// The top bits of the whole product.
Ports truncatedExpert(const Parameters& p) {
  const FixedPoint a(p[1], p[2], p[3] > 0), b(p[4], p[5], p[6] > 0);
  const int integerBits = a.width() - a.fraction() + b.width() - b.fraction();
  return makePorts({{"a", a}, {"b", b}},
                   {{"q", FixedPoint(p[7], p[7] - integerBits, a.sign() || b.sign())}});
}

Ports countOnes(const Parameters& p) { return makePorts({{"a", bits(p[1])}}, {{"q", bits(p[1])}}); }

// The type of `in` times a constant.
FixedPoint constantProductType(const FixedPoint& in, const std::string& word, int precOut,
                               int constPrec) {
  Real constant(53);
  mpfr_set_d(constant.get(), std::strtod(word.c_str(), nullptr), MPFR_RNDN);
  int width = 0, fraction = 0;
  bool isSigned = false;
  util::constantMultiplierOutputType(constant.get(), in.width(), in.fraction(), in.sign(), precOut,
                                     &width, &fraction, &isSigned, constPrec, /*cropped=*/false);
  return {width, fraction, isSigned};
}

template <bool IsSigned>
Ports constantProduct(const Parameters& p) {
  const FixedPoint a = integer(p[1], IsSigned);
  return makePorts({{"a", a}}, {{"q", constantProductType(a, p.text(2), p[3], 0)}});
}

template <bool Rounded>
Ports constantProductExpert(const Parameters& p) {
  const FixedPoint a(p[1], p[2], p[3] > 0);
  return makePorts({{"a", a}},
                   {{"q", constantProductType(a, p.text(4), p[5], Rounded ? p[6] : 0)}});
}

Ports croppedProduct(const Parameters& p) {
  const FixedPoint a(p[1], p[2], p[3] > 0);
  return makePorts({{"a", a}}, {{"q", a}});
}

// CFxPConstMult: correct, constPrec, architecture, cropped, 0; text: the constant.
functions::Variant constant(const Parameters& p) { return {{0, -1, 0, 0, 0}, {p.text(2)}}; }
functions::Variant constantExpert(const Parameters& p) { return {{0, -1, 0, 0, 0}, {p.text(4)}}; }
functions::Variant constantRounded(const Parameters& p) {
  return {{0, p[6], 0, 0, 0}, {p.text(4)}};
}
functions::Variant constantBuilt(const Parameters& p) {
  return {{0, p[6], p[7], 0, 0}, {p.text(4)}};
}
functions::Variant constantCropped(const Parameters& p) { return {{0, -1, 2, 1, 0}, {p.text(4)}}; }

std::string_view constantMethod(const Parameters& p) {
  return p[7] == 1 ? "KCM" : p[7] == 2 ? "SHIFTADD" : "AUTO";
}

template <int Number>
std::optional<std::string> refuseConstant(const Parameters& p) {
  return refuseNumber("constant", p.text(Number));
}

Ports sigmoid(const Parameters& p) {
  return makePorts({{"a", FixedPoint(p[1] + 4, p[1], true)}},
                   {{"q", FixedPoint(p[1] + 1, p[1], false)}});
}

Ports multiFunction(const Parameters& p) {
  const FixedPoint number = integer(p[1], true);
  return makePorts({{"x", number}, {"y", number}, {"z", number}, {"s", bits(2)}, {"sOp", bits(5)}},
                   {{"r", number}, {"c", bits(1)}});
}

Ports quotientOf(const FixedPoint& x, const FixedPoint& y, const FixedPoint& r) {
  return makePorts({{"x", x}, {"y", y}}, {{"r", r}});
}
template <bool IsSigned>
Ports integerQuotient(const Parameters& p) {
  const FixedPoint number = integer(p[1], IsSigned);
  return quotientOf(number, number, number);
}
Ports integerQuotientExpert(const Parameters& p) {
  const FixedPoint number = integer(p[1], p[2] > 0);
  return quotientOf(number, number, number);
}
Ports wholeQuotient(const Parameters& p) {
  return quotientOf(bits(p[1]), bits(p[1]), FixedPoint(2 * p[1], p[1], false));
}
template <bool IsSigned>
Ports quotient(const Parameters& p) {
  return quotientOf(FixedPoint(p[1], p[2], IsSigned), FixedPoint(p[3], p[4], IsSigned),
                    FixedPoint(p[5], p[6], IsSigned));
}

// DMFxPDiv: integer, architecture.
constexpr auto kInteger = always<1, 0>;
constexpr auto kReal = always<0, 0>;
functions::Variant integerDivider(const Parameters& p) { return {{1, p[3]}}; }

std::optional<util::MPZ> divisor(const Parameters& p) { return util::MPZ::fromText(p.text(2), 0); }

template <bool IsSigned>
Ports quotientByConstant(const Parameters& p) {
  return makePorts({{"x", integer(p[1], IsSigned)}},
                   {{"r", integer(p[1], IsSigned || divisor(p)->sign() < 0)}});
}

// DMFxPIntCstDiv: w, signed; text: the constant.
template <bool IsSigned>
functions::Variant constantDivider(const Parameters& p) {
  return {{p[1], IsSigned}, {p.text(2)}};
}

void announceDivisor(const Parameters& p) {
  if (!divisor(p)) std::printf("Error: failed to parse the constant\n");
}

std::optional<std::string> refuseDivisor(const Parameters& p) {
  const auto constant = divisor(p);
  if (!constant) return "constant " + p.text(2) + " is not an integer";
  if (constant->isZero()) return "constant 0 divides nothing";
  return std::nullopt;
}

template <std::size_t Count, std::size_t Size>
constexpr std::span<const Parameter> first(const Parameter (&parameters)[Size]) {
  static_assert(Count <= Size);
  return std::span(parameters).first(Count);
}

constexpr std::string_view kIdentity = "trigonometric identity + tables + taylor";

// clang-format off
constexpr OperatorRow kRows[] = {
    // word, parameters, ports, component, method, type, unit, variant, unit's name, twin's name, precision
    {"FXPSin", kPrecisions, sine, "FXPSin", kPolynomial, 1, "DMFxPSin", always, "sintest"},
    {"RightShiftNoSticky", kShift, rightShift, "RightShiftNoSticky", "na", 1, "CBarrelShift", shiftLimit, "rightShiftTest"},
    {"FXPSinCosPi", kSine, sineOfPi<kBoth>, "FXPSinCosPi", kIdentity, 2, "DMFxPSinCosPiX", sineTable<kBoth>, "sincospitest"},
    {"FXPSinPi", kSine, sineOfPi<kSineOnly>, "FXPSinPi", kIdentity, 2, "DMFxPSinCosPiX", sineTable<kSineOnly>, "sinpitest"},
    {"FXPCosPi", kSine, sineOfPi<kCosineOnly>, "FXPCosPi", kIdentity, 2, "DMFxPSinCosPiX", sineTable<kCosineOnly>, "cospitest"},
    {"FXPSqrt", first<3>(kRoot), root, "FXPSqrt", "", 4, "DMFxPSQRT", always<0, 0>, "sqrttest", "sqrtTestBench"},
    {"FXPSqrtExpert", kRoot, root, "FXPSqrt", "", 4, "DMFxPSQRT", rootMethod, "sqrttest", "sqrtTestBench"},
    {"FXPSqrtSigned", kSignedRoot, signedRoot, "FXPSqrt", "", 4, "DMFxPSQRT", always<0, 0>, "sqrttest", "sqrtTestBench"},
    {"FXPInvSqrt", first<3>(kRoot), root, "FXPInvSqrt", "", 3, "DMFxPInvSQRT", always<0, 0>, "invsqrttest", "invsqrtTestBench"},
    {"FXPInvSqrtExpert", kRoot, root, "FXPInvSqrt", "", 3, "DMFxPInvSQRT", rootMethod, "invsqrttest", "invsqrtTestBench"},
    {"FXPInvSqrtSigned", kSignedRoot, signedRoot, "FXPInvSqrt", "", 3, "DMFxPInvSQRT", always<0, 0>, "invsqrttest", "invsqrtTestBench"},
    {"FXPReciprocal", first<4>(kReciprocal), reciprocal, "FXPReciprocal", "", 5, "DMFxPReciprocal", always<0, 0, 0>, "reciprocalTest"},
    {"FXPReciprocalExpert", first<6>(kReciprocal), reciprocal, "FXPReciprocal", "", 5, "DMFxPReciprocal", reciprocalMethod<false>, "reciprocalTest"},
    {.word = "FXPFuncExpert", .parameters = kReciprocal, .ports = reciprocal, .component = "FXPFuncExpert", .type = 5, .unit = "DMFxPReciprocal", .variant = reciprocalMethod<true>, .unitName = "reciprocalTest", .testName = "funcTestBench", .refuses = refuseFunction},
    {"FXPAtan2", first<4>(kAngle), angleOfPoint, "FXPAtan2", "", 6, "DMFxPAtan2", always<7, 0, 0>, "atan2Test"},
    {"FXPAtan2Expert", kAngle, angleOfPoint, "FXPAtan2Expert", "", 6, "DMFxPAtan2", angleMethod, "atan2Test"},
    {"FXPVecTranslate", kTranslation, translation, "FXPVecTranslate", "", 6, "DMFxPAtan2", compensated, "vecTranslateTest", "", kVectorPrecision},
    {"FXPSinCosCordic", first<4>(kAngle), sineAndCosine, "FXPSinCosCordic", "", 6, "DMFxPAtan2", always<7>, "sincosTest"},
    {"FXPVecRotate", kRotation, rotation, "FXPVecRotate", "", 6, "DMFxPAtan2", compensated, "vecRotateTest", "vecRorateTestBench"},
    {"FXPToFP", first<5>(kToFloat), toFloat, "FXPToFP", "", 10, "DMFxPToFP", toFloatAs<1, 0, 0, 0>, "fxpToFPTest"},
    {.word = "FXPToFPExpert", .parameters = kToFloat, .ports = toFloat, .component = "FXPToFP", .type = 10, .unit = "DMFxPToFP", .variant = toFloatExpert, .unitName = "fxpToFPTest", .announce = assertRounding},
    {"FXPToFPExpertFlags", kToFloat, flagged<toFloat>, "FXPToFP", "", 10, "DMFxPToFP", toFloatAs<1, 1, 0, 0>, "fxpToFPTest"},
    {"FXPToFPFlagsDynRnd", kIntegerToFloat, flagged<selected<integerToFloat, 2>>, "FXPToFP", "", 10, "DMFxPToFP", integerToFloatAs, "fxpToFPTest"},
    {"FXPTruncMult", kTruncated, truncated, "FXPTruncMult", "", 7, "CFxPTruncMult", always<0, 0>, "truncMultTest"},
    {"FXPTruncMultSigned", kTruncated, truncatedSigned, "FXPTruncMult", "", 7, "CFxPTruncMult", always<0, 0>, "truncMultTest"},
    {"IntCtPop", kCount, countOnes, "IntCtPop", "AUTO", 103, "CCtpop", always, "CTPop"},
    {"FXPTruncMultExpert", kTruncatedExpert, truncatedExpert, "FXPTruncMult", "", 7, "CFxPTruncMult", always<0, 0>, "truncMultTest"},
    {.word = "FXPConstMult", .parameters = kConstant, .ports = constantProduct<false>, .component = "FXPConstMult", .method = "AUTO", .type = 8, .unit = "CFxPConstMult", .variant = constant, .unitName = "constMult", .refuses = refuseConstant<2>},
    {.word = "FXPConstMultSigned", .parameters = kConstant, .ports = constantProduct<true>, .component = "FXPConstMult", .method = "AUTO", .type = 8, .unit = "CFxPConstMult", .variant = constant, .unitName = "constMult", .refuses = refuseConstant<2>},
    {.word = "FXPConstMultExpert", .parameters = first<5>(kConstantExpert), .ports = constantProductExpert<false>, .component = "FXPConstMult", .method = "AUTO", .type = 8, .unit = "CFxPConstMult", .variant = constantExpert, .unitName = "constMult", .refuses = refuseConstant<4>},
    {.word = "FXPConstMultExpert2", .parameters = first<6>(kConstantExpert), .ports = constantProductExpert<true>, .component = "FXPConstMult", .method = "AUTO", .type = 8, .unit = "CFxPConstMult", .variant = constantRounded, .unitName = "constMult", .refuses = refuseConstant<4>},
    {.word = "FXPConstMultExpert3", .parameters = kConstantExpert, .ports = constantProductExpert<true>, .component = "FXPConstMult", .type = 8, .unit = "CFxPConstMult", .variant = constantBuilt, .unitName = "constMult", .methodOf = constantMethod, .refuses = refuseConstant<4>},
    {.word = "FXPConstMultExpertCropped", .parameters = kCropped, .ports = croppedProduct, .component = "FXPConstMult", .method = "AUTO_CROPPED", .type = 8, .unit = "CFxPConstMult", .variant = constantCropped, .unitName = "constMult", .refuses = refuseConstant<4>},
    {"FXPSigmoid", kSigmoid, sigmoid, "FPSIGMOID", "FP PA", 68, "DMFixedSigmoid", firstWords<1>, "fxpSigmoid"},
    {"FXPFusedMultiFunction", kMultiFunction, multiFunction, "FXPFusedMultiFunction", "", 89, "DMFxPFusedMultiFunction", firstWords<1>, "fxpMultiFunctionFusedTest"},
    {"IntDivU", first<1>(kIntegerQuotient), integerQuotient<false>, "FXPDiv", kPolynomial, 102, "DMFxPDiv", kInteger, "fxpDivTest", "", kQuotientPrecision},
    {"IntDivS", first<1>(kIntegerQuotient), integerQuotient<true>, "FXPDiv", kPolynomial, 102, "DMFxPDiv", kInteger, "fxpDivTest", "", kQuotientPrecision},
    {"IntDivExpert", kIntegerQuotient, integerQuotientExpert, "FXPDiv", kPolynomial, 102, "DMFxPDiv", integerDivider, "fxpDivTest", "", kQuotientPrecision},
    {"FXPDivUI", kWholeQuotient, wholeQuotient, "FXPDiv", kPolynomial, 102, "DMFxPDiv", kReal, "fxpDivTest"},
    {"FXPDivU", kQuotient, quotient<false>, "FXPDiv", kPolynomial, 102, "DMFxPDiv", kReal, "fxpDivTest"},
    {"FXPDivS", kQuotient, quotient<true>, "FXPDiv", kPolynomial, 102, "DMFxPDiv", kReal, "fxpDivTest"},
    {.word = "IntCstDivU", .parameters = kDivisor, .ports = quotientByConstant<false>, .component = "IntCstDiv", .method = kPolynomial, .type = 102, .unit = "DMFxPIntCstDiv", .variant = constantDivider<false>, .unitName = "cstIntDivTest", .precision = kQuotientPrecision, .announce = announceDivisor, .refuses = refuseDivisor},
    {.word = "IntCstDivS", .parameters = kDivisor, .ports = quotientByConstant<true>, .component = "IntCstDiv", .method = kPolynomial, .type = 102, .unit = "DMFxPIntCstDiv", .variant = constantDivider<true>, .unitName = "cstIntDivTestBench", .testName = "cstIntDivTestBench", .precision = kQuotientPrecision, .announce = announceDivisor, .refuses = refuseDivisor},
};
// clang-format on

}  // namespace

std::span<const OperatorRow> fixedRows() { return kRows; }

}  // namespace operators
