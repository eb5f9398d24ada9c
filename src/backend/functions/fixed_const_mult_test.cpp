#include "backend/functions/fixed_const_mult.h"

#include <cstdlib>
#include <random>

#include "backend/functions/integer_unit_test.h"
#include "util/constant_product.h"

namespace functions {
namespace {

FixedPoint outputFormat(const FixedPoint& in, const std::string& word, int width, int bits) {
  Real constant(53);
  mpfr_set_d(constant.get(), std::strtod(word.c_str(), nullptr), MPFR_RNDN);
  int w = 0, f = 0;
  bool s = false;
  util::constantMultiplierOutputType(constant.get(), in.width(), in.fraction(), in.sign(), width,
                                     &w, &f, &s, bits, false);
  return {w, f, s};
}

// The integers that q may show for a number of the input, made of exact integers.
struct Owed {
  std::vector<MPZ> accepted;
  MPZ low, high;  // around the exact result
};
Owed owed(const MPZ& x, const MPZ& mantissa, long places, const FixedPoint& out,
          const Accuracy& accuracy) {
  const auto width = static_cast<unsigned long>(out.width());
  const MPZ high = MPZ::allOnes(out.sign() ? width - 1 : width);
  const MPZ low = out.sign() ? -high - MPZ(1) : MPZ(0);
  const auto held = [&](const MPZ& n) { return std::clamp(n, low, high); };
  const MPZ exact = x * mantissa;  // in units of 2^-places of the last place
  const MPZ down = floorOf(exact, places), up = -floorOf(-exact, places);
  Owed result{{}, held(down), held(up)};
  if (accuracy.kind == Accuracy::kCorrect) {
    const MPZ size = exact.sign() < 0 ? -exact : exact;
    const MPZ nearest = floorOf((floorOf(size, places - 1) + MPZ(1)), 1);
    result.accepted = {held(exact.sign() < 0 ? -nearest : nearest)};
    return result;
  }
  // Pairs toward and away from zero; what lies between 0 and the first step counts from 0.
  MPZ inner = result.low, outer = result.high;
  if (exact.sign() < 0) std::swap(inner, outer);
  const int outward = exact.sign() < 0 ? -1 : 1;
  for (int step = 0; step < static_cast<int>(accuracy.ulps); ++step) {
    result.accepted.push_back(held(inner - MPZ(step * (inner.isZero() ? 1 : outward))));
    result.accepted.push_back(held(outer + MPZ(step * outward)));
  }
  return result;
}

struct Case {
  FixedPoint in;
  std::string word;
  int outputWidth;
  int constantBits = -1;
};

constexpr Accuracy kAccuracies[] = {kFaithful, kNearest, kTwo, kFive};

// Circuits of one constant for each accuracy and architecture, and the reference.
class Bench {
 public:
  explicit Bench(const Case& tested)
      : in(tested.in),
        out(outputFormat(tested.in, tested.word, tested.outputWidth, tested.constantBits)) {
    Real constant(53);
    mpfr_set_d(constant.get(), std::strtod(tested.word.c_str(), nullptr), MPFR_RNDN);
    if (tested.constantBits > 0) mpfr_prec_round(constant.get(), tested.constantBits, MPFR_RNDN);
    if (!mpfr_zero_p(constant.get()))
      places = -mpfr_get_z_2exp(mantissa.get(), constant.get()) + in.fraction() - out.fraction();
    label = fmt::format("{} {} {} times {} to {} {}", in.width(), in.fraction(), in.sign(),
                        tested.word, out.width(), out.fraction());
    std::vector<Request> requests;
    for (const Accuracy& accuracy : kAccuracies)
      for (const int architecture : {0, 1, 2}) {
        request.signature = {
            {in}, {out}, {{0, tested.constantBits, architecture, 0}, {tested.word}}};
        request.accuracy = {accuracy};
        requests.push_back(request);
      }
    circuit.emplace("CFxPConstMult", requests);
  }

  bool check(const MPZ& pattern) {
    const MPZ x = integerOf(pattern, in);
    const std::vector<MPZ> outputs = (*circuit)({pattern});
    bool right = true;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
      const Owed expected = owed(x, mantissa, places, out, kAccuracies[i / 3]);
      const MPZ got = integerOf(outputs[i], out);
      if (std::ranges::find(expected.accepted, got) != expected.accepted.end()) continue;
      ADD_FAILURE() << label << ": " << x.toText(10) << " gives " << got.toText(10) << " at "
                    << kAccuracies[i / 3].ulps << " ulp, architecture " << i % 3
                    << ", exact between " << expected.low.toText(10) << " and "
                    << expected.high.toText(10);
      right = false;
    }
    return checkReference(x) && right;
  }

  void checkAll() {
    for (unsigned long x = 0; x < 1ul << in.width(); ++x) ASSERT_TRUE(check(x));
  }

 private:
  // Rounded down and up: around the exact result, and the result itself where that is a number.
  bool checkReference(const MPZ& x) {
    arguments.resize(1);
    mpfr_set_z_2exp(arguments[0].real.prepare(300), x.get(), -in.fraction(), MPFR_RNDN);
    const Owed expected = owed(x, mantissa, places, out, {Accuracy::kWithin, 1});
    bool right = true;
    for (const bool up : {false, true}) {
      circuit->row.evaluate(request.signature, results, arguments, {200},
                            {up ? MPFR_RNDU : MPFR_RNDD}, false);
      mpfr_ptr value = results[0].real.get();
      EXPECT_FALSE(mpfr_zero_p(value) && mpfr_signbit(value));
      mpfr_mul_2si(value, value, out.fraction(), MPFR_RNDN);
      MPZ got;
      mpfr_get_z(got.get(), value, up ? MPFR_RNDU : MPFR_RNDD);
      EXPECT_EQ(got, up ? expected.high : expected.low) << label << " " << x.toText(10);
      right = right && got == (up ? expected.high : expected.low);
    }
    return right;
  }

