#include "vectors/stm_writer.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace {

std::string written(const std::function<void(FILE*)>& write) {
  char* text = nullptr;
  std::size_t size = 0;
  FILE* f = open_memstream(&text, &size);
  write(f);
  std::fclose(f);
  std::string result(text, size);
  free(text);
  return result;
}

NumValue valueOf(double x) {
  NumValue v;
  mpfr_set_d(v.real.prepare(53), x, MPFR_RNDN);
  return v;
}

TestingOptions as(OutputNumberType type, bool noChanValid = false) {
  TestingOptions t;
  t.testOutputType = type;
  t.noChanValid = noChanValid;
  return t;
}

constexpr auto BINARY = OutputNumberType::BINARY;
constexpr auto HEX = OutputNumberType::HEX;
constexpr auto SIGNED = OutputNumberType::SIGNED;

PortSpecList halfAndFixed() {
  PortSpecList ports;
  ports.push_back("x", kiln::ieee(5, 10));
  ports.push_back("s", kiln::FixedPoint(4, 1, true));
  return ports;
}

TEST(Numbers, ArePrintedInTheChosenBase) {
  struct Case {
    long value;
    unsigned width;
    OutputNumberType type;
    NumType numType;
    const char* text;
  };
  for (const Case& c : {Case{5, 16, BINARY, NumType::kValue, " 0000000000000101 "},
                        {-3, 5, BINARY, NumType::kValue, " 11101 "},
                        {5, 3, BINARY, NumType::kDontCare, " --- "},
                        {0x1234, 13, BINARY, NumType::kValue, " 1001000110100 "},
                        {8, 8, HEX, NumType::kValue, " 10 "},
                        {-9, 8, SIGNED, NumType::kValue, " -9 "}}) {
    EXPECT_EQ(
        written([&](FILE* f) { printNumber(f, util::MPZ(c.value), c.width, c.type, c.numType); }),
        c.text);
  }
  EXPECT_EQ(written([](FILE* f) { printNumber(f, 8, 8, HEX); }), " 8 ");
  EXPECT_EQ(written([](FILE* f) { printNumber(f, 254, 8, SIGNED); }), " 254 ");
  EXPECT_EQ(written([](FILE* f) { printNumber(f, 130, 8, BINARY); }), " 10000010 ");
  EXPECT_EQ(written([](FILE* f) { printNumber(f, 7, 1, BINARY); }), " 1 ");
}

TEST(Numbers, OfAnyWidthAreWrittenBitByBit) {
  gmp_randstate_t state;
  gmp_randinit_mt(state);
  for (unsigned width = 1; width < 1100; width += width < 140 ? 1 : 61) {
    util::MPZ number;
    mpz_rrandomb(number.get(), state, width);
    const std::string bits = fmt::format(" {:0>{}} ", number.toText(2), width);
    EXPECT_EQ(written([&](FILE* f) { printNumber(f, number, width, BINARY, NumType::kValue); }),
              bits);
  }
  gmp_randclear(state);
}

TEST(Rows, HoldFlowThenOneColumnForEachValue) {
  const PortSpecList ports = halfAndFixed();
  const std::vector<NumValue> values = {valueOf(-1.5), valueOf(-1)};
  const auto row = [&](TestingOptions t) {
    return written([&](FILE* f) { printToStimuliFile(f, values, ports, 1, 5, t, 1); });
  };
  EXPECT_EQ(row(as(BINARY)), " 1  00000101  1011111000000000  1110 \n");
  EXPECT_EQ(row(as(BINARY, true)), " 1011111000000000  1110 \n");
  EXPECT_EQ(row(as(HEX)), " 1  5  137000  16 \n");
  EXPECT_EQ(row(as(SIGNED)), " 1  5  48640  14 \n");
  TestingOptions enabled = as(BINARY, true);
  enabled.enable = true;
  EXPECT_EQ(row(enabled), " 1011111000000000  1110  1 \n");
  EXPECT_EQ(written([&](FILE* f) { printToFile(f, ports, values, 0, 255, 1, as(BINARY)); }),
            " 0  11111111  1011111000000000  1110 \n");
  EXPECT_EQ(written([](FILE* f) { printToStimuliFile(f, {}, {}, 1, 0, as(BINARY), 1); }),
            " 1  00000000 \n");
}

TEST(Rows, TakeARawPatternOnAFloatingPortAsItIs) {
  PortSpecList ports;
  ports.push_back("x", kiln::ieee(2, 1));
  NumValue raw;
  raw.raw = true;
  raw.pattern = util::MPZ(0b1101);
  NumValue dontCare = valueOf(0);
  dontCare.type = NumType::kDontCare;
  EXPECT_EQ(written([&](FILE* f) {
              printToStimuliFile(f, {raw, dontCare}, ports, 1, 0, as(BINARY, true), 1);
            }),
            " 1101  ---- \n");
}

TEST(Rows, OfResponsesHoldEachPortsAlternativesBroughtIntoRange) {
  const PortSpecList ports = halfAndFixed();
  const std::vector<std::vector<NumValue>> perPort = {{valueOf(1e9), valueOf(1e-30)},
                                                      {valueOf(99), valueOf(-99), valueOf(0.5)}};
  EXPECT_EQ(written([&](FILE* f) { printToStimuliFileVV(f, perPort, ports, 3, 1, as(BINARY)); }),
            " 1  00000011  0111110000000000  0000000000000000  0111  1000  0001 \n");
  const kiln::FloatingPoint small = kiln::ieee(2, 1);
  EXPECT_EQ(written([&](FILE* f) {
              printToStimuliFile(f, std::vector{valueOf(1)}, std::vector{valueOf(-1.5)}, {&small},
                                 2, as(BINARY));
            }),
            " 1  00000010  0010  1011 \n");
}

TEST(Rows, FillAndDrainThePipeline) {
  PortSpecList ports = halfAndFixed();
  TestingOptions t = as(BINARY);
  t.errorBounds = {2.5f, 0.5f};
  const std::string zeros = " 0000000000000000 ";
  EXPECT_EQ(written([&](FILE* f) { initialOutputPipelineFill(f, ports, 1, t); }),
            " 0  00000000 " + zeros + zeros + zeros + zeros + " 0000 \n");
  t.errorBounds = {0.75f};
  EXPECT_EQ(written([&](FILE* f) { initialOutputPipelineFill(f, ports, 2, t); }),
            " 0  00000000 " + zeros + " 0000 \n 0  00000000 " + zeros + " 0000 \n");
  EXPECT_EQ(written([&](FILE* f) { drainRows(f, ports, 1, t); }),
            " 0  00000001 " + zeros + " 0000 \n");
  EXPECT_EQ(written([&](FILE* f) { drainRows(f, ports, 1, as(SIGNED)); }), " 0  1  0  0 \n");
  EXPECT_EQ(written([&](FILE* f) { initialOutputPipelineFill(f, ports, 0, t); }), "");
}

}  // namespace
