// Every pattern on every FPLib port: vector files show few of them. For each operator word with
// such a port, all patterns of its inputs go through the graphs of all roundings at once, and each
// answer is compared with the accepted values that a response row would hold.
//   fplib_pairs WE WF [WORD...]     prints "ok" or "FAILED" and a line a word; status 0 if all
//   passed

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "accuracy/accepted_values.h"
#include "accuracy/rounding.h"
#include "backend/functions/unit.h"
#include "backend/graph/evaluator.h"
#include "numbers/exponent_range.h"
#include "numbers/filters.h"
#include "numbers/packing.h"
#include "operators/operator_row.h"
#include "stimuli/exhaustive.h"
#include "vectors/reference.h"

namespace {

using functions::Accuracy;
using functions::RoundMode;
using util::MPZ;

// One circuit of the word: what was asked of it and what its rows accept.
struct Config {
  functions::Request request;
  TestingOptions options;
  std::size_t output;  // its output in the graph
};

constexpr RoundMode kModes[] = {RoundMode::kNearestEven, RoundMode::kDown, RoundMode::kUp,
                                RoundMode::kTowardZero};

// Faithful, and correct in each direction.
std::vector<Config> configsOf(const operators::OperatorRow& row,
                              const operators::Parameters& parameters,
                              const operators::Ports& ports, bool subnormals) {
  std::vector<Config> configs;
  for (int k = -1; k < 4; ++k) {
    const bool faithful = k < 0;
    Config config;
    functions::Request& request = config.request;
    for (const PortSpec& port : ports.in) request.signature.in.push_back(port.type);
    for (const PortSpec& port : ports.out) request.signature.out.push_back(port.type);
    request.signature.variant = row.variant(parameters);
    request.accuracy.assign(ports.out.size(), faithful ? Accuracy{Accuracy::kWithin, 1.0}
                                                       : Accuracy{Accuracy::kCorrect, 0.5});
    request.rounding.fixed = kModes[std::max(k, 0)];
    request.subnormals = config.options.subnormals = subnormals;
    config.options.roundType = std::max(k, 0);
    config.options.errorBounds = {faithful ? 1.0F : 0.5F};
    configs.push_back(config);
  }
  return configs;
}

// Every pattern of a port with the number that it stands for.
std::vector<NumValue> patternsOf(const PortSpec& port, const TestingOptions& options) {
  PortSpecList alone;
  alone.push_back(port.name, port.type);
  std::vector<NumValue> patterns, one(1);
  for (int p = 0; p < 1 << port.type.width(); ++p) {
    generateExhaustiveStimuli(one, alone, options, p);
    patterns.push_back(one[0]);
  }
  return patterns;
}

class Check {
 public:
  Check(const operators::OperatorRow& row, const operators::Parameters& parameters, bool subnormals)
      : unit(*functions::findUnit(row.unit)),
        ports(row.ports(parameters)),
        configs(configsOf(row, parameters, ports, subnormals)) {
    graph::Builder builder(circuit);
    std::vector<graph::Signal> inputs;
    for (const PortSpec& port : ports.in) {
      inputs.push_back(builder.input(port.name, port.type.width()));
      choices.push_back(patternsOf(port, configs[0].options));
    }
    for (Config& config : configs) {
      config.output = circuit.outputs().size();
      for (const graph::Signal& signal : unit.decompose(builder, config.request, inputs)) {
        builder.output(fmt::format("q{}", circuit.outputs().size()), signal);
      }
    }
  }

  // Compares all pairs; prints up to three that fail. Returns their number, or -1 after a failure.
  long all() {
    graph::Evaluator evaluator(circuit);
    std::vector<NumValue> stimulus(2);
    long pairs = 0;
    int wrong = 0;
    for (const NumValue& b : choices[1]) {
      stimulus[1] = b;
      evaluator.setInput(1, b.pattern);
      for (const NumValue& a : choices[0]) {
        stimulus[0] = a;
        evaluator.setInput(0, a.pattern);
        evaluator.run();
        ++pairs;
        for (const Config& config : configs) {
          if (accepted(config, stimulus, evaluator)) continue;
          std::printf(
              "subnormals %d, bound %g, roundType %d: %s %s give %s\n", config.options.subnormals,
              config.options.errorBounds[0], config.options.roundType, a.pattern.toText(2).c_str(),
              b.pattern.toText(2).c_str(), evaluator.output(config.output).toText(2).c_str());
          if (++wrong == 3) return -1;
        }
      }
    }
    return wrong == 0 ? pairs : -1;
  }

