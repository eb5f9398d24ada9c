// All single-precision inputs of a function, or a part of them, through the C++ model of its unit.
// Built with the header of the model put in front (-include topModel_model.h) and its source.
//   shard FUNCTION SUBNORMALS ULPS ABOVE BELOW SUBNORMAL K N FILE
// checks the K-th of N parts, K from 0: each answer is the number below or above the exact result
// (ULPS 1) or the nearest one (0.5), and within ABOVE and BELOW ulps of it, or within SUBNORMAL
// where it is subnormal. FILE receives one line of JSON at the end; a FILE that is there already is
// left, and nothing is done. Status 0 when no answer was wrong.

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "function_truth.h"

namespace {

using truth::Function;
using truth::Place;
using truth::Truth;

struct Extreme {
  double ulps = 0;
  std::uint32_t input = 0;
  void see(double error, std::uint32_t x) {
    if (error > ulps) ulps = error, input = x;
  }
};

struct Claim {
  double ulps, above, below, subnormal;
  bool holds(const Place& place, double error, double allowance) const {
    const bool isSubnormal = place.floor < truth::kSmallestNormal;
    return error + allowance <= (isSubnormal ? subnormal : above) &&
           allowance - error <= (isSubnormal ? subnormal : below);
  }
};

struct Tally {
  std::uint64_t special = 0;     // one answer only: NaN, infinities, zeros, poles
  std::uint64_t outOfRange = 0;  // delivered as zero or infinity
  std::uint64_t compared = 0;    // numbers
  std::uint64_t nearest = 0;     // of those
  std::uint64_t byMpfr = 0, confirmed = 0, wrong = 0;
  double screen = 0;  // the largest difference between doubles and MPFR, in ulps
  Extreme above, below;
  std::string examples;
};

std::uint32_t answerTo(std::uint32_t x) {
  topModel_inputs in;
  in.a = x;
  return static_cast<std::uint32_t>(topModel(in).q);
}

void report(Tally& tally, std::uint32_t x, std::uint32_t answer, const char* why) {
  if (++tally.wrong > 10) return;
  char text[100];
  std::snprintf(text, sizeof text, "%s\"%08x: %08x %s\"", tally.wrong > 1 ? ", " : "", x, answer,
                why);
  tally.examples += text;
}

// Inputs whose product with this lies below 2^22 are confirmed: one of 1024, all over the format.
bool isConfirmed(std::uint32_t x) { return x * 0x9e3779b1u < 1u << 22; }

template <Function f>
void check(Truth& truth, const Claim& claim, std::uint32_t x, std::uint32_t answer, Tally& tally) {
  const std::uint32_t input = truth.flushed(x);
  Place place;
  if (truth::isSpecialInput<f>(input, place)) {
    ++tally.special;
    if (answer != truth.delivered(place, false)) report(tally, x, answer, "special");
    return;
  }
  bool isExactPlace = false;
  const auto askMpfr = [&] {
    place = truth.exact<f>(input);
    isExactPlace = true;
    ++tally.byMpfr;
  };
  if (!truth.fast<f>(input, place)) askMpfr();
  if (isConfirmed(x)) {
    Place seen;
    truth.fast<f>(input, seen);
    const Place exact = truth.exact<f>(input);
    const double apart =
        std::fabs(static_cast<double>(seen.floor - exact.floor) + (seen.rest - exact.rest));
    const bool isBeyond = exact.floor >= truth::kInfinity || exact.floor < -(1 << 23);
    ++tally.confirmed;
    // What lies far beyond the range is only told to be there.
    if (!isBeyond && apart > tally.screen) tally.screen = apart;
    if ((!isBeyond && apart >= Truth::kOpen) || place.sign != exact.sign ||
        truth.delivered(place, false) != truth.delivered(exact, false) ||
        truth.delivered(place, true) != truth.delivered(exact, true) ||
        truth.delivered(place, place.isNearAbove) != truth.delivered(exact, exact.isNearAbove))
      report(tally, x, answer, "reference");
  }
  const std::uint32_t low = truth.delivered(place, false);
  const std::uint32_t high = place.isExact ? low : truth.delivered(place, true);
  const std::uint32_t nearest = place.isNearAbove ? high : low;
  if (claim.ulps < 1 ? answer != nearest : answer != low && answer != high)
    report(tally, x, answer, "not a neighbour");
  const std::int64_t step = truth::magnitudeOf(answer) - place.floor;
  const bool isNumber = (answer & truth::kSign) == place.sign && (step == 0 || step == 1) &&
                        answer == truth.delivered(place, step == 1) &&
                        truth::magnitudeOf(answer) < truth::kInfinity;
  if (!isNumber) {
    ++tally.outOfRange;
    return;
  }
  ++tally.compared;
  tally.nearest += answer == nearest;
  double error = static_cast<double>(step) - place.rest;
  if (!isExactPlace && !claim.holds(place, error, Truth::kOpen)) {
    askMpfr();
    error = static_cast<double>(step) - place.rest;
  }
  if (!claim.holds(place, error, 0)) report(tally, x, answer, "beyond the budget");
  tally.above.see(error, x);
  tally.below.see(-error, x);
}

template <Function f>
void run(Truth& truth, const Claim& claim, std::uint64_t first, std::uint64_t last, Tally& tally) {
  for (std::uint64_t x = first; x < last; ++x)
    check<f>(truth, claim, static_cast<std::uint32_t>(x), answerTo(static_cast<std::uint32_t>(x)),
             tally);
  // Where the errors were largest, MPFR has the last word.
  for (Extreme* extreme : {&tally.above, &tally.below}) {
    if (extreme->ulps == 0) continue;
    const Place place = truth.exact<f>(truth.flushed(extreme->input));
    const double error =
        static_cast<double>(truth::magnitudeOf(answerTo(extreme->input)) - place.floor) -
        place.rest;
    extreme->ulps = std::fabs(error);
  }
}

struct Row {
  const char* word;
  decltype(&run<Function::kExp>) run;
};
constexpr Row kRows[] = {
    {"FPExp", run<Function::kExp>},         {"FPExp2", run<Function::kExp2>},
    {"FPLn", run<Function::kLn>},           {"FPLog2", run<Function::kLog2>},
    {"FPLog10", run<Function::kLog10>},     {"FPSqrt", run<Function::kSqrt>},
    {"FPSqrtLogic", run<Function::kSqrt>},  {"FPRecipSqrt", run<Function::kRecipSqrt>},
    {"FPInverse", run<Function::kInverse>}, {"FPSinPiX", run<Function::kSinPi>},
    {"FPSinX", run<Function::kSin>}};

}  // namespace

