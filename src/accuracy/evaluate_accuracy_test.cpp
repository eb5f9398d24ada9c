#include "accuracy/evaluate_accuracy.h"

#include <fmt/format.h>
#include <fmt/printf.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <deque>
#include <filesystem>
#include <fstream>
#include <limits>

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// Each output is the product of both inputs; the tests' values make it exact, and the precision
// asked for rounds it.
struct Product final : CFuncUnitFunctionInterface {
  void evaluate(std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                const std::vector<unsigned>& precisions, const std::vector<mpfr_rnd_t>& roundings,
                bool subnormals) override {
    seenSubnormals = subnormals;
    results.resize(precisions.size());
    for (std::size_t j = 0; j < results.size(); ++j) {
      mpfr_ptr q = results[j].real.prepare(precisions[j]);
      mpfr_mul(q, inputs[0].real.get(), inputs[1].real.get(), roundings[j]);
      results[j].type = std::max(inputs[0].type, inputs[1].type);
    }
  }
  bool seenSubnormals = false;
};

std::string bitsOf(float x) {
  if (std::isnan(x)) return fmt::format("{:032b}", 0x7fc00001u);
  return fmt::format("{:032b}", std::bit_cast<std::uint32_t>(x));
}

struct Row {
  float a, b, q;
};

class Evaluation : public testing::Test {
 protected:
  Evaluation() {
    folder = fs::temp_directory_path() / fmt::format("evaluate_accuracy_test.{}", getpid());
    fs::create_directories(folder);
    setPorts(kiln::ieee(8, 23), kiln::ieee(8, 23));
    t.errorBounds = {1, 1};
  }
  ~Evaluation() override { fs::remove_all(folder); }

  void setPorts(const kiln::Type& input, const kiln::Type& output) {
    in = out = {};
    in.push_back("a", input);
    in.push_back("b", input);
    out.push_back("q", output);
  }
  std::string stimuli() const { return (folder / "in.stm").string(); }
  std::string results() const { return (folder / "out.stm.sim").string(); }
  void write(const std::string& stimulusText, const std::string& resultText) const {
    std::ofstream(stimuli()) << stimulusText;
    std::ofstream(results()) << resultText;
  }
  void write(const std::vector<Row>& rows) const {
    std::string stimulusText, resultText;
    int channel = 0;
    for (const Row& row : rows) {
      const std::string flow = fmt::format(" 1  {:08b} ", channel++ & 255);
      stimulusText += fmt::format("{} {}  {} \n", flow, bitsOf(row.a), bitsOf(row.b));
      resultText += fmt::format("{} {} \n", flow, bitsOf(row.q));
    }
    write(stimulusText, resultText);
  }
  std::string evaluate(int latency = 0) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(evaluateAccuracy(&product, in, out, latency, t, stimuli(), results()), 1);
    warnings = testing::internal::GetCapturedStderr();
    return testing::internal::GetCapturedStdout();
  }
  std::string evaluate(const std::vector<Row>& rows) {
    write(rows);
    return evaluate();
  }
  static std::string failures(int values, int specials) {
    return fmt::format("@out 0 #failedValues {} times@\n@out 0 #failedSpecial {} times@\n@@end\n",
                       values, specials);
  }
  // The figures of relative ("re") or absolute errors ("ae"), in `scale` units of the last place.
  static std::string figures(const char* kind, int port, double most, double least, double average,
                             double scale) {
    std::string text;
    for (const auto& [name, value] : {std::pair{"mp", most}, {"mn", least}, {"avg", average}})
      text += fmt::format("@{}{} out {} {:e} {:.3f}@\n", name, kind, port, value, value * scale);
    return text;
  }
  void expectFailure(const std::string& message, int latency = 0) {
    EXPECT_EXIT(evaluateAccuracy(&product, in, out, latency, t, stimuli(), results()),
                testing::ExitedWithCode(255), "^[^\n]*" + message + "[^\n]*\n$");
  }

  Product product;
  PortSpecList in, out;
  TestingOptions t;
  std::string warnings;
  fs::path folder;
};

