#include "backend/functions/float_flags.h"

#include <fmt/format.h>

#include "backend/arithmetic/float_adder.h"
#include "backend/arithmetic/float_multiplier.h"
#include "backend/functions/float_unit.h"
#include "backend/functions/integer_values.h"

namespace functions {

using graph::Builder;
using graph::Signal;

namespace {

constexpr std::size_t kRoundingPort = 3;  // place in the variant

bool hasRoundingPort(const Signature& signature) { return signature.variant[kRoundingPort] != 0; }

// Whether an overflow in this direction gives an infinity.
bool leadsToInfinity(mpfr_rnd_t rounding, bool negative) {
  return rounding == MPFR_RNDN || rounding == (negative ? MPFR_RNDD : MPFR_RNDU);
}

// x * y, or x + y, or x - y, rounded to odd; an exact zero sum has the sign of its direction.
enum class Operation { kMultiply, kAdd, kSubtract };
void operate(mpfr_ptr odd, Operation operation, mpfr_srcptr x, mpfr_srcptr y, mpfr_rnd_t rounding) {
  if (operation == Operation::kMultiply) return roundToOdd(odd, mpfr_mul(odd, x, y, MPFR_RNDZ));
  const bool subtract = operation == Operation::kSubtract;
  const int ternary = subtract ? mpfr_sub(odd, x, y, MPFR_RNDZ) : mpfr_add(odd, x, y, MPFR_RNDZ);
  const bool ySign = (mpfr_signbit(y) != 0) != subtract;
  if (mpfr_zero_p(odd) && rounding == MPFR_RNDD && (mpfr_signbit(x) != 0) != ySign)
    mpfr_set_zero(odd, -1);
  roundToOdd(odd, ternary);
}

void evaluateFlagged(const Signature& signature, std::vector<NumValue>& results,
                     const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                     const std::vector<mpfr_rnd_t>& roundings, bool subnormals,
                     Operation operation) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(2);
  const bool prescribed = hasRoundingPort(signature);
  const mpfr_rnd_t rounding = prescribed ? readRounding(inputs.back()) : roundings[0];
  {
    const FullExponentRange range;
    thread_local Real x, y, value;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    readFloat(y, inputs[1], inputFloat(signature, 1), subnormals);
    mpfr_ptr odd = value.prepare(oddPrecision(precisions[0]));
    operate(odd, operation, x.get(), y.get(), rounding);
    deliverFlagged(results[0], results[1], precisions[1], odd,
                   {.port = outputFloat(signature, 0),
                    .precision = precisions[0],
                    .rounding = rounding,
                    .subnormals = subnormals},
                   prescribed, mpfr_number_p(x.get()) && mpfr_number_p(y.get()));
  }
  fitToCallersRange(results, {rounding, roundings[1]});
}

void evaluateMult(const Signature& signature, std::vector<NumValue>& results,
                  const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                  const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  evaluateFlagged(signature, results, inputs, precisions, roundings, subnormals,
                  Operation::kMultiply);
}

void evaluateAlu(const Signature& signature, std::vector<NumValue>& results,
                 const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                 const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  evaluateFlagged(signature, results, inputs, precisions, roundings, subnormals,
                  readBit(inputs[2]) ? Operation::kSubtract : Operation::kAdd);
}

arithmetic::RoundingRule ruleOf(const Request& request, std::span<const Signal> inputs) {
  if (hasRoundingPort(request.signature)) return {.port = inputs.back()};
  return roundingOf(request, /*tiesAway=*/false, inputs);
}

std::vector<Signal> packFlagged(Builder& b, const Request& request, const arithmetic::Unrounded& x,
                                const arithmetic::RoundingRule& rule) {
  const auto result =
      arithmetic::roundAndPackFlagged(b, x, outputFormat(request, 0), rule, request.quietNaN);
  return {result.packed, flagBits(b, result)};
}

std::vector<Signal> decomposeMult(Builder& b, const Request& request,
                                  std::span<const Signal> inputs) {
  // The product of a zero is told by its isZero alone, and so are its flags.
  const auto zeros = arithmetic::ZeroFields::kLikeRegular;
  const auto x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0), zeros);
  const auto y = arithmetic::unpack(b, inputs[1], inputFormat(request, 1), zeros);
  const auto product = arithmetic::multiplyFloatsUnrounded(b, x, y,
                                                           {.out = outputFormat(request, 0),
                                                            .rounding = ruleOf(request, inputs),
                                                            .prices = {},
                                                            .budgets = request.budgets});
  return packFlagged(b, request, product.value, product.rounding);
}

