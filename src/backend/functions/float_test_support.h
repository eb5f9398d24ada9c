#pragma once

// Circuits of floating-point units beside the truth (float_truth.h), over all patterns or drawn
// ones.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "backend/functions/float_truth.h"

namespace functions::testing {

// One circuit under test; all of a bench have the same input ports.
struct Config {
  std::string label;
  std::string unit;
  Request request;
  std::vector<Operation> operations;  // one for each output
};

// The roundings and bounds that every unit with one rounding is built for.
struct Precision {
  const char* name;
  RoundMode mode;
  Accuracy accuracy;
  int tiesAway = 0, degrade = 0;
};
inline const std::vector<Precision> kPrecisions = {
    {"nearest", RoundMode::kNearestEven, {Accuracy::kCorrect, 0.5}},
    {"down", RoundMode::kDown, {Accuracy::kCorrect, 0.5}},
    {"up", RoundMode::kUp, {Accuracy::kCorrect, 0.5}},
    {"toward zero", RoundMode::kTowardZero, {Accuracy::kCorrect, 0.5}},
    {"ties away", RoundMode::kNearestEven, {Accuracy::kCorrect, 0.5}, 1},
    {"faithful", RoundMode::kNearestEven, {Accuracy::kWithin, 1}, 0, 1},
    {"2 ulps", RoundMode::kNearestEven, {Accuracy::kWithin, 2}},
    {"2 ulps, degraded", RoundMode::kNearestEven, {Accuracy::kWithin, 2}, 0, 1},
    {"5 ulps, degraded", RoundMode::kDown, {Accuracy::kWithin, 5}, 0, 1},
};

struct Ports {
  const char* name;
  std::vector<kiln::Type> in, out;
};

inline Config configOf(const std::string& unit, const Ports& ports, const Precision& precision,
                       std::int64_t subtract, std::int64_t dualPath, bool subnormals,
                       std::vector<Operation> operations) {
  Config config;
  config.unit = unit;
  config.label = fmt::format("{} {}{}, {}{}", unit, ports.name, dualPath ? " dual path" : "",
                             precision.name, subnormals ? ", subnormals" : "");
  config.request.signature = {
      ports.in, ports.out, {{subtract, dualPath, precision.tiesAway, precision.degrade}}};
  config.request.accuracy.assign(ports.out.size(), precision.accuracy);
  config.request.rounding.fixed = precision.mode;
  config.request.subnormals = subnormals;
  config.request.quietNaN = subnormals;
  // Products of single bits, so that each one that can be left out is worth leaving out.
  config.request.prices.dsp = {1, 1};
  config.request.prices.lutPerDsp = 4;
  config.operations = std::move(operations);
  return config;
}

inline bool isAny(const Precision&) { return true; }
inline bool hasEvenTies(const Precision& precision) { return precision.tiesAway == 0; }

inline std::vector<Config> configsOf(const std::string& unit, const Ports& ports, bool subnormals,
                                     const std::vector<Operation>& operations,
                                     bool (*takes)(const Precision&) = isAny,
                                     std::int64_t subtract = 0, std::int64_t dualPath = 0) {
  std::vector<Config> configs;
  for (const Precision& precision : kPrecisions)
    if (takes(precision))
      configs.push_back(
          configOf(unit, ports, precision, subtract, dualPath, subnormals, operations));
  return configs;
}
inline void append(std::vector<Config>& configs, const std::vector<Config>& more) {
  configs.insert(configs.end(), more.begin(), more.end());
}

// Circuits that share their inputs in one graph, checked beside their references.
class Bench {
 public:
  explicit Bench(std::vector<Config> list) : configs(std::move(list)) {
    graph::Builder builder(circuit);
    const auto& in = configs[0].request.signature.in;
    std::vector<graph::Signal> inputs;
    for (std::size_t i = 0; i < in.size(); ++i)
      inputs.push_back(builder.input(fmt::format("i{}", i), in[i].width()));
    for (const Config& config : configs) {
      const UnitRow* row = findUnit(config.unit);
      if (!row) throw std::runtime_error("no unit " + config.unit);
      if (const auto reason = row->refuses(config.request)) throw std::runtime_error(*reason);
      const auto outputs = row->decompose(builder, config.request, inputs);
      for (std::size_t k = 0; k < outputs.size(); ++k) {
        EXPECT_EQ(outputs[k].width, config.request.signature.out[k].width());
        builder.output(fmt::format("{} {}", config.label, k), outputs[k]);
      }
    }
    evaluator = std::make_unique<graph::Evaluator>(circuit);
  }

