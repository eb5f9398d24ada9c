#include <bit>
#include <cstdio>

#include "operators/row_parts.h"
#include "operators/row_tables.h"
#include "util/mpz.h"
#include "util/strings.h"

namespace operators {

namespace {

constexpr Parameter kFactor[] = {factorWidth("w")};
constexpr Parameter kModulus[] = {factorWidth("w"), {"base", 0, 62}, number("modulus")};
constexpr Parameter kFactors[] = {factorWidth("wX"), choice("sX"), factorWidth("wY"), choice("sY")};

Ports product(const kiln::FixedPoint& x, const kiln::FixedPoint& y) {
  Ports ports;
  ports.in.push_back("x", x);
  ports.in.push_back("y", y);
  ports.out.push_back("r", integer(x.width() + y.width(), x.sign() || y.sign()));
  return ports;
}

template <bool IsSigned>
Ports evenProduct(const Parameters& p) {
  return product(integer(p[1], IsSigned), integer(p[1], IsSigned));
}

Ports mixedProduct(const Parameters& p) {
  return product(integer(p[1], p[2] > 0), integer(p[3], p[4] > 0));
}

Ports square(const Parameters& p) {
  Ports ports;
  ports.in.push_back("x", bits(p[1]));
  ports.out.push_back("r", bits(2 * p[1]));
  return ports;
}

// Two factors, a modulus and the modulus's reciprocal.
Ports barrettProduct(const Parameters& p) {
  Ports ports;
  for (const char* name : {"x", "y", "z"}) ports.in.push_back(name, bits(p[1]));
  ports.in.push_back("v", bits(p[1] + 1));
  ports.out.push_back("r", bits(p[1]));
  return ports;
}

Ports productModuloConstant(const Parameters& p) {
  return makePorts({{"x", bits(p[1])}, {"y", bits(p[1])}}, {{"r", bits(p[1])}});
}

Ports productModulo(const Parameters& p) {
  return makePorts({{"x", bits(p[1])}, {"y", bits(p[1])}, {"z", bits(p[1])}}, {{"r", bits(p[1])}});
}

Ports reduction(const Parameters& p) {
  return makePorts({{"x", bits(2 * p[1])}, {"y", bits(p[1])}}, {{"r", bits(p[1])}});
}

// An integer and its reciprocal, which is a fraction.
Ports inverse(const Parameters& p) {
  return makePorts({{"x", bits(p[1])}}, {{"r", kiln::FixedPoint(p[1], p[1], false)}});
}

// DMFxPModularMult: architecture, and with a modulus its base; text: the modulus.
constexpr std::string_view kProduct = "DMFxPModularMult";
functions::Variant constantModulus(const Parameters& p) { return {{15, p[2]}, {p.text(3)}}; }

std::optional<std::string> refuseModulus(const Parameters& p) {
  if (p[2] == 1) return "base 1 is not 0 or 2 to 62";
  const auto modulus = util::MPZ::fromText(p.text(3), p[2]);
  if (!modulus) return "modulus " + p.text(3) + " is not an integer in base " + p.text(2);
  if (modulus->sign() <= 0) return "modulus " + p.text(3) + " is below 1";
  return std::nullopt;
}

// Exact integers at any width in range.
constexpr int kIntegerPrecision = 10000;

// The long adders: sixteen words from four independent properties.
struct LongAdder {
  bool isSigned = false, isMultiOperand = false, isExpert = false, hasBitGrowth = false;