  FixedPoint in, out;
  MPZ mantissa;
  long places = 0;
  std::string label;
  Request request;
  std::optional<UnitCircuit> circuit;
  std::vector<NumValue> arguments, results;
};

const char* const kWords[] = {"5",           "-5",     "0.693147180559945",
                              "-3.14159265", "1",      "-1",
                              "0.25",        "0",      "1e-3",
                              "255",         "-4",     "1e12",
                              "0.1",         "0.9999", "1e-200",
                              "1e200"};

TEST(FixedConstMult, AllNumbersOfNarrowInputs) {
  for (const char* word : kWords)
    for (const bool isSigned : {false, true})
      for (const int width : {1, 3, 6, 8})
        for (const int outputWidth : {1, 5, 8, 20})
          Bench({{width, 0, isSigned}, word, outputWidth}).checkAll();
}

TEST(FixedConstMult, AllNumbersOfTwelveAndMoreBits) {
  for (const char* word : {"0.693147180559945", "-3.14159265", "173", "0.1"})
    for (const bool isSigned : {false, true}) Bench({{12, 5, isSigned}, word, 12}).checkAll();
  Bench({{15, 15, false}, "0.693147180559945", 15}).checkAll();
  Bench({{14, -3, true}, "-0.577215664901532", 18}).checkAll();
}

TEST(FixedConstMult, AllNumbersTimesARoundedConstant) {
  for (const int bits : {1, 2, 5, 11, 53, 60})
    for (const char* word : {"0.693147180559945", "-3.14159265", "173"})
      Bench({{8, 3, true}, word, 9, bits}).checkAll();
}

TEST(FixedConstMult, DrawnAndHardNumbersOfWideInputs) {
  std::mt19937_64 random(1);
  for (const char* word : kWords)
    for (const auto& [width, outputWidth] :
         {std::pair{24, 24}, {32, 16}, {64, 64}, {64, 130}, {40, 20}}) {
      const bool isSigned = random() % 2 != 0;
      Bench bench({{width, 10, isSigned}, word, outputWidth});
      const auto places = static_cast<unsigned long>(width);
      for (const MPZ& x : {MPZ(0), MPZ(1), MPZ::allOnes(places), MPZ::powerOfTwo(places - 1),
                           MPZ::allOnes(places - 1), MPZ::powerOfTwo(places / 2)})
        bench.check(x);
      for (int i = 0; i < 60; ++i)
        bench.check(MPZ(static_cast<unsigned long>(random())).lowBits(places));
    }
}

// Truncated toward zero, then its low bits.
TEST(FixedConstMult, CroppedProductsOfAllNumbers) {
  for (const char* word : kWords)
    for (const bool isSigned : {false, true})
      for (const int width : {1, 3, 8})
        for (const int architecture : {0, 1, 2}) {
          const FixedPoint format(width, 0, isSigned);
          Request request;
          request.signature = {{format}, {format}, {{0, -1, architecture, 1}, {word}}};
          UnitCircuit circuit("CFxPConstMult", request);
          Real constant(53), product(2000);
          mpfr_set_d(constant.get(), std::strtod(word, nullptr), MPFR_RNDN);
          for (unsigned long pattern = 0; pattern < 1ul << width; ++pattern) {
            const MPZ x = integerOf(MPZ(pattern), format);
            mpfr_mul_z(product.get(), constant.get(), x.get(), MPFR_RNDN);
            MPZ whole;
            mpfr_get_z(whole.get(), product.get(), MPFR_RNDZ);
            const MPZ expected = whole.lowBits(static_cast<unsigned long>(width));
            ASSERT_EQ(circuit({MPZ(pattern)})[0], expected)
                << word << " " << x.toText(10) << " " << width << isSigned << architecture;
            std::vector<NumValue> results, arguments(1);
            mpfr_set_z(arguments[0].real.prepare(64), x.get(), MPFR_RNDN);
            circuit.row.evaluate(request.signature, results, arguments, {200}, {MPFR_RNDU}, false);
            MPZ reference;
            mpfr_get_z(reference.get(), results[0].real.get(), MPFR_RNDN);
            ASSERT_EQ(reference, integerOf(expected, format));
          }
        }
}

// Formats that no constant asks for: results saturate on both sides.
TEST(FixedConstMult, SaturatesInNarrowerFormats) {
  for (const bool inSigned : {false, true})
    for (const bool outSigned : {false, true})
      for (const char* word : {"3", "-3", "0.75", "-0.75"}) {
        const FixedPoint in(6, 0, inSigned), out(4, 0, outSigned);
        Request request;
        request.signature = {{in}, {out}, {{0, -1, 0, 0}, {word}}};
        request.accuracy = {{Accuracy::kCorrect, 0.5}};
        UnitCircuit circuit("CFxPConstMult", request);
        for (unsigned long pattern = 0; pattern < 64; ++pattern) {
          const MPZ x = integerOf(MPZ(pattern), in);
          const long nearest = std::lround(mpz_get_d(x.get()) * std::strtod(word, nullptr));
          const long held = outSigned ? std::clamp(nearest, -8L, 7L) : std::clamp(nearest, 0L, 15L);
          EXPECT_EQ(circuit({MPZ(pattern)})[0], MPZ(held).lowBits(4))
              << x.toText(10) << " " << word << outSigned;
        }
      }
}

}  // namespace
}  // namespace functions
