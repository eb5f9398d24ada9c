#include "operators/integer_rows.h"

#include <bit>
#include <cstdio>

#include "operators/row_parts.h"
#include "util/strings.h"

namespace operators {

namespace {

constexpr Parameter kShift[] = {integerWidth("wIn"), {"maxShift", 0, kMaxWidth}, choice("sign")};
constexpr Parameter kCount[] = {integerWidth("w"), choice("sign")};
constexpr Parameter kFactor[] = {factorWidth("w")};
constexpr Parameter kFactors[] = {factorWidth("wX"), choice("sX"), factorWidth("wY"), choice("sY")};

Ports rightShift(const Parameters& p) {
  Ports ports;
  ports.in.push_back("a", integer(p[1], p[3] > 0));
  ports.in.push_back("s", bits(util::bitsForValue(p[1])));
  ports.out.push_back("q", integer(p[1], p[3] > 0));
  return ports;
}

// CBarrelShift: maxShift.
std::vector<std::int64_t> shiftLimit(const Parameters& p) { return {p[2]}; }

Ports countOnes(const Parameters& p) {
  Ports ports;
  ports.in.push_back("a", bits(p[1]));
  ports.out.push_back("q", bits(p[1]));
  return ports;
}

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

// DMFxPModularMult: architecture.
constexpr auto kSchoolbook = always<2>;
constexpr auto kBarrett = always<14>;
constexpr auto kSquare = always<19>;
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
std::vector<std::int64_t> longAddVariant(const Parameters& p) {
  const int chunk = Adder.isExpert ? p[Adder.isMultiOperand ? 3 : 2] : 0;
  return {Adder.isSigned, chunk, Adder.operands(p)};
}

template <LongAdder Adder>
void announceLongAdd() {
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

constexpr std::string_view kClassical = "classical schoolbook multiplication";

// clang-format off
constexpr OperatorRow kRows[] = {
    // word, parameters, ports, component, method, type, unit, variant, unit's name, twin's name, precision
    {"RightShiftNoSticky", kShift, rightShift, "RightShiftNoSticky", "na", 1, "CBarrelShift", shiftLimit, "rightShiftTest"},
    {"IntCtPop", kCount, countOnes, "IntCtPop", "AUTO", 103, "CCtpop", always, "CTPop"},
    {"ModularMultBarrett", kFactor, barrettProduct, "ModularMult", "polynomial approximation", MODULAR_MULT_BARRETT, "DMFxPModularMult", kBarrett, "modularMult", "", kIntegerPrecision},
    {"MultSchoolbook", kFactor, evenProduct<false>, "SchoolbookMult", kClassical, 102, "DMFxPModularMult", kSchoolbook, "schoolbookMult", "schoolbookTestBench", kIntegerPrecision},
    {"MultSchoolbookS", kFactor, evenProduct<true>, "SchoolbookMult", kClassical, 102, "DMFxPModularMult", kSchoolbook, "schoolbookMult", "schoolbookTestBench", kIntegerPrecision},
    {"MultSchoolbookExpert", kFactors, mixedProduct, "SchoolbookMult", kClassical, 102, "DMFxPModularMult", kSchoolbook, "schoolbookMult", "schoolbookTestBench", kIntegerPrecision},
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
    {"Squarer", kFactor, square, "ModularMult", "polynomial approximation", 102, "DMFxPModularMult", kSquare, "modularMult", "", kIntegerPrecision},
};
// clang-format on

}  // namespace

std::span<const OperatorRow> integerRows() { return kRows; }

}  // namespace operators
