// Functions in wide formats: many drawn and hard inputs of each operator word go through the graphs
// of its roundings, and each answer is compared with what MPFR gives.
//   function_draws COUNT WE WF [WORD...]   COUNT inputs a word, half of them with subnormals
//   function_draws words                   prints the words
// Prints "ok" or "FAILED" and a line a word; status 0 if all passed.

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "backend/functions/float_reference.h"
#include "backend/functions/float_test_support.h"
#include "backend/functions/undecided_results.h"
#include "operators/operator_row.h"

namespace functions::testing {
namespace {

int inverse(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_ui_div(r, 1, in[0].get(), direction);
}
int inverseSqrt(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_zero_p(in[0].get()) ? inverse(r, in, direction)
                                  : mpfr_rec_sqrt(r, in[0].get(), direction);
}
int inverseSquare(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_pow_si(r, in[0].get(), -2, direction);
}

struct Word {
  const char* word;
  const char* further;
  Operation function;
  Operation inverse;  // an argument of a result; of two arguments the first
  // Multiples of this by sums of few powers of two are where reductions and tables change.
  double unit;
  bool isAlgebraic;  // correct in every direction, in every format
};
constexpr Word kWords[] = {
    {"FPInverse", "", inverse, inverse, 1, true},
    {"FPInverseOutFPLib", "", inverse, inverse, 1, true},
    {"FPDiv", "0", ofTwo<mpfr_div>, ofTwo<mpfr_mul>, 1, true},
    {"FPDiv", "1", ofTwo<mpfr_div>, ofTwo<mpfr_mul>, 1, true},
    {"FPSqrt", "", ofFirst<mpfr_sqrt>, ofFirst<mpfr_sqr>, 1, true},
    {"FPSqrtLogic", "", ofFirst<mpfr_sqrt>, ofFirst<mpfr_sqr>, 1, true},
    {"FPRecipSqrt", "", inverseSqrt, inverseSquare, 1, true},
    {"FPExp", "", ofFirst<mpfr_exp>, ofFirst<mpfr_log>, M_LN2, false},
    {"FPExp2", "", ofFirst<mpfr_exp2>, ofFirst<mpfr_log2>, 1, false},
    {"FPLn", "", ofFirst<mpfr_log>, ofFirst<mpfr_exp>, 1, false},
    {"FPLog2", "", ofFirst<mpfr_log2>, ofFirst<mpfr_exp2>, 1, false},
    {"FPLog10", "", ofFirst<mpfr_log10>, ofFirst<mpfr_exp10>, 1, false},
    {"FPSinPiX", "", ofFirst<mpfr_sinpi>, ofFirst<mpfr_asinpi>, 1, false},
    {"FPSinX", "", ofFirst<mpfr_sin>, ofFirst<mpfr_asin>, M_PI, false},
};

struct Rounding {
  const char* name;
  RoundMode mode;
  bool isFaithful;
};
constexpr Rounding kRoundings[] = {{"faithful", RoundMode::kNearestEven, true},
                                   {"nearest", RoundMode::kNearestEven, false},
                                   {"down", RoundMode::kDown, false},
                                   {"up", RoundMode::kUp, false},
                                   {"toward zero", RoundMode::kTowardZero, false}};

int itself(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_check_range(r, mpfr_set(r, in[0].get(), direction), direction);
}

// One word with or without subnormals.
class Check {
 public:
  Check(const Word& word, const operators::OperatorRow& row,
        const operators::Parameters& parameters, bool subnormals)
      : word(word), unit(*findUnit(row.unit)) {
    const operators::Ports ports = row.ports(parameters);
    functions::Request request;
    for (const PortSpec& port : ports.in) request.signature.in.push_back(port.type);
    for (const PortSpec& port : ports.out) request.signature.out.push_back(port.type);
    request.signature.variant = row.variant(parameters);
    request.subnormals = request.quietNaN = subnormals;
    signature = request.signature;
    in = {*ports.in[0].type.as_floating_point(), subnormals, subnormals};
    out = {*ports.out[0].type.as_floating_point(), subnormals, subnormals};
    // Gaps are known of formats of 16 bits and of single precision.
    isDecided = word.isAlgebraic || in.format.exp + in.format.frac <= 15 ||
                (in.format.exp == 8 && in.format.frac == 23);
    if (word.unit == M_PI) hardest = hardestRadians(in.format, 1 + (in.format.exp > 11 ? 37 : 0));
    graph::Builder builder(circuit);
    std::vector<graph::Signal> inputs;
    for (const PortSpec& port : ports.in)
      inputs.push_back(builder.input(port.name, port.type.width()));
    for (const Rounding& rounding : kRoundings) {
      request.accuracy = {rounding.isFaithful ? Accuracy{} : Accuracy{Accuracy::kCorrect, 0.5}};
      request.rounding.fixed = rounding.mode;
      if (const auto reason = unit.refuses(request)) {
        refused += fmt::format(", {}: {}", rounding.name, *reason);
        continue;
      }
      builder.output(rounding.name, unit.decompose(builder, request, inputs)[0]);
      roundings.push_back(rounding);
    }
    evaluator = std::make_unique<graph::Evaluator>(circuit);
  }