TEST_F(Evaluation, FiguresAreThoseOfTheMachinesOwnArithmetic) {
  // Results at chosen distances in ulps from exact products of small integers.
  std::vector<Row> rows;
  double mpre = 0, mnre = 0, sumRe = 0, mpae = 0, mnae = 0, sumAe = 0;
  int failed = 0;
  for (int i = 1; i <= 400; ++i) {
    const float a = static_cast<float>(i), b = static_cast<float>(i % 7 - 3);
    if (b == 0) continue;
    const double exact = static_cast<double>(a) * b;
    float q = a * b;
    for (int steps = i % 5 - 2; steps != 0; steps += steps < 0 ? 1 : -1) {
      q = std::nextafter(q, steps < 0 ? -kInf : kInf);
    }
    rows.push_back({a, b, q});
    const double ae = exact - q, re = ae / exact;
    mpae = std::max(mpae, ae), mnae = std::min(mnae, ae), sumAe += std::fabs(ae);
    mpre = std::max(mpre, re), mnre = std::min(mnre, re), sumRe += std::fabs(re);
    failed += std::fabs(re) >= 0x1p-23;
  }
  const double count = static_cast<double>(rows.size());
  EXPECT_GT(failed, 100);
  EXPECT_EQ(evaluate(rows), "@@start\n" + figures("re", 0, mpre, mnre, sumRe / count, 0x1p23) +
                                figures("ae", 0, mpae, mnae, sumAe / count, 0x1p23) +
                                failures(failed, 0));
  EXPECT_EQ(warnings, "");
}

TEST_F(Evaluation, AFixedPortIsJudgedByAbsoluteErrors) {
  setPorts(kiln::FixedPoint(8, 4, true), kiln::FixedPoint(12, 6, true));
  out.push_back("r", kiln::ieee(8, 23));
  t.errorBounds = {1, 0.5f};
  // 1.5 * -0.75 = -1.125 = -72/64; the first port is off by half an ulp less than one, then by one
  const auto row = [](const char* q, float r) {
    return fmt::format(" 1  00000000  {}  {} \n", q, bitsOf(r));
  };
  const std::string stimulus = " 1  00000000  00011000  11110100 \n";
  write(stimulus + stimulus, row("111110111000", -1.125f) + row("111110111001", -1.125f));
  EXPECT_EQ(evaluate(), "@@start\n" + figures("re", 1, 0, 0, 0, 1) +
                            figures("ae", 0, 0, -1.5625e-2, 7.8125e-3, 64) +
                            figures("ae", 1, 0, 0, 0, 1) +
                            "@out 0 #failedValues 1 times@\n@out 0 #failedSpecial 0 times@\n"
                            "@out 1 #failedValues 0 times@\n@out 1 #failedSpecial 0 times@\n"
                            "@@end\n");
  t.errorBounds = {1.5f, 0.5f};
  EXPECT_THAT(evaluate(), HasSubstr("@out 0 #failedValues 0 times@"));
  // Beyond the port's range the exact result counts: 7.9375^2 = 63.00390625, the port ends
  // at 31.98.
  write(" 1  00000000  01111111  01111111 \n", row("011111111111", 63.00390625f));
  EXPECT_THAT(evaluate(), HasSubstr("@mpae out 0 3.101953e+01 "));
}

TEST_F(Evaluation, TheBoundItselfFails) {
  const std::vector<Row> rows = {{1, 1, 1 + 0x1p-23f}};  // off by exactly 2^-23
  t.errorBounds = {1};
  EXPECT_THAT(evaluate(rows), EndsWith(failures(1, 0)));
  t.errorBounds = {1.25f};
  EXPECT_THAT(evaluate(rows), EndsWith(failures(0, 0)));
  t.errorBounds = {0.5f};
  EXPECT_THAT(evaluate({{3, 1, 3 + 0x1p-22f}}), EndsWith(failures(1, 0)));
  EXPECT_THAT(evaluate({{3, 1, 3}}), EndsWith(failures(0, 0)));
}

