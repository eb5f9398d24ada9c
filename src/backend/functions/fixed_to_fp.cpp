#include "backend/functions/fixed_to_fp.h"

#include <fmt/format.h>

#include <algorithm>

#include "backend/arithmetic/fixed_to_float.h"
#include "backend/functions/float_flags.h"
#include "backend/functions/float_unit.h"
#include "backend/functions/integer_values.h"

namespace functions {

using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

enum Number { kRounding = 2, kFlags = 3, kRoundingPort = 4 };  // places in the variant

struct NumberedMode {
  RoundMode mode;
  mpfr_rnd_t direction;
};
constexpr NumberedMode kModes[] = {{RoundMode::kTowardZero, MPFR_RNDZ},
                                   {RoundMode::kNearestEven, MPFR_RNDN},
                                   {RoundMode::kNearestAway, MPFR_RNDN},
                                   {RoundMode::kUp, MPFR_RNDU},
                                   {RoundMode::kDown, MPFR_RNDD}};

const NumberedMode& modeOf(const Signature& signature) {
  return kModes[signature.variant[kRounding]];
}

bool hasRoundingPort(const Signature& signature) { return signature.variant[kRoundingPort] != 0; }

void evaluateConversion(const Signature& signature, std::vector<NumValue>& results,
                        const std::vector<NumValue>& inputs,
                        const std::vector<unsigned>& precisions,
                        const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(signature.out.size());
  const kiln::FixedPoint& in = fixedPoint(signature.in[0]);
  const bool prescribed = hasRoundingPort(signature);
  const NumberedMode& fixed = modeOf(signature);
  std::vector<mpfr_rnd_t> directions = roundings;
  directions[0] = prescribed ? readRounding(inputs[1]) : fixed.direction;
  {
    const FullExponentRange range;
    thread_local MPZ integer;
    thread_local Real value;
    readFixed(integer, inputs[0], in);
    mpfr_ptr x = value.prepare(in.width() + 1);
    mpfr_set_z_2exp(x, integer.get(), -in.fraction(), MPFR_RNDN);
    const Delivery delivery{.port = outputFloat(signature, 0),
                            .precision = precisions[0],
                            .rounding = directions[0],
                            .tiesAway = !prescribed && fixed.mode == RoundMode::kNearestAway,
                            .subnormals = subnormals};
    if (results.size() > 1)
      deliverFlagged(results[0], results[1], precisions[1], x, delivery, prescribed,
                     /*finite=*/true);
    else
      deliverOdd(results[0], x, delivery);
  }
  fitToCallersRange(results, directions);
}

std::vector<Signal> decomposeConversion(Builder& b, const Request& request,
                                        std::span<const Signal> inputs) {
  const Signature& signature = request.signature;
  const kiln::FixedPoint& in = fixedPoint(signature.in[0]);
  const Signal a = inputs[0];
  const Signal sign = in.sign() ? b.topBit(a) : b.bit(false);
  const Signal magnitude =
      b.addCarry(b.bitXor(a, b.replicate(sign, a.width)), b.zeros(a.width), sign);

  arithmetic::RoundingRule rule{.mode = modeOf(signature).mode};
  if (hasRoundingPort(signature)) rule.port = inputs[1];
  const bool flagged = signature.out.size() > 1;
  // The flag of an underflow asks for a rounding at one place lower.
  auto [number, format] = arithmetic::fixedToFloat(
      b, sign, magnitude, long{in.width()} - 1 - in.fraction(), outputFormat(request, 0),
      /*below=*/flagged ? 2 : 1, request.form.firstOne);
  if (format.gradual) {
    // The digits of a zero are zeros, and with a top bit of 0 the exponent is cleared, too. Where
    // all other numbers have a 1 there the operand tells it first.
    const bool isNormal = format.bias() - in.fraction() >= format.minExponent();
    const int below = number.significand.width - 1;
    if (isNormal)
      number.significand = b.concat({b.reduceOr(a), b.slice(number.significand, 0, below)});
    number.isZero = b.bit(false);
  }
  if (!flagged) return {arithmetic::roundAndPack(b, number, format, rule, request.quietNaN)};
  const auto result = arithmetic::roundAndPackFlagged(b, number, format, rule, request.quietNaN);
  return {result.packed, flagBits(b, result)};
}

std::optional<std::string> refuseConversion(const Request& request) {
  const auto& [in, out, variant] = request.signature;
  const std::size_t inputs = variant[kRoundingPort] != 0 ? 2 : 1;
  const std::size_t outputs = variant[kFlags] != 0 ? 2 : 1;
  if (in.size() != inputs || out.size() != outputs)
    return fmt::format("{} inputs and {} outputs are not the {} and {} of this unit", in.size(),
                       out.size(), inputs, outputs);
  if (!in[0].as_fixed_point()) return "its operand is not a fixed-point number";
  if (inputs == 2 && !isControl(in[1], 2)) return "its rounding is not a port of 2 bits";
  if (!out[0].as_floating_point() || out[0].as_floating_point()->is_fp_lib)
    return "its result is not an IEEE-style number";
  if (outputs == 2 && !isControl(out[1], 5)) return "its flags are not a port of 5 bits";
  const auto mode = variant[kRounding];
  if (auto reason = outOfRange("rounding", mode, 0, std::ssize(kModes) - 1)) return reason;
  if (outputs == 2 && kModes[mode].mode == RoundMode::kNearestAway)
    return "its flags are not of a rounding with ties away";
  if (auto reason = refuseFixedPoint(*in[0].as_fixed_point())) return reason;
  return refuseFormats(request);
}

constexpr UnitRow kRows[] = {{.name = "DMFxPToFP",
                              .evaluate = evaluateConversion,
                              .decompose = decomposeConversion,
                              .refuses = refuseConversion,
                              .otherForm = Form{.firstOne = arithmetic::FirstOne::kOwnGates}}};

}  // namespace

std::span<const UnitRow> fixedToFloatUnits() { return kRows; }

}  // namespace functions
