#include "operators/floating_rows.h"

#include "operators/row_parts.h"

namespace operators {

namespace {

constexpr Parameter kFormat[] = {exponentWidth("wE"), fractionWidth("wF")};
constexpr Parameter kExpertFormat[] = {exponentWidth("wE"), fractionWidth("wF"),
                                       choice("tieBreaksToEven"), choice("architecture"),
                                       choice("degradeAccuracy")};
constexpr Parameter kProductFormats[] = {
    exponentWidth("wEA"), fractionWidth("wFA"), exponentWidth("wEB"),      fractionWidth("wFB"),
    exponentWidth("wER"), fractionWidth("wFR"), choice("ieeeTieBreakRule")};

constexpr Parameter kLongAccumulator[] = {exponentWidth("wE"), fractionWidth("wF"),
                                          weight("lsbA"), weight("msbA"), weight("maxMSBX")};

// The two ways of writing a number of the operator's own format on a port.
enum Form { kIeee, kLib };

kiln::FloatingPoint format(const Parameters& p, Form form) {
  return form == kLib ? kiln::fpLib(p[1], p[2]) : kiln::ieee(p[1], p[2]);
}

template <Form A = kIeee, Form B = kIeee, Form Q = kIeee>
Ports binary(const Parameters& p) {
  Ports ports;
  ports.in.push_back("a", format(p, A));
  ports.in.push_back("b", format(p, B));
  ports.out.push_back("q", format(p, Q));
  return ports;
}

Ports unary(const Parameters& p) {
  Ports ports;
  ports.in.push_back("a", format(p, kIeee));
  ports.out.push_back("q", format(p, kIeee));
  return ports;
}

Ports addSub(const Parameters& p) {
  Ports ports = binary(p);
  ports.in.push_back("opSel", bits(1));
  return ports;
}

Ports addSubExpert(const Parameters& p) {
  Ports ports = binary(p);
  ports.in.push_back("s", bits(1));
  return ports;
}

Ports sumAndDifference(const Parameters& p) {
  Ports ports = binary(p);
  ports.out.push_back("s", format(p, kIeee));
  return ports;
}

Ports multiplyAdd(const Parameters& p) {
  Ports ports = binary(p);
  ports.in.push_back("c", format(p, kIeee));
  return ports;
}

template <bool Product>
Ports accumulation(const Parameters& p) {
  Ports ports;
  ports.in.push_back("acc", bits(1));
  ports.in.push_back("a", format(p, kIeee));
  if (Product) ports.in.push_back("b", format(p, kIeee));
  ports.out.push_back("q", format(p, kIeee));
  return ports;
}

Ports longAccumulation(const Parameters& p) {
  Ports ports;
  ports.in.push_back("x", format(p, kIeee));
  ports.in.push_back("n", bits(1));
  ports.out.push_back("r", format(p, kIeee));
  for (const char* flag : {"xo", "xu", "ao"}) ports.out.push_back(flag, bits(1));
  return ports;
}

Ports mixedProduct(const Parameters& p) {
  Ports ports;
  ports.in.push_back("a", kiln::ieee(p[1], p[2]));
  ports.in.push_back("b", kiln::ieee(p[3], p[4]));
  ports.out.push_back("q", kiln::ieee(p[5], p[6]));
  return ports;
}

// CFloatAdd, CFloatAddSub: subtract, dualPath, tiesAway, degradeAccuracy.
template <bool Subtract>
std::vector<std::int64_t> expertSum(const Parameters& p) {
  return {Subtract, p[4] > 0, p[3] <= 0, p[5] > 0};
}

// CFloatAcc: lsbA, msbA, maxMSBX.
std::vector<std::int64_t> accumulatorBits(const Parameters& p) { return {p[3], p[4], p[5]}; }

// CFloatMult: 0, 0, tiesAway, 0.
std::vector<std::int64_t> expertProduct(const Parameters& p) { return {0, 0, p[7] <= 0, 0}; }

constexpr auto kSum = always<0, 0>;
constexpr auto kDualSum = always<0, 1>;
constexpr auto kDifference = always<1, 0>;
constexpr auto kDualDifference = always<1, 1>;
constexpr std::string_view kSingle = "single path";
constexpr std::string_view kDual = "dual path";

// clang-format off
constexpr OperatorRow kRows[] = {
    // word, parameters, ports, component, method, type, unit, variant, unit's name
    {"FPAdd", kFormat, binary, "FPAdd", kSingle, 15, "CFloatAdd", kSum, "fpAddTest"},
    {"FPAddInFPLib", kFormat, binary<kLib, kLib>, "FPAdd", kSingle, 15, "CFloatAdd", kSum, "fpAddTest"},
    {"FPAddInFPLibX", kFormat, binary<kLib, kIeee>, "FPAdd", kSingle, 15, "CFloatAdd", kSum, "fpAddTest"},
    {"FPAddInFPLibY", kFormat, binary<kIeee, kLib>, "FPAdd", kSingle, 15, "CFloatAdd", kSum, "fpAddTest"},
    {"FPAddInFPLibOutFPLib", kFormat, binary<kLib, kLib, kLib>, "FPAdd", kSingle, 15, "CFloatAdd", kSum, "fpAddTest"},
    {"FPAddInFPLibXOutFPLib", kFormat, binary<kLib, kIeee, kLib>, "FPAdd", kSingle, 15, "CFloatAdd", kSum, "fpAddTest"},
    {"FPAddInFPLibYOutFPLib", kFormat, binary<kIeee, kLib, kLib>, "FPAdd", kSingle, 15, "CFloatAdd", kSum, "fpAddTest"},
    {"FPAddDualPathInFPLib", kFormat, binary<kLib, kLib>, "FPAdd", kDual, 15, "CFloatAdd", kDualSum, "fpAddTest"},
    {"FPAddDualPathInFPLibX", kFormat, binary<kLib, kIeee>, "FPAdd", kDual, 15, "CFloatAdd", kDualSum, "fpAddTest"},
    {"FPAddDualPathInFPLibY", kFormat, binary<kIeee, kLib>, "FPAdd", kDual, 15, "CFloatAdd", kDualSum, "fpAddTest"},
    {"FPAddDualPathInFPLibOutFPLib", kFormat, binary<kLib, kLib, kLib>, "FPAdd", kDual, 15, "CFloatAdd", kDualSum, "fpAddTest"},
    {"FPAddDualPathInFPLibXOutFPLib", kFormat, binary<kLib, kIeee, kLib>, "FPAdd", kDual, 15, "CFloatAdd", kDualSum, "fpAddTest"},
    {"FPAddDualPathInFPLibYOutFPLib", kFormat, binary<kIeee, kLib, kLib>, "FPAdd", kDual, 15, "CFloatAdd", kDualSum, "fpAddTest"},
    {"FPSub", kFormat, binary, "FPSub", kSingle, 15, "CFloatAdd", kDifference, "fpSubTest"},
    {"FPSubInFPLib", kFormat, binary<kLib, kLib>, "FPSub", kSingle, 15, "CFloatAdd", kDifference, "fpSubTest"},
    {"FPSubInFPLibX", kFormat, binary<kLib, kIeee>, "FPSub", kSingle, 15, "CFloatAdd", kDifference, "fpSubTest"},
    {"FPSubInFPLibY", kFormat, binary<kIeee, kLib>, "FPSub", kSingle, 15, "CFloatAdd", kDifference, "fpSubTest"},
    {"FPSubInFPLibOutFPLib", kFormat, binary<kLib, kLib, kLib>, "FPSub", kSingle, 15, "CFloatAdd", kDifference, "fpSubTest"},
    {"FPSubInFPLibXOutFPLib", kFormat, binary<kLib, kIeee, kLib>, "FPSub", kSingle, 15, "CFloatAdd", kDifference, "fpSubTest"},
    {"FPSubInFPLibYOutFPLib", kFormat, binary<kIeee, kLib, kLib>, "FPSub", kSingle, 15, "CFloatAdd", kDifference, "fpSubTest"},
    {"FPSubDualPathInFPLib", kFormat, binary<kLib, kLib>, "FPSub", kDual, 15, "CFloatAdd", kDualDifference, "fpSubTest"},
    {"FPSubDualPathInFPLibX", kFormat, binary<kLib, kIeee>, "FPSub", kDual, 15, "CFloatAdd", kDualDifference, "fpSubTest"},
    {"FPSubDualPathInFPLibY", kFormat, binary<kIeee, kLib>, "FPSub", kDual, 15, "CFloatAdd", kDualDifference, "fpSubTest"},
    {"FPSubDualPathInFPLibOutFPLib", kFormat, binary<kLib, kLib, kLib>, "FPSub", kDual, 15, "CFloatAdd", kDualDifference, "fpSubTest"},
    {"FPSubDualPathInFPLibXOutFPLib", kFormat, binary<kLib, kIeee, kLib>, "FPSub", kDual, 15, "CFloatAdd", kDualDifference, "fpSubTest"},
    {"FPSubDualPathInFPLibYOutFPLib", kFormat, binary<kIeee, kLib, kLib>, "FPSub", kDual, 15, "CFloatAdd", kDualDifference, "fpSubTest"},
    {"FPAddExpert", kExpertFormat, binary, "FPAdd", kSingle, 15, "CFloatAdd", expertSum<false>, "fpAddTest"},
    {"FPMultAcc", kFormat, accumulation<true>, "FPMultAcc", "hard DSP", 26, "CFloatMultAcc", always<0>, "fpMultAccTest"},
    {"FPMultAdd", kFormat, multiplyAdd, "FPMultAdd", "multadd", 27, "CFloatMultAdd", always<0>, "fpMultAddTest"},
    {"FPMultSub", kFormat, multiplyAdd, "FPMultSub", "multsub", 28, "CFloatMultAdd", always<1>, "fpMultAddTest"},
    {"FPAccHard", kFormat, accumulation<false>, "FPAccHard", "hard DSP", 29, "CFloatMultAcc", always<1>, "fpAccTest"},
    {"FPAddSub", kFormat, addSub, "FPAddSub", kSingle, 24, "CFloatAddSub", kSum, "fpAddSubTest"},
    {"FPAddSubExpert", kExpertFormat, addSubExpert, "FPAddSub", kSingle, 24, "CFloatAddSub", expertSum<false>, "fpAddSubTest"},
    {"FPSubExpert", kExpertFormat, binary, "FPSub", kSingle, 15, "CFloatAdd", expertSum<true>, "fpSubTest"},
    {"FPFusedAddSub", kFormat, sumAndDifference, "FPFusedAddSub", kSingle, 25, "DMFloatFusedAddSub", always, "fpFusedAddSubTest"},
    {"FPAbs", kFormat, unary, "FPAbs", "", 41, "CFloatAbs", always, "fpAbsTest"},
    {"FPMul", kFormat, binary, "FPMul", "", 17, "CFloatMult", always, "fpMulTest"},
    {"FPMulExpert", kProductFormats, mixedProduct, "FPMul", "", 18, "CFloatMult", expertProduct, "fpMulTest"},
    {"FPMulOutFPLib", kFormat, binary<kIeee, kIeee, kLib>, "FPMul", "", 17, "CFloatMult", always, "fpMulTest"},
    {"FPAcc", kLongAccumulator, longAccumulation, "FPAcc", "", 14, "CFloatAcc", accumulatorBits, "fpAccTest"},
};
// clang-format on

}  // namespace

std::span<const OperatorRow> floatingRows() { return kRows; }

}  // namespace operators