TEST_F(Evaluation, SpecialValuesAreToldApart) {
  const float big = 0x1p100f, tiny = 0x1p-100f;
  struct Case {
    Row row;
    const char* line;  // nothing where both sides agree
  };
  for (const Case& c : {
           Case{{0, 1, 1.5f}, "out 0; soft out 0.000000; hard out 1.500000\n"},
           {{-1.5f, 1, -0.0f}, "out 0; soft out -1.500000; hard out -0.000000\n"},
           {{tiny, tiny, 1}, "out 0; soft out 0.000000; hard out 1.000000\n"},
           {{1, 1, kInf}, "out 0; soft out 1.000000 (exp 128, max 1); hard out inf\n"},
           {{kInf, 1, 1}, "out 0; soft out inf (exp 128, max 129); hard out 1.000000\n"},
           {{big, -big, 1}, "out 0; soft out -inf (exp 128, max 129); hard out 1.000000\n"},
           {{kNaN, 1, 1}, "out 0; soft out NAN; hard out 1.000000\n"},
           {{1, 2, kNaN}, "out 0; soft out 2.000000; hard out NAN\n"},
           {{0, 1, kInf}, "out 0; soft out 0.000000; hard out inf\n"},
           {{kNaN, 1, kInf}, "out 0; soft out NAN (exp 128, max 129); hard out inf\n"},
           {{kNaN, 1, kNaN}, ""},
           {{0, kInf, kNaN}, ""},
           {{0, -1, 0}, ""},
           {{tiny, tiny, 0}, ""},
           {{big, big, kInf}, ""},
           {{kInf, -1, kInf}, ""},
       }) {
    const bool agree = *c.line == '\0';
    const std::string console = evaluate({c.row, {1, 3, 3}});
    std::string line = c.line;
    // A NaN's double may have either sign, which the text shows.
    if (const auto at = line.find("NAN"); at != std::string::npos) {
      line.replace(at, 3, fmt::sprintf("%f", mpfr_get_d(Real(2).get(), MPFR_RNDN)));
    }
    EXPECT_THAT(console, StartsWith(line + "@@start\n@mpre out 0 0.000000e+00 "))
        << c.row.a << ' ' << c.row.b << ' ' << c.row.q;
    EXPECT_THAT(console, EndsWith(failures(0, agree ? 0 : 1)));
  }
}

TEST_F(Evaluation, OnlySubnormalsOnKeepSubnormals) {
  const std::vector<Row> rows = {{0x1p-140f, 0.5f, 0x1p-141f}, {0x1p-126f, 0.25f, 0x1p-127f}};
  EXPECT_THAT(evaluate(rows), EndsWith(failures(0, 0)));
  EXPECT_FALSE(product.seenSubnormals);
  t.subnormals = true;
  const std::string console = evaluate(rows);
  EXPECT_TRUE(product.seenSubnormals);
  EXPECT_THAT(console, HasSubstr("@mnre out 0 -1.000000e+00 -8388608.000@\n"));
  EXPECT_THAT(console, EndsWith(failures(1, 0)));
}

TEST_F(Evaluation, LibPortsHaveTheirOwnPatterns) {
  setPorts(kiln::fpLib(3, 2), kiln::fpLib(3, 2));
  t.errorBounds = {0.5f};
  // exception, sign, exponent (bias 3), fraction; 2^-3 is the lowest binade
  const std::pair<const char*, double> values[] = {
      {"01000000", 0x1p-3}, {"01000001", 0x1.4p-3}, {"01111111", 0x1.cp4}, {"01101111", -1.75},
      {"01001100", 1},      {"00111111", -0.0},     {"10100000", -kInf},   {"11010101", kNaN},
  };
  for (const auto& [bits, value] : values) {
    for (const auto& [shown, other] : values) {
      write(fmt::format(" 1  00000000  {}  01001100 \n", bits),
            fmt::format(" 1  00000000  {} \n", shown));
      const bool regular = std::isfinite(value) && value != 0, same = bits == shown;
      const bool bothRegular = regular && std::isfinite(other) && other != 0;
      EXPECT_THAT(evaluate(), EndsWith(failures(bothRegular && !same, !bothRegular && !same)))
          << bits << ' ' << shown;
    }
  }
}