  // False after five wrong answers.
  bool run(int count, unsigned seed) {
    Draws draws(seed);
    int wrong = 0;
    const std::size_t ports = circuit.inputs().size();
    for (int i = 0; i < count && wrong < 5; ++i) {
      std::vector<MPZ> row;
      while (row.size() < ports) row.push_back(draws.number(in.format));
      if (i % 4 == 1) row[0] = ofResult(draws, row);
      if (i % 4 == 2) row[0] = atSegmentEnd(draws);
      if (i % 4 == 3 && !hardest.empty())
        row[0] = hardest[static_cast<std::size_t>(i / 4) % hardest.size()] + MPZ(draws.below(2));
      if (!isRight(row)) ++wrong;
    }
    return wrong == 0;
  }

  std::string refused;
  std::map<std::string, long>
      undecided;  // answers that are another rounding than the exact result's

 private:
  // Near an argument whose result is a number or the middle of two.
  MPZ ofResult(Draws& draws, const std::vector<MPZ>& row) {
    const Real drawn = decode(draws.number(out.format), out);
    Real result(out.precision() + 2), x(in.precision());
    mpfr_set(result.get(), drawn.get(), MPFR_RNDN);
    if (mpfr_regular_p(result.get()) && draws.below(2) == 0) {
      mpfr_prec_round(result.get(), out.precision() + 1, MPFR_RNDN);
      mpfr_nextabove(result.get());
    }
    std::vector<Real> values{result};
    if (row.size() > 1) values.push_back(decode(row[1], in));
    word.inverse(x.get(), values, MPFR_RNDN);
    return besides(draws, x);
  }
  MPZ atSegmentEnd(Draws& draws) {
    Real x(in.precision()), unit(in.precision() + 8);
    const int places = draws.below(25), above = draws.below(in.format.exp + 1);
    mpfr_set_z_2exp(x.get(), draws.bits(places + above).get(), -places, MPFR_RNDN);
    if (draws.below(2) == 0) mpfr_neg(x.get(), x.get(), MPFR_RNDN);
    if (word.unit == M_PI) mpfr_const_pi(unit.get(), MPFR_RNDN);
    if (word.unit == M_LN2) mpfr_const_log2(unit.get(), MPFR_RNDN);
    if (word.unit != 1) mpfr_mul(x.get(), x.get(), unit.get(), MPFR_RNDN);
    // Roots and logarithms have segments in each binade, or in two.
    if (word.unit == 1 && draws.below(2) == 0)
      mpfr_mul_2si(x.get(), x.get(), draws.below(1 << in.format.exp) - in.half(), MPFR_RNDN);
    return besides(draws, x);
  }
  MPZ besides(Draws& draws, Real& x) {
    if (mpfr_regular_p(x.get())) {
      for (int steps = draws.below(3); steps > 0; --steps) mpfr_nextabove(x.get());
      if (draws.below(3) == 0) mpfr_nextbelow(x.get());
    }
    return encode(x.get(), in);
  }

  bool isRight(const std::vector<MPZ>& row) {
    std::vector<Real> values;
    for (const MPZ& pattern : row) values.push_back(decode(pattern, in));
    // One evaluation, rounded to odd, stands for the exact result in all further roundings.
    const mpfr_prec_t wide = out.precision() + 32;
    std::vector<Real> exact{Real(wide)};
    mpfr_ptr r = exact[0].get();
    const bool isExact = word.function(r, values, MPFR_RNDZ) == 0;
    if (!isExact && mpfr_number_p(r) && (mpfr_zero_p(r) || mpfr_min_prec(r) < wide))
      mpfr_signbit(r) ? mpfr_nextbelow(r) : mpfr_nextabove(r);
    const std::vector<MPZ> got = (*evaluator)(row);
    const Truth truth(itself, exact, out);
    bool right = true;
    for (std::size_t k = 0; k < roundings.size(); ++k) {
      const Rounding& rounding = roundings[k];
      const MPZ rounded = encode(truth.inMode(rounding.mode).get(), out);
      const bool isUndecided = !rounding.isFaithful && !isDecided;
      std::vector<MPZ> accepted = rounding.isFaithful ? truth.within(1) : std::vector{rounded};
      if (isUndecided && !isExact && mpfr_regular_p(r)) accepted = aside(r, rounding);
      if (isUndecided) accepted.resize(2, rounded);
      const bool isListed = !isUndecided || accepted == listed(values, rounding);
      if (isListed && std::ranges::find(accepted, got[k]) != accepted.end()) {
        if (isUndecided && got[k] != rounded) ++undecided[rounding.name];
        continue;
      }
      right = false;
      std::string text;
      for (const MPZ& pattern : row) text += fmt::format(" {}", pattern.toText(16));
      fmt::print("{} {} {}, {}{}:{} gives {}, not {}{}\n", word.word, in.format.exp, in.format.frac,
                 rounding.name, in.subnormals ? ", subnormals" : "", text, got[k].toText(16),
                 accepted[0].toText(16), isListed ? "" : ", or the vectors accept others");
    }
    return right;
  }