  std::size_t nodes() const { return circuit.size(); }

  // Checks every circuit and reference on one pattern for each input; false when one is wrong.
  bool check(const std::vector<MPZ>& patterns) {
    const Request& first = configs[0].request;
    values.resize(patterns.size());
    stimulus.resize(patterns.size());
    for (std::size_t i = 0; i < patterns.size(); ++i) {
      if (const auto* format = first.signature.in[i].as_floating_point()) {
        values[i] = decode(patterns[i], {*format, first.subnormals});
      } else {
        const kiln::FixedPoint& fixed = *first.signature.in[i].as_fixed_point();
        const MPZ integer = fixed.sign() ? patterns[i].asSigned(fixed.width()) : patterns[i];
        values[i] = Real(64);
        mpfr_set_z(values[i].get(), integer.get(), MPFR_RNDN);
      }
      stimulus[i].real = values[i];
    }
    const std::vector<MPZ> outputs = (*evaluator)(patterns);
    known.clear();
    std::size_t output = 0;
    bool right = true;
    for (const Config& config : configs)
      for (std::size_t k = 0; k < config.operations.size(); ++k)
        right = checkOutput(config, k, outputs[output++], patterns) && right;
    return right;
  }

 private:
  // What an operation may give: one rounded pattern, or with `steps` those within so many ulps.
  struct Known {
    Operation operation;
    RoundMode mode;
    int steps;
    std::vector<MPZ> patterns;
  };
  const std::vector<MPZ>& accepted(Operation operation, RoundMode mode, int steps,
                                   const Port& port) {
    for (const Known& row : known)
      if (row.operation == operation && row.mode == mode && row.steps == steps) return row.patterns;
    const Truth truth(operation, values, port);
    known.push_back({operation, mode, steps,
                     steps > 0 ? truth.within(steps)
                               : std::vector<MPZ>{encode(truth.inMode(mode).get(), port)}});
    return known.back().patterns;
  }

  bool checkOutput(const Config& config, std::size_t k, const MPZ& got,
                   const std::vector<MPZ>& inputs) {
    const Request& request = config.request;
    const Port port{*request.signature.out[k].as_floating_point(), request.subnormals,
                    request.quietNaN};
    const Accuracy accuracy = request.accuracy[k];
    const RoundMode mode = modeOf(request);
    const int steps = accuracy.kind == Accuracy::kWithin ? static_cast<int>(accuracy.ulps) : 0;
    const auto& patterns = accepted(config.operations[k], mode, steps, port);
    if (std::ranges::find(patterns, got) == patterns.end()) {
      ADD_FAILURE() << config.label << " output " << k << ": inputs" << join(inputs) << " give "
                    << got.toText(2) << ", accepted" << join(patterns);
      return false;
    }
    return checkReference(config, k, accepted(config.operations[k], mode, 0, port)[0], port,
                          inputs);
  }

  // The reference, filtered, in the direction of the request (to nearest for a bound).
  bool checkReference(const Config& config, std::size_t k, const MPZ& expected, const Port& port,
                      const std::vector<MPZ>& inputs) {
    const Signature& signature = config.request.signature;
    precisions.clear();
    for (const kiln::Type& type : signature.out)
      precisions.push_back(static_cast<unsigned>(type.as_floating_point()->frac + 1));
    roundings.assign(signature.out.size(), directionOf(modeOf(config.request)));
    findUnit(config.unit)
        ->evaluate(signature, results, stimulus, precisions, roundings, config.request.subnormals);
    EXPECT_EQ(results.size(), signature.out.size());
    const MPZ reference = encode(results[k].real.get(), port);
    EXPECT_EQ(reference, expected) << config.label << " reference " << k << ": inputs"
                                   << join(inputs) << " give " << reference.toText(2);
    return reference == expected;
  }

  static RoundMode modeOf(const Request& request) {
    const RoundMode mode = request.rounding.fixed;
    const bool tiesAway = request.signature.variant[2] != 0;
    return tiesAway && mode == RoundMode::kNearestEven ? RoundMode::kNearestAway : mode;
  }

  static std::string join(const std::vector<MPZ>& patterns) {
    std::string text;
    for (const MPZ& pattern : patterns) text += fmt::format(" {}", pattern.toText(2));
    return text;
  }