TEST_F(Evaluation, DoNotCaresAreNotCompared) {
  const std::string dashes(32, '-'), one = bitsOf(1), flow = " 1  00000000 ";
  write(fmt::format("{0} {1}  {1} \n{0} {2}  {1} \n", flow, one, dashes),
        fmt::format("{0} {2} \n{0} {1} \n", flow, bitsOf(5), dashes));
  const std::string console = evaluate();
  EXPECT_THAT(console, StartsWith("@@start\n@mpre out 0 0.000000e+00 0.000@\n"));
  EXPECT_THAT(console, EndsWith(failures(0, 0)));
}

TEST_F(Evaluation, LatencyRowsStandInFrontOfTheResults) {
  std::vector<Row> rows;
  for (int i = 1; i <= 20; ++i) rows.push_back({1, static_cast<float>(i), static_cast<float>(i)});
  write(rows);
  std::ifstream file(results());
  std::string recorded((std::istreambuf_iterator<char>(file)), {});
  const std::string filling = " 0  00000000  " + std::string(32, 'X') + " \n";
  std::ofstream(results()) << filling + filling + filling + recorded;
  std::ofstream(stimuli(), std::ios::app)
      << std::string(" 0  00000001  ") + bitsOf(0) + "  " + bitsOf(0) + " \n \n";
  EXPECT_THAT(evaluate(3), EndsWith(failures(0, 0)));
  EXPECT_THAT(warnings, EndsWith("in.stm has 21 rows, " + results() + " 23; 20 were compared\n"));
  // One cycle off, every value fails, and the channel tells why.
  const std::string zeros = " 0  00000000  " + bitsOf(0) + " \n";
  std::ofstream(results()) << filling + zeros + recorded;
  EXPECT_THAT(evaluate(1), EndsWith(failures(19, 2)));
  EXPECT_THAT(warnings, HasSubstr("out.stm.sim: row 2: valid and channel are not those of the "
                                  "stimulus; was the latency of the unit 1?\n"));
}

TEST_F(Evaluation, AnEnableCarriesStimuliToTheirResults) {
  t.enable = true;
  for (const bool noChanValid : {false, true}) {
    for (const int latency : {0, 1, 4}) {
      t.noChanValid = noChanValid;
      const std::string filling = noChanValid ? "" : " 0  00000000 ";
      std::deque<std::string> unit(static_cast<std::size_t>(latency),
                                   filling + " " + std::string(32, 'U') + " \n");
      std::string stimulusText, resultText;
      for (int i = 0; i < 300; ++i) {
        const bool enable = i < 5 || i * i % 7 != 2;
        const std::string flow = noChanValid ? "" : fmt::format(" 1  {:08b} ", i & 255);
        const auto a = static_cast<float>(i + 1);
        stimulusText += fmt::format("{} {}  {}  {:d} \n", flow, bitsOf(a), bitsOf(3), enable);
        unit.push_back(fmt::format("{} {} \n", flow, bitsOf(3 * a)));
        resultText += unit.front();
        enable ? unit.pop_front() : unit.pop_back();
      }
      write(stimulusText, resultText);
      const std::string console = evaluate(latency);
      EXPECT_THAT(console,
                  StartsWith(latency == 0
                                 ? std::string("@@start\n")
                                 : fmt::format("Will create a new pipeline with enable=true having "
                                               "a latency of {} cycles \n@@start\n",
                                               latency)));
      EXPECT_THAT(console, EndsWith(failures(0, 0))) << latency;
      EXPECT_EQ(warnings, "");
    }
  }
  // Without the column the unit never stalls.
  t.noChanValid = true;
  write(bitsOf(2) + " " + bitsOf(3) + "\n", bitsOf(6) + "\n");
  EXPECT_THAT(evaluate(0), EndsWith(failures(0, 0)));
}