int main(int count, char** words) {
  if (count != 10) {
    std::fprintf(stderr, "shard FUNCTION SUBNORMALS ULPS ABOVE BELOW SUBNORMAL K N FILE\n");
    return 255;
  }
  const std::string file = words[9], unfinished = file + ".unfinished";
  if (std::FILE* f = std::fopen(file.c_str(), "r")) return std::fclose(f);
  const Row* row = nullptr;
  for (const Row& candidate : kRows)
    if (std::strcmp(candidate.word, words[1]) == 0) row = &candidate;
  if (row == nullptr) return std::fprintf(stderr, "no function %s\n", words[1]), 255;
  Truth truth(std::atoi(words[2]) != 0);
  const Claim claim{std::atof(words[3]), std::atof(words[4]), std::atof(words[5]),
                    std::atof(words[6])};
  const std::uint64_t part = std::strtoull(words[7], nullptr, 10),
                      parts = std::strtoull(words[8], nullptr, 10);
  const std::uint64_t all = std::uint64_t{1} << 32;
  const std::uint64_t first = all * part / parts, last = all * (part + 1) / parts;
  Tally tally;
  row->run(truth, claim, first, last, tally);
  std::FILE* out = std::fopen(unfinished.c_str(), "w");
  if (out == nullptr) return std::perror(unfinished.c_str()), 255;
  const auto number = [](std::uint64_t n) { return static_cast<unsigned long long>(n); };
  std::fprintf(out,
               "{\"part\": %llu, \"parts\": %llu, \"first\": %llu, \"inputs\": %llu, "
               "\"special\": %llu, \"out_of_range\": %llu, \"compared\": %llu, \"nearest\": %llu, "
               "\"by_mpfr\": %llu, \"confirmed\": %llu, \"screen_ulp\": %.3e, "
               "\"above\": [%.9f, \"%08x\"], \"below\": [%.9f, \"%08x\"], \"wrong\": %llu, "
               "\"examples\": [%s]}\n",
               number(part), number(parts), number(first), number(last - first),
               number(tally.special), number(tally.outOfRange), number(tally.compared),
               number(tally.nearest), number(tally.byMpfr), number(tally.confirmed), tally.screen,
               tally.above.ulps, tally.above.input, tally.below.ulps, tally.below.input,
               number(tally.wrong), tally.examples.c_str());
  if (std::fclose(out) != 0 || std::rename(unfinished.c_str(), file.c_str()) != 0)
    return std::perror(file.c_str()), 255;
  return tally.wrong == 0 ? 0 : 1;
}
