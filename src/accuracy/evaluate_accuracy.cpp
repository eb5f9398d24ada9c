#include "accuracy/evaluate_accuracy.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "accuracy/accepted_values.h"
#include "accuracy/rounding.h"
#include "accuracy/vector_rows.h"
#include "numbers/exponent_range.h"
#include "numbers/filters.h"
#include "numbers/packing.h"
#include "numbers/pipeline.h"
#include "util/failure.h"

namespace {

constexpr mpfr_prec_t kPrecision = 1000;  // of sums of errors

// The errors of one kind, signed as reference - hardware.
class Errors {
 public:
  Errors() {
    for (Real* x : {&largest, &smallest, &sum}) mpfr_set_zero(x->prepare(kPrecision), 1);
  }

  void add(mpfr_srcptr error) {
    if (mpfr_greater_p(error, largest.get())) mpfr_set(largest.get(), error, MPFR_RNDN);
    if (mpfr_less_p(error, smallest.get())) mpfr_set(smallest.get(), error, MPFR_RNDN);
    (mpfr_signbit(error) ? mpfr_sub : mpfr_add)(sum.get(), sum.get(), error, MPFR_RNDN);
  }

  // Prints the three figures as they are and in units of 2^-places; `kind` ends their names.
  void print(const char* kind, int port, int places, unsigned long count) {
    if (count > 0) mpfr_div_ui(sum.get(), sum.get(), count, MPFR_RNDN);
    const std::pair<const char*, Real*> figures[] = {
        {"mp", &largest}, {"mn", &smallest}, {"avg", &sum}};
    for (const auto& [name, figure] : figures) {
      mpfr_ptr x = figure->get();
      std::printf("@%s%s out %d %e ", name, kind, port, mpfr_get_d(x, MPFR_RNDN));
      mpfr_mul_2si(x, x, places, MPFR_RNDN);
      std::printf("%.3f@\n", mpfr_get_d(x, MPFR_RNDN));
    }
  }

 private:
  Real largest, smallest, sum;
};

// What is known of one output port.
class PortAccuracy {
 public:
  PortAccuracy(const kiln::Type& type, int port, const TestingOptions& t)
      : fp(type.as_floating_point()),
        fx(type.as_fixed_point()),
        port(port),
        places(fp ? fp->frac : fx->fraction()),
        subnormals(t.subnormals && fp && !fp->is_fp_lib),
        precision(t.precision) {
    mpfr_set_flt(tolerance.prepare(kPrecision), errorBoundOf(t, static_cast<std::size_t>(port)),
                 MPFR_RNDN);
    mpfr_mul_2si(tolerance.get(), tolerance.get(), -places, MPFR_RNDN);
    error.prepare(kPrecision);
  }

  // Compares the exact result with the hardware's; neither is a do-not-care.
  void compare(const NumValue& reference, const NumValue& hardwareOutput) {
    if (fp) {
      fpRangeFilter(softwareOutput, reference, *fp, subnormals);
    } else {
      fxpRangeFilter(softwareOutput, reference, *fx, precision);
    }
    mpfr_srcptr exact = reference.real.get(), soft = softwareOutput.real.get();
    mpfr_srcptr hard = hardwareOutput.real.get();
    if (mpfr_regular_p(soft) && mpfr_regular_p(hard)) {
      // A fixed-point port has a number even for a result that is none.
      compareRegular(mpfr_regular_p(exact) ? exact : soft, hard);
    } else {
      compareSpecial(soft, hard);
    }
  }

  // Whether the hardware gave what that result is on the port.
  bool isOf(const NumValue& result, const NumValue& hardwareOutput) {
    if (fp) {
      fpRangeFilter(softwareOutput, result, *fp, subnormals);
    } else {
      fxpRangeFilter(softwareOutput, result, *fx, precision);
    }
    return mpfr_equal_p(softwareOutput.real.get(), hardwareOutput.real.get()) != 0;
  }

  void printRelative() {
    if (fp) relative.print("re", port, places, count);
  }
  void printAbsolute() { absolute.print("ae", port, places, count); }
  void printFailures() const {
    std::printf("@out %d #failedValues %d times@\n", port, failedValues);
    std::printf("@out %d #failedSpecial %d times@\n", port, failedSpecial);
  }

 private:
  void compareRegular(mpfr_srcptr exact, mpfr_srcptr hard) {
    mpfr_ptr e = error.get();
    mpfr_sub(e, exact, hard, MPFR_RNDN);
    absolute.add(e);
    bool failed = mpfr_cmpabs(e, tolerance.get()) >= 0;
    mpfr_div(e, e, exact, MPFR_RNDN);
    relative.add(e);
    if (fp) failed = mpfr_cmpabs(e, tolerance.get()) >= 0;
    ++count;
    failedValues += failed;
  }

  void compareSpecial(mpfr_srcptr soft, mpfr_srcptr hard) {
    const double softText = mpfr_get_d(soft, MPFR_RNDN), hardText = mpfr_get_d(hard, MPFR_RNDN);
    const bool oneIsZero = !mpfr_zero_p(soft) != !mpfr_zero_p(hard);
    const bool oneIsInfinite = !mpfr_inf_p(soft) != !mpfr_inf_p(hard);
    const bool oneIsNaN = !mpfr_nan_p(soft) != !mpfr_nan_p(hard);
    if (!oneIsZero && oneIsInfinite) {
      // A software output beyond all numbers stands one above the format's largest exponent.
      const int limit = 1 << (fp->exp - 1);
      const long exponent = mpfr_regular_p(soft) ? mpfr_get_exp(soft) : limit + 1;
      std::printf("out %d; soft out %f (exp %d, max %d); hard out %f\n", port, softText, limit,
                  static_cast<int>(exponent), hardText);
    } else if (oneIsZero || oneIsNaN) {
      std::printf("out %d; soft out %f; hard out %f\n", port, softText, hardText);
    } else {
      return;
    }
    ++failedSpecial;
  }