std::vector<Signal> decomposeAlu(Builder& b, const Request& request,
                                 std::span<const Signal> inputs) {
  const auto x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  auto y = arithmetic::unpack(b, inputs[1], inputFormat(request, 1));
  y.sign = b.bitXor(y.sign, inputs[2]);
  const auto rule = ruleOf(request, inputs);
  const auto sum = arithmetic::addSinglePathUnrounded(
      b, x, y, {.out = outputFormat(request, 0), .rounding = rule, .budgets = request.budgets});
  return packFlagged(b, request, sum, rule);
}

// Refuses unless the ports are two numbers, `selects` inputs of one bit, a rounding where the
// variant has one; a number and five flags.
std::optional<std::string> refuseFlagged(const Request& request, std::size_t selects) {
  const auto& [in, out, variant] = request.signature;
  const std::size_t controls = selects + (variant[kRoundingPort] != 0 ? 1 : 0);
  if (in.size() != 2 + controls || out.size() != 2)
    return fmt::format("{} inputs and {} outputs are not the {} and 2 of this unit", in.size(),
                       out.size(), 2 + controls);
  for (const kiln::Type& type : {in[0], in[1], out[0]})
    if (!type.as_floating_point() || type.as_floating_point()->is_fp_lib)
      return "its operands and its result are IEEE-style";
  for (std::size_t i = 2; i < in.size(); ++i)
    if (const int width = i < 2 + selects ? 1 : 2; !isControl(in[i], width))
      return fmt::format("input {} is not a port of {} bits", i, width);
  if (!isControl(out[1], 5)) return "its flags are not a port of 5 bits";
  if (auto reason = refuseFormats(request)) return reason;
  return refuseMixedWidths(request);
}

std::optional<std::string> refuseMult(const Request& request) { return refuseFlagged(request, 0); }
std::optional<std::string> refuseAlu(const Request& request) { return refuseFlagged(request, 1); }

constexpr UnitRow kRows[] = {{"DMFPMult", evaluateMult, decomposeMult, refuseMult},
                             {"DMFPALU", evaluateAlu, decomposeAlu, refuseAlu}};

}  // namespace

Signal flagBits(Builder& b, const arithmetic::Flagged& result) {
  return b.concat(
      {result.overflow, result.underflow, result.isNan, result.isNegative, result.isZero});
}

mpfr_rnd_t readRounding(const NumValue& input) {
  static constexpr mpfr_rnd_t kDirections[] = {MPFR_RNDN, MPFR_RNDD, MPFR_RNDU, MPFR_RNDZ};
  return kDirections[readSelect(input, 2)];
}

void deliverFlagged(NumValue& result, NumValue& flags, unsigned flagsPrecision, mpfr_srcptr odd,
                    const Delivery& delivery, bool stopsShort, bool finite) {
  const kiln::FloatingPoint& port = delivery.port;
  const mpfr_exp_t half = mpfr_exp_t{1} << (port.exp - 1);
  const mpfr_exp_t lowestNormal = 3 - half, largest = half;  // MPFR exponents
  deliverOdd(result, odd, delivery);
  mpfr_ptr r = result.real.get();
  const bool negative = mpfr_signbit(r) != 0;
  unsigned bits = 0;
  if (mpfr_inf_p(odd) && finite) bits |= kOverflow;
  if (mpfr_regular_p(odd)) {
    thread_local Real unbounded;
    mpfr_ptr u = unbounded.prepare(delivery.precision);
    mpfr_set(u, odd, delivery.rounding);
    const mpfr_exp_t exponent = mpfr_get_exp(u);
    if (exponent > largest) {
      bits |= kOverflow;
      if (stopsShort && !leadsToInfinity(delivery.rounding, negative)) {
        mpfr_ptr greatest = unbounded.prepare(port.frac + 1);
        mpfr_set_ui_2exp(greatest, 1, largest, MPFR_RNDN);
        mpfr_nextbelow(greatest);
        mpfr_set(r, greatest, MPFR_RNDZ);
        if (negative) mpfr_neg(r, r, MPFR_RNDN);
      }
    }
    const bool changes = !delivery.subnormals || !mpfr_equal_p(r, odd);
    if (exponent < lowestNormal && changes) bits |= kUnderflow;
  }
  const bool flushed = mpfr_regular_p(r) && !delivery.subnormals && mpfr_get_exp(r) < lowestNormal;
  if (mpfr_nan_p(r))
    bits |= kNan;
  else if (negative)
    bits |= kNegative;
  if (mpfr_zero_p(r) || flushed) bits |= kZero;
  mpfr_set_ui(flags.real.prepare(flagsPrecision), bits, MPFR_RNDN);
  flags.type = NumType::kValue;
  flags.raw = false;
}

std::span<const UnitRow> floatFlagUnits() { return kRows; }

}  // namespace functions
