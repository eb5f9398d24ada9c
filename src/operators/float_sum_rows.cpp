#include "operators/float_parts.h"
#include "operators/row_tables.h"
#include "util/strings.h"

namespace operators {

namespace {

constexpr Parameter kExpertFormat[] = {exponentWidth("wE"), fractionWidth("wF"),
                                       choice("tieBreaksToEven"), choice("architecture"),
                                       choice("degradeAccuracy")};
constexpr Parameter kTree[] = {exponentWidth("wE"), fractionWidth("wF"), operandCount("n")};
constexpr Parameter kBlockTree[] = {exponentWidth("wE"), fractionWidth("wF"), operandCount("n"),
                                    choice("p"),         choice("t"),         choice("s"),
                                    choice("z"),         choice("o"),         choice("d")};
// The elements of one vector; there are twice as many operands.
constexpr Parameter kVectors[] = {exponentWidth("wE"), fractionWidth("wF"), operandCount("n", 1)};
constexpr Parameter kGroupedVectors[] = {exponentWidth("wE"), fractionWidth("wF"),
                                         operandCount("n", 1), choice("k")};
constexpr Parameter kResizedVectors[] = {exponentWidth("wEIn"), fractionWidth("wFIn"),
                                         exponentWidth("wEOut"), fractionWidth("wFOut"),
                                         operandCount("n", 1)};
// The extended format has two exponent bits more than the other side.
constexpr Parameter kToExtended[] = {exponentWidth("wE", kMinExponent, kMaxExponent - 2),
                                     fractionWidth("wF")};
constexpr Parameter kFromExtended[] = {exponentWidth("wE", kMinExponent + 2), fractionWidth("wF")};
constexpr int kHalfTurnBits = 7;  // that the reduced angle has more
constexpr Parameter kReduction[] = {exponentWidth("wE"),
                                    fractionWidth("wF", kMaxFraction - kHalfTurnBits)};

Ports addSub(const Parameters& p) {
  Ports ports = binary(p);
  ports.in.push_back("opSel", bits(1));
  return ports;
}

Ports sumAndDifference(const Parameters& p) {
  Ports ports = binary(p);
  ports.out.push_back("s", format(p));
  return ports;
}

template <bool Product>
Ports accumulation(const Parameters& p) {
  Ports ports;
  ports.in.push_back("acc", bits(1));
  ports.in.push_back("a", format(p));
  if (Product) ports.in.push_back("b", format(p));
  ports.out.push_back("q", format(p));
  return ports;
}

Ports tree(const Parameters& p) {
  Ports ports;
  for (int k = 0; k < p[3]; ++k) ports.in.push_back(util::conc("a", k), format(p));
  ports.out.push_back("q", format(p));
  return ports;
}

Ports vectors(const Parameters& p, int elements, const kiln::Type& result) {
  Ports ports;
  for (int k = 0; k < elements; ++k)
    for (const char* vector : {"a", "b"}) ports.in.push_back(util::conc(vector, k), format(p));
  ports.out.push_back("q", result);
  return ports;
}

Ports dotProduct(const Parameters& p) { return vectors(p, p[3], format(p)); }
Ports resizedDotProduct(const Parameters& p) { return vectors(p, p[5], kiln::ieee(p[3], p[4])); }

Ports toExtended(const Parameters& p) {
  return makePorts({{"a", format(p)}}, {{"q", kiln::ieee(p[1] + 2, p[2])}, {"qExc", bits(3)}});
}

Ports fromExtended(const Parameters& p) {
  return makePorts({{"a", format(p)}, {"aExc", bits(3)}}, {{"q", kiln::ieee(p[1] - 2, p[2])}});
}

Ports extendedAddSub(const Parameters& p) {
  return makePorts(
      {{"a", format(p)}, {"aExc", bits(3)}, {"b", format(p)}, {"bExc", bits(3)}, {"sel", bits(1)}},
      {{"q", format(p)}, {"qExc", bits(3)}});
}

Ports reduced(const Parameters& p) {
  return makePorts({{"a", format(p)}}, {{"q", kiln::ieee(p[1], p[2] + kHalfTurnBits)}});
}

// CFloatAdd, CFloatAddSub: subtract, dualPath, tiesAway, degradeAccuracy.
template <bool Subtract>
functions::Variant expertSum(const Parameters& p) {
  return {{Subtract, p[4] > 0, p[3] <= 0, p[5] > 0}};
}

// DMFloatBFPAdderTree: wE, wF, n, padding, trim, both signs, zeros, overflows, dynamic range.
functions::Variant positiveBlockTree(const Parameters& p) {
  return {{p[1], p[2], p[3], p[4], p[5], 0, 1, 1, -1}};
}
functions::Variant expertBlockTree(const Parameters& p) {
  return {{p[1], p[2], p[3], p[4], p[5], p[6] > 0, p[7] > 0, p[8] > 0, p[9]}};
}

// COldFloatScalarProduct: n, 0, wE, wF, 0, k.
template <bool Grouped>
functions::Variant scalarProduct(const Parameters& p) {
  return {{p[3], 0, p[1], p[2], 0, Grouped ? p[4] : 0}};
}
// DMFloatFPCDotProduct, DMFloatFPCIEEEDotProduct: wE, wF, operands, constants.
template <int... Numbers>
functions::Variant dotProductOf(const Parameters& p) {
  return {{p[1], p[2], 2 * p[3], Numbers...}};
}
functions::Variant resizedDotProductOf(const Parameters& p) {
  return {{p[1], p[2], p[3], p[4], 2 * p[5], 0}};
}

constexpr auto kSum = always<0, 0>;
constexpr auto kDualSum = always<0, 1>;
constexpr auto kDifference = always<1, 0>;
constexpr auto kDualDifference = always<1, 1>;
constexpr std::string_view kSingle = "single path";
constexpr std::string_view kDual = "dual path";
constexpr std::string_view kAssembly = "operator assembly";

// clang-format off
constexpr OperatorRow kRows[] = {
    // word, parameters, ports, component, method, type, unit, variant, unit's name, twin's name
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
    {"FPAddMultSubnorm", kFormat, selected<binary, 1>, "FPAddMultSubnorm", "standard", 15, "DMFloatMultOrAddWSubnorm", firstWords<2>, "fpAddMultSubnorm"},
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
    {"FPMultAdd", kFormat, ternary, "FPMultAdd", "multadd", 27, "CFloatMultAdd", always<0>, "fpMultAddTest"},
    {"FPMultSub", kFormat, ternary, "FPMultSub", "multsub", 28, "CFloatMultAdd", always<1>, "fpMultAddTest"},
    {"FPAccHard", kFormat, accumulation<false>, "FPAccHard", "hard DSP", 29, "CFloatMultAcc", always<1>, "fpAccTest"},
    {"FPAddTreeFPCIEEE", kTree, tree, "FPAddTree", "", 104, "DMFloatFPCIEEEAdderTree", firstWords<3, 3>, "fpAddTest"},
    {"BFPAddTree", kTree, tree, "BFPAddTree", "", 111, "DMFloatBFPAdderTree", firstWords<3, 0, 0, 1, 1, 1, -1>, "fpAddTest"},
    {"BFPAddTreePos", std::span(kBlockTree).first(6), tree, "BFPAddTree", "", 111, "DMFloatBFPAdderTree", positiveBlockTree, "fpAddTest"},
    {"BFPAddTreeExpert", kBlockTree, tree, "BFPAddTree", "", 111, "DMFloatBFPAdderTree", expertBlockTree, "fpAddTest"},
    {"FPAddN", kTree, tree, "FPAddTree", "", 104, "CFloatAdd", kSum, "fpAddTest"},
    {"FPDotProductFPCIEEE", kVectors, dotProduct, "FPDotProduct", "", 108, "DMFloatFPCIEEEDotProduct", dotProductOf<0, 3>, "fpDotProductTest"},
    {"FPDotProductFPIEEE", kResizedVectors, resizedDotProduct, "FPDotProduct", "", 108, "DMFloatFPIEEEDotProduct", resizedDotProductOf, "fpDotProductTest"},
    {"FPDotProductFPC", kVectors, dotProduct, "FPDotProduct", "", 109, "DMFloatFPCDotProduct", dotProductOf<1, 0, 4>, "fpDotProductTest"},
    {"FPDotProductIEEE", kVectors, dotProduct, "FPDotProductIEEE", "", 109, "COldFloatScalarProduct", scalarProduct<false>, "fpScalarProduct"},
    {"FPDotProductIEEEExpert", kGroupedVectors, dotProduct, "FPDotProductIEEE", "", 109, "COldFloatScalarProduct", scalarProduct<true>, "fpScalarProduct"},
    {"FPAddTreeFPC", kTree, tree, "FPAddTree", "", 104, "DMFloatFPCAdderTree", firstWords<3, 3, 4>, "fpAddTest"},
    {"FPToFPCIEEE", kToExtended, toExtended, "FPToFP", "", 107, "DMFloatCastIEEEtoFPC", firstWords<2, 0>, "fpToFPCIEEECastTest", " fpToFPCIEEECastTestBench"},
    {"FPCIEEEToFP", kFromExtended, fromExtended, "FPToFP", "", 106, "DMFloatCastFPCToIEEE", firstWords<2, 0>, "fpcIEEEToFPCastTest", " fpcIEEEToFPCastTestBench"},
    {"FPCIEEEALU", kFormat, extendedAddSub, "FPAdd", "", 105, "DMFloatFPCIEEEALU", firstWords<2, 0>, "fpcIEEEALUTest"},
    {"FPAddSub", kFormat, addSub, "FPAddSub", kSingle, 24, "CFloatAddSub", kSum, "fpAddSubTest"},
    {"FPAddSubExpert", kExpertFormat, selected<binary, 1>, "FPAddSub", kSingle, 24, "CFloatAddSub", expertSum<false>, "fpAddSubTest"},
    {"FPSubExpert", kExpertFormat, binary, "FPSub", kSingle, 15, "CFloatAdd", expertSum<true>, "fpSubTest"},
    {"FPFusedAddSub", kFormat, sumAndDifference, "FPFusedAddSub", kSingle, 25, "DMFloatFusedAddSub", always, "fpFusedAddSubTest"},
    {"FPAbs", kFormat, unary, "FPAbs", "", 41, "CFloatAbs", always, "fpAbsTest"},
    {"FPHypot", kFormat, binary, "FPHypot", kAssembly, 84, "DMFloatHypot", firstWords<2, 0>, "fpHypotTest"},
    {"FPHypot3d", kFormat, ternary, "FPHypot", kAssembly, 85, "DMFloatHypot3d", firstWords<2, 0>, "fpHypot3dTest"},
    {"FPRangeReduction", kReduction, reduced, "FPRangeReduction", "mult and shift", 84, "DMFloatRangeReduction", firstWords<2, 0>, "fpRangeReductionTest"},
};
// clang-format on

}  // namespace

std::span<const OperatorRow> floatSumRows() { return kRows; }

}  // namespace operators
