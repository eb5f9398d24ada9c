#include "vectors/folded_population.h"

#include <array>
#include <vector>

#include "accuracy/accepted_values.h"
#include "numbers/draws.h"
#include "util/failure.h"
#include "util/random.h"
#include "vectors/population_parts.h"
#include "vectors/reference.h"
#include "vectors/stm_writer.h"

namespace {

struct Instruction {
  int cycles;
  bool isUnary;
};
constexpr std::array<Instruction, 5> kInstructions = {
    {{23, true}, {26, true}, {19, true}, {22, false}, {6, false}}};

constexpr long kNoEnable = -1;

using Values = std::vector<NumValue>;

// The three results as one response row, and how it is written.
class Response {
 public:
  Response(const PortSpecList& ports, const Evaluations& e, const TestingOptions& options)
      : ports(ports), e(e), options(options) {}

  void prepare(Values down, Values up, Values nearest) {
    filterFloatingPointOutputs(ports, down, up, nearest, options);
    generateOutputsForBeyondFaithfulTesting(candidates, ports, down, up, nearest, e.precisions,
                                            options);
  }
  void write(FILE* file) const {
    printToStimuliFileVV(file, candidates, ports, /*channel=*/0, /*valid=*/1, options);
  }

 private:
  const PortSpecList& ports;
  const Evaluations& e;
  const TestingOptions& options;
  std::vector<Values> candidates;
};

Values asDontCares(Values values) {
  for (NumValue& value : values) value.type = NumType::kDontCare;
  return values;
}

}  // namespace

int populateStmFiles_FPFoldedALU(CFuncUnitFunctionInterface* unit, const std::string& baseName,
                                 const PortSpecList& inPorts, const PortSpecList& outPorts,
                                 int /*latency*/, const TestingOptions& options) {
  if (options.componentType != FPFOLDEDALU) {
    loam_assert_handler("testOptions.componentType == FPFOLDEDALU", "cmdGauge", __LINE__, __func__,
                        "");
  }
  Evaluations e(outPorts, options);
  VectorFiles files(baseName);
  RandomState random(options.testCount);
  const kiln::FloatingPoint& format = *inPorts[0].type.as_floating_point();
  Response busy(outPorts, e, options), done(outPorts, e, options);
  Values stimulus(4);
  NumValue &a = stimulus[0], &b = stimulus[1], &opcode = stimulus[2], &go = stimulus[3];
  for (int i = 0; i < options.testCount; ++i) {
    progressBar(i, options.testCount, 1000);
    if (i % 1000 == 0) files.check();
    const int drawn = util::GetRandom(static_cast<int>(kInstructions.size()));
    const auto [cycles, isUnary] = kInstructions[static_cast<std::size_t>(drawn)];
    mpfr_set_si(opcode.real.prepare(2), drawn, MPFR_RNDN);
    mpfr_set_si(go.real.prepare(2), 1, MPFR_RNDN);
    genRandFP(a.real, random.state, format, options);
    if (isUnary)
      mpfr_set(b.real.prepare(format.frac + 1), a.real.get(), MPFR_RNDN);
    else
      genRandFP(b.real, random.state, format, options);
    e.evaluate(*unit, stimulus, options.subnormals);
    busy.prepare(asDontCares(e.down), asDontCares(e.up), asDontCares(e.nearest));
    done.prepare(e.down, e.up, e.nearest);
    for (int row = 0; row <= cycles; ++row) {
      if (row == 1) mpfr_set_zero(go.real.get(), 1);
      printToStimuliFile(files.in, stimulus, inPorts, /*valid=*/1, /*channel=*/0, options,
                         kNoEnable);
      (row < cycles ? busy : done).write(files.out);
    }
  }
  files.close();
  return options.testCount;
}
