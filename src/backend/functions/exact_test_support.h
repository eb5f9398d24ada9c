#pragma once

#include "backend/functions/float_test_support.h"

// Units whose results are exact, so that one pattern is right for each set of inputs.
namespace functions::testing {

// A unit's circuit and reference, held against the same patterns of its outputs.
class ExactBench {
 public:
  ExactBench(const std::string& unit, const Signature& signature, bool subnormals)
      : row(findUnit(unit)), name(unit), circuit(std::make_unique<graph::Graph>()) {
    request.signature = signature;
    request.subnormals = request.quietNaN = subnormals;
    EXPECT_EQ(row->refuses(request).value_or(""), "");
    graph::Builder builder(*circuit);
    std::vector<graph::Signal> inputs;
    for (const kiln::Type& type : in())
      inputs.push_back(builder.input(fmt::format("i{}", inputs.size()), type.width()));
    for (const graph::Signal output : row->decompose(builder, request, inputs))
      builder.output(fmt::format("o{}", circuit->outputs().size()), output);
    for (std::size_t k = 0; k < signature.out.size(); ++k)
      EXPECT_EQ(circuit->outputs().at(k).signal.width, signature.out[k].width());
    evaluator = std::make_unique<graph::Evaluator>(*circuit);
  }

  const std::vector<kiln::Type>& in() const { return request.signature.in; }

  // The reference rounds down, which an exact result does not feel.
  bool check(const std::vector<MPZ>& patterns, const std::vector<MPZ>& owed) {
    stimulus.resize(patterns.size());
    for (std::size_t i = 0; i < patterns.size(); ++i) stimulus[i].real = valueOf(patterns[i], i);
    const auto& out = request.signature.out;
    std::vector<unsigned> precisions;
    for (const kiln::Type& type : out) {
      const auto* format = type.as_floating_point();
      precisions.push_back(format ? static_cast<unsigned>(format->frac + 1) : 200);
    }
    row->evaluate(request.signature, results, stimulus, precisions,
                  std::vector<mpfr_rnd_t>(out.size(), MPFR_RNDD), request.subnormals);
    const std::vector<MPZ> built = (*evaluator)(patterns);
    bool right = true;
    for (std::size_t k = 0; k < out.size(); ++k) {
      const MPZ referred = patternOf(results[k].real.get(), out[k]);
      if (built[k] == owed[k] && referred == owed[k]) continue;
      right = false;
      std::string inputs;
      for (const MPZ& pattern : patterns) inputs += fmt::format(" {}", pattern.toText(2));
      ADD_FAILURE() << name << (request.subnormals ? ", subnormals" : "") << ", output " << k
                    << ", inputs" << inputs << ": owed " << owed[k].toText(2) << ", circuit "
                    << built[k].toText(2) << ", reference " << referred.toText(2);
    }
    return right;
  }

  Real valueOf(const MPZ& pattern, std::size_t port) const {
    if (const auto* format = in()[port].as_floating_point())
      return decode(pattern, {*format, request.subnormals});
    const auto* format = in()[port].as_fixed_point();
    Real value(200);
    mpfr_set_z(value.get(), (format->sign() ? pattern.asSigned(format->width()) : pattern).get(),
               MPFR_RNDN);
    return value;
  }

  Port port(const kiln::Type& type) const {
    return {*type.as_floating_point(), request.subnormals, request.quietNaN};
  }

 private:
  MPZ patternOf(mpfr_srcptr value, const kiln::Type& type) const {
    if (type.as_floating_point()) return encode(value, port(type));
    MPZ integer;
    mpfr_get_z(integer.get(), value, MPFR_RNDN);
    return integer.lowBits(static_cast<unsigned long>(type.width()));
  }

  const UnitRow* row;
  std::string name;
  Request request;
  std::unique_ptr<graph::Graph> circuit;
  std::unique_ptr<graph::Evaluator> evaluator;
  std::vector<NumValue> stimulus, results;
};

// Checks every combination of patterns, or `count` drawn rows; `owed` tells the results. Ends at
// five wrong ones.
template <typename Owed>
void checkAllExact(ExactBench& bench, Owed owed) {
  int wrong = 0;
  forAllRows(bench.in(), [&](const std::vector<MPZ>& patterns) {
    if (!bench.check(patterns, owed(patterns))) ++wrong;
    return wrong < 5;
  });
}
template <typename Owed>
void checkDrawnExact(ExactBench& bench, int count, unsigned seed, Owed owed) {
  SCOPED_TRACE(fmt::format("seed {}", seed));
  Draws draws(seed);
  int wrong = 0;
  for (int i = 0; i < count && wrong < 5; ++i) {
    std::vector<MPZ> patterns = draws.row(bench.in());
    const auto* format = bench.in()[0].as_floating_point();
    // Equal operands, and those that differ in the sign alone.
    if (format && patterns.size() > 1 && bench.in()[1].as_floating_point() && i % 8 < 2)
      patterns[1] = patterns[0] ^ MPZ(MPZ(i % 8) << (format->exp + format->frac));
    if (!bench.check(patterns, owed(patterns))) ++wrong;
  }
}

// MPFR's minimum and maximum take a number before a NaN, and -0 before +0.
inline Real extreme(const Real& x, const Real& y, bool wantsLeast) {
  Real r(mpfr_get_prec(x.get()));
  (wantsLeast ? mpfr_min : mpfr_max)(r.get(), x.get(), y.get(), MPFR_RNDN);
  return r;
}
inline Real extremeMagnitude(const Real& x, const Real& y, bool wantsLeast) {
  if (mpfr_nan_p(x.get()) || mpfr_nan_p(y.get())) return extreme(x, y, wantsLeast);
  const int order = mpfr_cmpabs(x.get(), y.get());
  if (order == 0) return extreme(x, y, wantsLeast);
  return (order < 0) == wantsLeast ? x : y;
}

}  // namespace functions::testing