  const kiln::FloatingPoint* fp;
  const kiln::FixedPoint* fx;
  int port, places;
  bool subnormals;
  int precision;
  Real tolerance;
  Errors relative, absolute;
  unsigned long count = 0;  // of regular values
  int failedValues = 0, failedSpecial = 0;
  NumValue softwareOutput;  // storage only
  Real error;
};

void requireReadable(const VectorRows& rows) {
  if (rows.canBeRead()) return;
  const int reason = errno;
  std::printf("Error: failed to open one of the files\n");
  util::exitWith({fmt::format("-evaluateAccuracy: {}: {}", rows.path(), std::strerror(reason))});
}

// Tells once of results that do not belong to the stimuli beside them.
class FlowCheck {
 public:
  FlowCheck(const VectorRows& results, int latency) : results(results), latency(latency) {}
  void check(const PipelineStage& stimulus) {
    if (told || stimulus.valid != 1) return;
    if (results.valid() == 1 && results.channel() == stimulus.channel) return;
    told = true;
    std::fprintf(stderr,
                 "Warning: %s: row %ld: valid and channel are not those of the stimulus; was the "
                 "latency of the unit %d?\n",
                 results.path().c_str(), results.line(), latency);
  }

 private:
  const VectorRows& results;
  int latency;
  bool told = false;
};

void compareLengths(VectorRows& stimuli, VectorRows& results, long compared) {
  while (stimuli.next()) {
  }
  while (results.next()) {
  }
  if (stimuli.count() == results.count()) return;
  std::fprintf(stderr, "Warning: %s has %ld rows, %s %ld; %ld were compared\n",
               stimuli.path().c_str(), stimuli.count(), results.path().c_str(), results.count(),
               compared);
}

}  // namespace

int evaluateAccuracy(CFuncUnitCleanInterface* function, const PortSpecList& inPorts,
                     const PortSpecList& outPorts, int latency, const TestingOptions& t,
                     const std::string& stimulusPath, const std::string& resultPath) {
  const FullExponentRange guard;
  const bool hasFlow = !t.noChanValid;
  VectorRows stimuli(stimulusPath, inPorts, hasFlow, t.enable);
  requireReadable(stimuli);
  VectorRows results(resultPath, outPorts, hasFlow, /*enable=*/false);
  requireReadable(results);

  const int delayed = t.enable ? latency : 0;
  if (delayed > 0) {
    std::printf("Will create a new pipeline with enable=true having a latency of %d cycles \n",
                latency);
  }
  Pipeline delay(static_cast<int>(inPorts.size()), delayed, hasFlow, /*enable=*/true);
  for (int i = delayed; i < latency && results.next(); ++i) {
  }

  std::vector<mpfr_rnd_t> up, down, user;
  std::vector<unsigned> precisions;
  populateRoundingAndPrecisionVectors(outPorts, t, up, down, user, precisions);
  std::vector<PortAccuracy> ports;
  for (std::size_t p = 0; p < outPorts.size(); ++p) {
    ports.emplace_back(outPorts[p].type, static_cast<int>(p), t);
  }
  FlowCheck flow(results, latency);
  PipelineStage cycle;
  std::vector<NumValue> references, low, high;
  NumValue hardware;
  long compared = 0;
  for (; stimuli.next() && results.next(); ++compared) {
    cycle.valid = stimuli.valid();
    cycle.channel = stimuli.channel();
    cycle.enable = stimuli.enable();
    cycle.values.resize(inPorts.size());
    for (std::size_t i = 0; i < inPorts.size(); ++i) {
      stimuli.decode(cycle.values[i], i, t.subnormals);
    }
    const PipelineStage& answered = delay.advance(cycle);
    flow.check(answered);
    function->evaluate(references, answered.values, precisions, user, t.subnormals);
    if (t.unprovenRounding)
      function->evaluateUndecided(low, high, answered.values, precisions, user, t.subnormals);
    for (std::size_t p = 0; p < outPorts.size(); ++p) {
      if (references[p].type == NumType::kDontCare) continue;
      results.decode(hardware, p, t.subnormals);
      if (hardware.type == NumType::kDontCare) continue;
      const bool undecided = t.unprovenRounding && errorBoundOf(t, p) == 0.5f;
      const bool isLow = undecided && ports[p].isOf(low[p], hardware);
      const bool isHigh = undecided && ports[p].isOf(high[p], hardware);
      ports[p].compare(isLow ? low[p] : isHigh ? high[p] : references[p], hardware);
    }
  }

  std::printf("@@start\n");
  for (PortAccuracy& port : ports) port.printRelative();
  for (PortAccuracy& port : ports) port.printAbsolute();
  for (const PortAccuracy& port : ports) port.printFailures();
  std::printf("@@end\n");
  compareLengths(stimuli, results, compared);
  return 1;
}