  std::vector<Config> configs;
  graph::Graph circuit;
  std::unique_ptr<graph::Evaluator> evaluator;
  std::vector<Real> values;
  std::vector<NumValue> stimulus, results;
  std::vector<unsigned> precisions;
  std::vector<mpfr_rnd_t> roundings;
  std::vector<Known> known;  // for the inputs of one check
};

// Result bits of the logic and arithmetic that the outputs depend on, a pick counted once a level.
inline int logicBits(const graph::Graph& circuit) {
  std::vector<bool> used(circuit.size());
  for (const auto& port : circuit.outputs()) used[port.signal.node.index] = true;
  int bits = 0;
  for (std::size_t i = circuit.size(); i-- > 0;) {
    const graph::Node& node = circuit.nodes()[i];
    if (!used[i]) continue;
    for (const graph::NodeId operand : circuit.operands(node)) used[operand.index] = true;
    if (!graph::traitsOf(node.op).wiring) bits += node.width;
  }
  return bits;
}

inline int logicBits(const Config& config) {
  Request request = config.request;
  return logicBits(UnitCircuit(config.unit, request).graph);
}

// The size of a circuit at bounds that grow: 0.5 ulps are correct rounding.
inline std::vector<int> logicBitsAt(Config config, const std::vector<double>& bounds) {
  std::vector<int> bits;
  for (const double ulps : bounds) {
    const Accuracy accuracy{ulps < 1 ? Accuracy::kCorrect : Accuracy::kWithin, ulps};
    config.request.accuracy.assign(config.request.accuracy.size(), accuracy);
    bits.push_back(logicBits(config));
  }
  return bits;
}

// A bound pays: what is promised less is built of `least` bits of logic fewer.
inline void expectBoundsToPay(const Config& config, const std::vector<double>& bounds,
                              int least = 1) {
  const std::vector<int> bits = logicBitsAt(config, bounds);
  for (std::size_t i = 1; i < bits.size(); ++i)
    EXPECT_GE(bits[i - 1], bits[i] + least) << config.label << " at " << bounds[i] << " ulps";
}

// Every pattern of a port; of an FPLib port every regular number, and each special as packing makes
// it and once with all fields set.
inline std::vector<MPZ> allPatterns(const kiln::FloatingPoint& format) {
  std::vector<MPZ> patterns;
  const int low = format.exp + format.frac + 1;
  for (unsigned long i = 0; i < 1ul << low; ++i)
    patterns.push_back(format.is_fp_lib ? MPZ(i) + MPZ::powerOfTwo(low) : MPZ(i));
  if (!format.is_fp_lib) return patterns;
  const MPZ magnitude = MPZ::allOnes(low - 1), signBit = MPZ::powerOfTwo(low - 1);
  for (const int kind : {0, 2, 3})
    for (const MPZ& sign : {MPZ(0), signBit})
      for (const MPZ& fields : {MPZ(0), magnitude})
        patterns.push_back((MPZ(kind) << low) + sign + fields);
  return patterns;
}

// Calls `visit` with every combination of patterns until it returns false. Of a port that is not
// floating all patterns are taken.
template <typename Visit>
void forAllRows(const std::vector<kiln::Type>& in, Visit visit) {
  std::vector<std::vector<MPZ>> choices;
  for (const kiln::Type& type : in) {
    if (const auto* format = type.as_floating_point()) {
      choices.push_back(allPatterns(*format));
      continue;
    }
    choices.emplace_back();
    for (unsigned long i = 0; i < 1ul << type.width(); ++i) choices.back().push_back(MPZ(i));
  }
  std::vector<std::size_t> index(in.size());
  for (;;) {
    std::vector<MPZ> patterns;
    for (std::size_t i = 0; i < in.size(); ++i) patterns.push_back(choices[i][index[i]]);
    if (!visit(patterns)) return;
    std::size_t place = 0;
    while (place < in.size() && ++index[place] == choices[place].size()) index[place++] = 0;
    if (place == in.size()) return;
  }
}

// Checks every combination of patterns, up to five wrong ones.
inline void checkAll(Bench& bench, const std::vector<kiln::Type>& in) {
  int wrong = 0;
  forAllRows(in, [&](const std::vector<MPZ>& patterns) {
    if (!bench.check(patterns)) ++wrong;
    return wrong < 5;
  });
}

inline void checkAll(const std::vector<Config>& configs) {
  Bench bench(configs);
  checkAll(bench, configs[0].request.signature.in);
}

// Draws patterns that matter: any, near 1, at both ends of the range, sparse or dense fractions;
// and operands close to the one drawn before, for cancellation.
class Draws {
 public:
  explicit Draws(unsigned seed) : random(seed) {}