  constexpr std::span<const Parameter> parameters() const;
  int operands(const Parameters& p) const { return isMultiOperand ? p[2] : 2; }
};

constexpr Parameter kAddends[] = {
    integerWidth("w"), {"n", kMinOperands, kMaxOperands}, choice("chunkLength")};
constexpr Parameter kTwoAddends[] = {integerWidth("w"), choice("chunkLength")};

constexpr std::span<const Parameter> LongAdder::parameters() const {
  if (isMultiOperand) return std::span(kAddends).first(isExpert ? 3 : 2);
  return std::span(kTwoAddends).first(isExpert ? 2 : 1);
}

template <LongAdder Adder>
Ports longAddPorts(const Parameters& p) {
  const kiln::FixedPoint addend = integer(p[1], Adder.isSigned);
  const int operands = Adder.operands(p);
  Ports ports;
  if (Adder.isMultiOperand) {
    for (int k = 0; k < operands; ++k) ports.in.push_back(util::conc("a", k), addend);
  } else {
    ports.in.push_back("x", addend);
    ports.in.push_back("y", addend);
  }
  // ceil(log2 n), which is 1 for two operands.
  const int growth = std::bit_width(static_cast<unsigned>(operands - 1));
  ports.out.push_back("r", integer(p[1] + (Adder.hasBitGrowth ? growth : 0), Adder.isSigned));
  return ports;
}

// CLongAdd: isSigned, chunkLength (chosen by itself for 0 and below), operands.
template <LongAdder Adder>
functions::Variant longAddVariant(const Parameters& p) {
  const int chunk = Adder.isExpert ? p[Adder.isMultiOperand ? 3 : 2] : 0;
  return {{Adder.isSigned, chunk, Adder.operands(p)}};
}

template <LongAdder Adder>
void announceLongAdd(const Parameters&) {
  std::printf("isSigned = %d isMultiOperand=%d isExpert=%d hasBitGrowth=%d\n", Adder.isSigned,
              Adder.isMultiOperand, Adder.isExpert, Adder.hasBitGrowth);
}

template <LongAdder Adder>
constexpr OperatorRow longAdd(std::string_view word) {
  return {.word = word,
          .parameters = Adder.parameters(),
          .ports = longAddPorts<Adder>,
          .component = "LongAdd",
          .method = "long adder",
          .type = 102,
          .unit = "CLongAdd",
          .variant = longAddVariant<Adder>,
          .unitName = "modularMult",
          .precision = kIntegerPrecision,
          .announce = announceLongAdd<Adder>};
}

constexpr std::string_view kKaratsuba = "flat karatsuba multiplication";
constexpr std::string_view kClassical = "classical schoolbook multiplication";

// clang-format off
constexpr OperatorRow kRows[] = {
    // word, parameters, ports, component, method, type, unit, variant, unit's name, twin's name, precision
    {"ModularMultEnhancedKaraRecFlat", kFactor, productModuloConstant, "ModularMult", kPolynomial, 102, kProduct, always<13>, "modularMult", "", kIntegerPrecision},
    {"ModularMultBarrettKaraFlatComp", kFactor, productModuloConstant, "ModularMult", kPolynomial, 102, kProduct, always<12>, "modularMult", "", kIntegerPrecision},
    {"ModularMultGenericBarrettFlat", kFactor, productModulo, "ModularMult", kPolynomial, 102, kProduct, always<9>, "modularMult", "", kIntegerPrecision},
    {"ModularMultGenericBarrettRec", kFactor, productModulo, "ModularMult", kPolynomial, 102, kProduct, always<10>, "modularMult", "", kIntegerPrecision},
    {"ModularMultBarrett", kFactor, barrettProduct, "ModularMult", kPolynomial, MODULAR_MULT_BARRETT, kProduct, always<14>, "modularMult", "", kIntegerPrecision},
    {.word = "ModularMultBarrettConstModulus", .parameters = kModulus, .ports = productModuloConstant, .component = "ModularMult", .method = kPolynomial, .type = 102, .unit = kProduct, .variant = constantModulus, .unitName = "modularMult", .precision = kIntegerPrecision, .refuses = refuseModulus},
    {"ModularReductionGenericBarrett", kFactor, reduction, "ModularMult", kPolynomial, 102, kProduct, always<17>, "modularMult", "", kIntegerPrecision},
    {"KaratsubaMultRec", kFactor, evenProduct<false>, "KaratsubaMult", kKaratsuba, 102, kProduct, always<3>, "modularMult", "", kIntegerPrecision},
    {"KaratsubaMultRecPoly", kFactor, evenProduct<false>, "KaratsubaMult", kKaratsuba, 102, kProduct, always<3>, "modularMult", "", kIntegerPrecision},
    {"KaratsubaMultRecInt", kFactor, evenProduct<false>, "KaratsubaMult", kKaratsuba, 102, kProduct, always<4>, "modularMult", "", kIntegerPrecision},
    {"KaratsubaMultRecIntComp", kFactor, evenProduct<false>, "KaratsubaMult", kKaratsuba, 102, kProduct, always<5>, "modularMult", "", kIntegerPrecision},
    {"KaratsubaMultFlatInt", kFactor, evenProduct<false>, "KaratsubaMult", kKaratsuba, 102, kProduct, always<6>, "modularMult", "", kIntegerPrecision},
    {"KaratsubaMultFlatIntComp", kFactor, evenProduct<false>, "KaratsubaMult", kKaratsuba, 102, kProduct, always<7>, "modularMult", "", kIntegerPrecision},
    {"KaratsubaMultFlatPoly", kFactor, evenProduct<false>, "KaratsubaMult", kKaratsuba, 102, kProduct, always<8>, "modularMult", "", kIntegerPrecision},
    {"MultSchoolbook", kFactor, evenProduct<false>, "SchoolbookMult", kClassical, 102, kProduct, always<2>, "schoolbookMult", "schoolbookTestBench", kIntegerPrecision},
    {"MultSchoolbookS", kFactor, evenProduct<true>, "SchoolbookMult", kClassical, 102, kProduct, always<2>, "schoolbookMult", "schoolbookTestBench", kIntegerPrecision},
    {"MultSchoolbookExpert", kFactors, mixedProduct, "SchoolbookMult", kClassical, 102, kProduct, always<2>, "schoolbookMult", "schoolbookTestBench", kIntegerPrecision},
    longAdd<LongAdder{}>("LongAdd"),
    longAdd<LongAdder{.isSigned = true}>("LongAddS"),
    longAdd<LongAdder{.isMultiOperand = true}>("LongAddMulti"),
    longAdd<LongAdder{.isSigned = true, .isMultiOperand = true}>("LongAddSMulti"),
    longAdd<LongAdder{.isExpert = true}>("LongAddExpert"),
    longAdd<LongAdder{.isSigned = true, .isExpert = true}>("LongAddSExpert"),
    longAdd<LongAdder{.isMultiOperand = true, .isExpert = true}>("LongAddMultiExpert"),
    longAdd<LongAdder{.isSigned = true, .isMultiOperand = true, .isExpert = true}>("LongAddSMultiExpert"),
    longAdd<LongAdder{.hasBitGrowth = true}>("LongAddBitGrowth"),
    longAdd<LongAdder{.isSigned = true, .hasBitGrowth = true}>("LongAddSBitGrowth"),
    longAdd<LongAdder{.isMultiOperand = true, .hasBitGrowth = true}>("LongAddMultiBitGrowth"),
    longAdd<LongAdder{.isSigned = true, .isMultiOperand = true, .hasBitGrowth = true}>("LongAddSMultiBitGrowth"),
    longAdd<LongAdder{.isExpert = true, .hasBitGrowth = true}>("LongAddBitGrowthExpert"),
    longAdd<LongAdder{.isSigned = true, .isExpert = true, .hasBitGrowth = true}>("LongAddSBitGrowthExpert"),
    longAdd<LongAdder{.isMultiOperand = true, .isExpert = true, .hasBitGrowth = true}>("LongAddMultiBitGrowthExpert"),
    longAdd<LongAdder{.isSigned = true, .isMultiOperand = true, .isExpert = true, .hasBitGrowth = true}>("LongAddSMultiBitGrowthExpert"),
    {"Inverse", kFactor, inverse, "ModularMult", kPolynomial, 102, kProduct, always<18>, "modularMult", "", kIntegerPrecision},
    {"Squarer", kFactor, square, "ModularMult", kPolynomial, 102, kProduct, always<19>, "modularMult", "", kIntegerPrecision},
};
// clang-format on

}  // namespace

std::span<const OperatorRow> longIntegerRows() { return kRows; }

}  // namespace operators