  // The roundings of the numbers 2^-20 ulp below and above the exact result.
  std::vector<MPZ> aside(mpfr_srcptr r, const Rounding& rounding) const {
    std::vector<MPZ> patterns;
    for (const int sign : {-1, 1}) {
      std::vector<Real> moved{Real(out.precision() + 34)};
      Real step(2);
      mpfr_set_si_2exp(step.get(), sign, mpfr_get_exp(r) - out.precision() - 20, MPFR_RNDN);
      mpfr_add(moved[0].get(), r, step.get(), MPFR_RNDN);
      patterns.push_back(encode(Truth(itself, moved, out).inMode(rounding.mode).get(), out));
    }
    return patterns;
  }

  // What test vectors accept.
  std::vector<MPZ> listed(const std::vector<Real>& values, const Rounding& rounding) {
    std::vector<NumValue> low, high, stimulus(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) stimulus[i].real = values[i];
    evaluateUndecided(unit, signature, low, high, stimulus,
                      {static_cast<unsigned>(out.precision())}, {directionOf(rounding.mode)},
                      out.subnormals);
    return {encode(low[0].real.get(), out), encode(high[0].real.get(), out)};
  }

  const Word& word;
  const UnitRow& unit;
  Signature signature;
  Port in{ieeePort()}, out{ieeePort()};
  bool isDecided = true;
  std::vector<MPZ> hardest;
  graph::Graph circuit;
  std::vector<Rounding> roundings;
  std::unique_ptr<graph::Evaluator> evaluator;

  static Port ieeePort() { return {kiln::ieee(8, 23), false, false}; }
};

// Prints a word's line; false when an answer was wrong.
bool proves(const Word& word, int count, std::vector<std::string> format) {
  using Clock = std::chrono::steady_clock;
  const auto seconds = [](Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
  };
  const operators::OperatorRow& row = *operators::findOperator(word.word);
  if (*word.further) format.emplace_back(word.further);
  const operators::Parameters parameters(format, row.parameters.size());
  bool passed = true;
  std::string undecided;
  double building = 0, running = 0;
  std::string refused;
  for (const bool subnormals : {false, true}) {
    auto start = Clock::now();
    Check check(word, row, parameters, subnormals);
    building += seconds(start);
    start = Clock::now();
    passed = check.run(count / 2, subnormals ? 2 : 1) && passed;
    running += seconds(start);
    for (const auto& [rounding, answers] : check.undecided)
      undecided += fmt::format(", {} {} near a decision", answers, rounding);
    refused = check.refused;
  }
  fmt::print("{} {} inputs{}, {:.1f} s built, {:.1f} s | {}{}{} {} {}{}\n",
             passed ? "ok" : "FAILED", count, undecided, building, running, word.word,
             *word.further ? " version " : "", word.further, format[0], format[1], refused);
  std::fflush(stdout);
  return passed;
}

}  // namespace
}  // namespace functions::testing

int main(int argc, char** argv) {
  using namespace functions::testing;
  if (argc == 2 && argv[1] == std::string("words")) {
    std::string last;
    for (const Word& word : kWords)
      if (std::exchange(last, word.word) != word.word) std::puts(word.word);
    return 0;
  }
  if (argc < 4) {
    std::fprintf(stderr, "function_draws: COUNT WE WF [WORD...] | words\n");
    return util::kFailureStatus;
  }
  const std::vector<std::string> chosen(argv + 4, argv + argc);
  const FullExponentRange guard;
  bool passed = true;
  for (const Word& word : kWords)
    if (chosen.empty() || std::ranges::find(chosen, word.word) != chosen.end())
      passed = proves(word, std::atoi(argv[1]), {argv[2], argv[3]}) && passed;
  return passed ? 0 : 1;
}