TEST_F(Evaluation, TheReferenceTakesTheUsersRounding) {
  setPorts(kiln::ieee(8, 23), kiln::ieee(8, 2));
  t.errorBounds = {0.5f};
  // 1.25 * 1.125 lies between 1.25 and 1.5
  for (const auto& [roundType, expected] :
       {std::pair{0, "00111111110"}, {1, "00111111101"}, {2, "00111111110"}, {3, "00111111101"}}) {
    t.roundType = roundType;
    write(fmt::format(" 1  00000000  {}  {} \n", bitsOf(1.25f), bitsOf(1.125f)),
          fmt::format(" 1  00000000  {} \n", expected));
    EXPECT_THAT(evaluate(), EndsWith(failures(0, 0))) << roundType;
  }
}

TEST_F(Evaluation, AFileThatCannotBeReadEndsTheRun) {
  write(" 1  00000000 ", "");
  const auto message = [&](const std::string& in1, const std::string& out1) {
    testing::internal::CaptureStdout();
    EXPECT_EXIT(evaluateAccuracy(&product, in, out, 0, t, in1, out1), testing::ExitedWithCode(255),
                "^-evaluateAccuracy: [^\n]*\n$");
    testing::internal::GetCapturedStdout();
  };
  message("nowhere", results());
  message(stimuli(), "nowhere");
  message(stimuli(), folder.string());
  message("", results());
}

TEST_F(Evaluation, ARowOfAnotherFormNamesFileAndRow) {
  const std::string one = bitsOf(1), good = " 1  00000000  " + one + "  " + one + " \n";
  const std::string answer = " 1  00000000  " + one + " \n";
  struct Case {
    std::string stimulus, result;
    const char* message;
  };
  for (const Case& c : {
           Case{good + " 1  00000000  " + one + " \n", answer + answer,
                "in.stm: row 2: 3 columns, expected 4"},
           {good, " 1  00000000  " + one + "  " + one + " \n",
            "out.stm.sim: row 1: 4 columns, expected 3"},
           {good + good, answer + " 1  00000000  0000",
            "out.stm.sim: row 2: '0000' of port q is "
            "not a number of 32 binary digits"},
           {good, " 1  00000000  " + std::string(32, 'X'), "row 1: 'X+' of port q is not"},
           {good, " 1  00000000  " + std::string(33, '1'), "row 1: '1+' of port q is not"},
           {" 1  0x  " + one + "  " + one, answer, "in.stm: row 1: '0x' of column 2 is not"},
           {" 2  00000000  " + one + "  " + one, answer, "in.stm: row 1: '2' of column 1 is not"},
           {good, std::string(1 << 20, '1'), "out.stm.sim: row 1: longer than"},
           {good, std::string(1 << 20, ' '), "out.stm.sim: row 1: longer than"},
           {std::string(50, '\0') + "\n", answer, "in.stm: row 1: "},
       }) {
    write(c.stimulus, c.result);
    expectFailure(c.message);
  }
  // Rows that are left out have their form all the same.
  write(good, " 1 \n" + answer);
  expectFailure("out.stm.sim: row 1: 1 columns, expected 3", 1);
  fs::remove(results());
  fs::create_symlink("/dev/zero", results());
  expectFailure("out.stm.sim: row 1: ");
}

TEST_F(Evaluation, EmptyFilesGiveZerosUndivided) {
  write("", "");
  EXPECT_EQ(evaluate(7), "@@start\n" + figures("re", 0, 0, 0, 0, 1) + figures("ae", 0, 0, 0, 0, 1) +
                             failures(0, 0));
}

}  // namespace