 private:
  bool accepted(const Config& config, const std::vector<NumValue>& stimulus,
                const graph::Evaluator& evaluator) {
    const TestingOptions& options = config.options;
    roundUp.clear(), roundDown.clear(), roundUser.clear(), precisions.clear();
    populateRoundingAndPrecisionVectors(ports.out, options, roundUp, roundDown, roundUser,
                                        precisions);
    const auto evaluate = [&](std::vector<NumValue>& results, const auto& roundings) {
      unit.evaluate(config.request.signature, results, stimulus, precisions, roundings,
                    options.subnormals);
    };
    evaluate(down, roundDown);
    evaluate(up, roundUp);
    evaluate(nearest, roundUser);
    filterFloatingPointOutputs(ports.out, down, up, nearest, options);
    generateOutputsForBeyondFaithfulTesting(candidates, ports.out, down, up, nearest, precisions,
                                            options);
    for (std::size_t j = 0; j < ports.out.size(); ++j) {
      const kiln::FloatingPoint& format = *ports.out[j].type.as_floating_point();
      const MPZ answer = evaluator.output(config.output + j);
      const bool legal = std::ranges::any_of(candidates[j], [&](const NumValue& candidate) {
        fpRangeFilter(onPort, candidate, format, options.subnormals);
        packFloatingPointToMPZ(pattern, onPort.real.get(), format, options);
        return pattern == answer;
      });
      if (!legal) return false;
    }
    return true;
  }

  const functions::UnitRow& unit;
  operators::Ports ports;
  std::vector<Config> configs;
  graph::Graph circuit;
  std::vector<std::vector<NumValue>> choices;  // of each input
  std::vector<mpfr_rnd_t> roundUp, roundDown, roundUser;
  std::vector<unsigned> precisions;
  std::vector<NumValue> down, up, nearest;
  std::vector<std::vector<NumValue>> candidates;
  NumValue onPort;
  MPZ pattern;
};

bool hasFPLibPort(const operators::Ports& ports) {
  const auto isLib = [](const PortSpec& port) { return port.type.as_fp_lib() != nullptr; };
  return std::ranges::any_of(ports.in, isLib) || std::ranges::any_of(ports.out, isLib);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "fplib_pairs: WE WF [WORD...]\n");
    return util::kFailureStatus;
  }
  const std::vector<std::string> chosen(argv + 3, argv + argc);
  const FullExponentRange guard;
  bool passed = true;
  int words = 0;
  for (const operators::OperatorRow& row : operators::operatorRows()) {
    const std::string word(row.word);
    if (!chosen.empty() && std::ranges::find(chosen, word) == chosen.end()) continue;
    if (row.parameters.size() != 2 || row.parameters[1].name != "wF") continue;
    const auto parameters = operators::readParameters(row, util::Words(argv + 1, argv + 3));
    if (!parameters && chosen.empty()) continue;  // no such format of this word
    if (!parameters) util::exitWith(parameters.failure());
    const operators::Ports ports = row.ports(*parameters);
    if (!hasFPLibPort(ports) || ports.in.size() != 2) continue;
    ++words;
    long pairs = 0;
    for (const bool subnormals : {false, true}) {
      const long checked = pairs < 0 ? -1 : Check(row, *parameters, subnormals).all();
      pairs = checked < 0 ? -1 : pairs + checked;
    }
    std::printf("%s %ld pairs | %s %s %s\n", pairs < 0 ? "FAILED" : "ok", std::max(pairs, 0L),
                word.c_str(), argv[1], argv[2]);
    std::fflush(stdout);
    passed = passed && pairs >= 0;
  }
  return passed && words > 0 ? 0 : 1;
}
