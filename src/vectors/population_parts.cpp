#include "vectors/population_parts.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>

#include "accuracy/accepted_values.h"
#include "util/failure.h"
#include "util/random.h"
#include "vectors/reference.h"
#include "vectors/stm_writer.h"

RandomState::RandomState(int seed) {
  gmp_randinit_mt(state);
  gmp_randseed_ui(state, static_cast<unsigned long>(seed));
  util::restartRandom();
}

VectorFiles::VectorFiles(const std::string& name) : name(name) {
  openStimultiFiles(in, out, name);
  outs = {out};
  paths = {stimulusPath(name), responsePath(name)};
}

VectorFiles::VectorFiles(const std::string& name, const TestingOptions& options) : name(name) {
  openStimultiFiles(in, outs, name, options);
  out = outs.front();
  paths = {stimulusPath(name)};
  for (std::size_t i = 0; i < outs.size(); ++i) paths.push_back(responsePath(name, i));
}

void VectorFiles::check() {
  if (std::ferror(in) || std::ranges::any_of(outs, [](FILE* f) { return std::ferror(f) != 0; })) {
    fail();
  }
}

void VectorFiles::close() {
  bool written = std::fclose(in) == 0;
  for (FILE* f : outs) written &= std::fclose(f) == 0;
  if (!written) fail();
}

void VectorFiles::fail() {
  const int reason = errno;
  for (const std::string& path : paths) std::remove(path.c_str());
  util::exitWith(
      {fmt::format("./{}: {}: the vectors cannot be written", name, std::strerror(reason))});
}

Evaluations::Evaluations(const PortSpecList& outPorts, const TestingOptions& options) {
  populateRoundingAndPrecisionVectors(outPorts, options, roundUp, roundDown, roundUser, precisions);
  for (std::size_t j = 0; j < outPorts.size(); ++j)
    isUndecided.push_back(options.unprovenRounding && errorBoundOf(options, j) == 0.5f);
}

void Evaluations::evaluate(CFuncUnitFunctionInterface& unit, const std::vector<NumValue>& inputs,
                           bool subnormals) {
  unit.evaluate(down, inputs, precisions, roundDown, subnormals);
  unit.evaluate(up, inputs, precisions, roundUp, subnormals);
  unit.evaluate(nearest, inputs, precisions, roundUser, subnormals);
  if (std::ranges::none_of(isUndecided, std::identity())) return;
  unit.evaluateUndecided(low, high, inputs, precisions, roundUser, subnormals);
  for (std::size_t j = 0; j < isUndecided.size(); ++j) {
    if (!isUndecided[j]) continue;
    down[j] = low[j];
    up[j] = high[j];
  }
}

int progressStep(int total) { return std::clamp(total - 1, 1, 1000); }

bool enableOfRow(int row, int latency, const TestingOptions& options) {
  constexpr int kPercent = 80;
  return !options.enable || row <= latency || generateEnable(kPercent);
}

namespace {

void drawProgress(int current, int total) {
  constexpr int kColumns = 40;
  const float done = total < 1 ? 1.0f : static_cast<float>(current) / static_cast<float>(total);
  const auto filled = static_cast<std::size_t>(kColumns * done);
  std::printf("%s",
              fmt::format("{}% [{:<40}]\r", static_cast<int>(done * 100), std::string(filled, '='))
                  .c_str());
  std::fflush(stdout);
}

}  // namespace

void filterAndOutToFile(const PortSpecList& outPorts, std::vector<NumValue>& down,
                        std::vector<NumValue>& up, std::vector<NumValue>& nearest,
                        const std::vector<unsigned>& precisions, const PortSpecList& inPorts,
                        const std::vector<NumValue>& stimulus, const TestingOptions& options,
                        FILE* xIn, FILE* xOut, int channel) {
  thread_local std::vector<std::vector<NumValue>> candidates;  // storage only
  filterFixedPointOutputs(outPorts, down, up, nearest, options);
  filterFloatingPointOutputs(outPorts, down, up, nearest, options);
  generateOutputsForBeyondFaithfulTesting(candidates, outPorts, down, up, nearest, precisions,
                                          options);
  printToStimuliFile(xIn, stimulus, inPorts, /*valid=*/1, channel, options, /*enable=*/1);
  printToStimuliFileVV(xOut, candidates, outPorts, channel, /*valid=*/1, options);
}

void progressBar(int current, int total, int every) {
  if (current % every == 0) drawProgress(current, total);
}