  MPZ bits(int width) {
    MPZ result;
    for (int low = 0; low < width; low += 32)
      result = (result << 32) | MPZ(static_cast<unsigned long>(random() & 0xFFFFFFFFu));
    return result.lowBits(static_cast<unsigned long>(width));
  }
  std::vector<MPZ> row(const std::vector<kiln::Type>& in) {
    std::vector<MPZ> patterns;
    for (const kiln::Type& type : in) {
      const auto* format = type.as_floating_point();
      patterns.push_back(format ? number(*format) : bits(type.width()));
    }
    return patterns;
  }
  int below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }

  MPZ number(const kiln::FloatingPoint& format) {
    const int wE = format.exp, wF = format.frac;
    MPZ exponent = bits(wE), fraction = bits(wF);
    const MPZ top = MPZ::allOnes(wE);
    switch (below(8)) {
      case 0:
        exponent = MPZ(below(4));
        break;
      case 1:
        exponent = top - MPZ(below(4));
        break;
      case 2:
        exponent = (top >> 1) + MPZ(below(5) - 2);
        break;
      case 3:
        if (last != MPZ(0)) exponent = field(last, wF, wE) + MPZ(below(5) - 2);
        break;
      case 4:
        if (last != MPZ(0)) exponent = field(last, wF, wE) + MPZ(below(2 * wF) - wF);
        break;
      default:
        break;
    }
    switch (below(6)) {
      case 0:
        fraction = MPZ(below(4));
        break;
      case 1:
        fraction = MPZ::allOnes(wF) - MPZ(below(4));
        break;
      case 2:
        fraction = MPZ::powerOfTwo(below(wF)) + MPZ(below(2));
        break;
      case 3:
        fraction = field(last, 0, wF) + MPZ(below(9) - 4);
        break;
      default:
        break;
    }
    MPZ pattern = MPZ(below(2));
    pattern = (pattern << wE) | exponent.lowBits(wE);
    pattern = (pattern << wF) | fraction.lowBits(wF);
    last = pattern;
    if (!format.is_fp_lib) return pattern;
    const int kind = below(40);
    return (MPZ(kind < 4 ? kind : 1) << (wE + wF + 1)) + pattern;
  }

 private:
  std::mt19937 random;
  MPZ last;
};

inline void checkDrawn(Bench& bench, const std::vector<kiln::Type>& in, int count, unsigned seed) {
  SCOPED_TRACE(fmt::format("seed {}", seed));
  Draws draws(seed);
  checkEach(count, [&](int) { return bench.check(draws.row(in)); });
}

inline void checkDrawn(const std::vector<Config>& configs, int count, unsigned seed) {
  Bench bench(configs);
  checkDrawn(bench, configs[0].request.signature.in, count, seed);
}

// Numbers that come nearest to multiples of pi: for some exponents the denominators of convergents
// of 2^exponent / pi that are significands.
inline std::vector<MPZ> hardestRadians(const kiln::FloatingPoint& format, int stride) {
  const long wF = format.frac, top = (1L << (format.exp - 1)) - 1;
  std::vector<MPZ> patterns;
  Real pi(4 * wF + top + 64), scaled(4 * wF + top + 64);
  mpfr_const_pi(pi.get(), MPFR_RNDN);
  for (long exponent = top; exponent >= 0; exponent -= stride) {
    mpfr_ui_div(scaled.get(), 1, pi.get(), MPFR_RNDN);
    mpfr_mul_2si(scaled.get(), scaled.get(), exponent - wF, MPFR_RNDN);
    mpfr_frac(scaled.get(), scaled.get(), MPFR_RNDN);
    MPZ before = 0, q = 1;
    while (q < MPZ::powerOfTwo(wF + 1)) {
      if (q >= MPZ::powerOfTwo(wF))
        patterns.push_back((MPZ(exponent + top) << wF) + q - MPZ::powerOfTwo(wF));
      mpfr_ui_div(scaled.get(), 1, scaled.get(), MPFR_RNDN);
      MPZ digit;
      mpfr_get_z(digit.get(), scaled.get(), MPFR_RNDD);
      mpfr_frac(scaled.get(), scaled.get(), MPFR_RNDN);
      before += digit * q;
      std::swap(before, q);
    }
  }
  return patterns;
}

}  // namespace functions::testing
